#pragma once

#include "tests/machrun/CLS_Image.h"

namespace Binding
{
/// Makes an image ready to run: relocates its pointers, binds the names that it uses, and protects its
/// memory. Functions are not bound lazily. The libraries that it is linked with must be loaded.
///
/// MACHRUN_INTERPOSE is a list of names, separated by commas. If the program exports such a name, all other
/// images are bound to it. So a test can replace a function of the system that a library calls.
///
/// If a name is missing in the system's library, it becomes a function. When called, that function writes a
/// message and ends the process.
///
/// Call it with the loader's lock held.
///
/// Fails: std::runtime_error for any other missing name, and for fixups that are not possible.
void Bind(CLS_Image& _clsImage);
} // namespace Binding
