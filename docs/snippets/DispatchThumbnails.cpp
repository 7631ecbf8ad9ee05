// build: clang++-19 --target=x86_64-apple-macos11 -isysroot build/macos-sdk -std=c++17 -fblocks
//        $(grep ^- cmake/macos/libc++-config.txt)
#include "docs/snippets/Thumbnails.h"

#include <atomic>
#include <dispatch/dispatch.h>
#include <memory>

void Use([[maybe_unused]] ST_Window* pWindow)
{
#include BLOCK
}
