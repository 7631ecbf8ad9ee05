// build: g++ -std=c++17 -Wno-unused-variable
#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/CLS_TaskOwner.h"
#include "docs/snippets/Thumbnails.h"

void Use([[maybe_unused]] ST_Window* pWindow)
{
#include BLOCK
}
