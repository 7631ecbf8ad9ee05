#pragma once

#include "tests/machrun/CLS_Image.h"

namespace Binding
{
/// Makes an image ready to run: moves its pointers, looks up the names that it uses, functions included, and
/// protects its memory. Everything that it was linked with must be loaded.
///
/// The names in MACHRUN_INTERPOSE, which separates them with commas, come from the program, if it exports
/// them, for every image but the program itself. That is how a test stands in front of a function of the
/// system that a library calls.
///
/// A name that only the system's library could have, and has not, becomes a function that ends the process
/// with a message when it is called. Throws std::runtime_error for any other name that is missing, and for
/// fixups that cannot be carried out. Call it with the loader's lock held.
void Bind(CLS_Image& _clsImage);
} // namespace Binding
