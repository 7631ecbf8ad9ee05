// build: g++ -std=c++17 -Wno-unused-variable
#include "QuenPlugins/ZelTaskPool/TaskPoolExports.h"
#include "docs/snippets/Thumbnails.h"

#include <dlfcn.h>

void Use(ST_Window* pWindow)
{
    const auto Draw = [pWindow] { MakeThumbnail(pWindow); };
#include BLOCK
}
