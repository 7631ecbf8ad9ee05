#pragma once

#include "tests/machrun/CLS_Image.h"

/// Thread-local variables of images.
///
/// Code calls the function in a variable's descriptor to get its address. At its first such call, a thread
/// receives a copy of the image's initial values. It keeps the copy until all its destructors have run.
namespace ThreadLocals
{
/// Sets the descriptors of an image. Call it once for each image, with the loader's lock held.
void Prepare(CLS_Image& _clsImage);
} // namespace ThreadLocals
