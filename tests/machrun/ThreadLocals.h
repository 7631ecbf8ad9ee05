#pragma once

#include "tests/machrun/CLS_Image.h"

/// Thread-local variables of images. Code calls a function in a variable's descriptor to get at it; each
/// thread gets a copy of the image's first values at its first such call, and keeps it until all its
/// destructors have run.
namespace ThreadLocals
{
/// Fills in the descriptors of an image. Call it once an image, with the loader's lock held.
void Prepare(CLS_Image& _clsImage);
} // namespace ThreadLocals
