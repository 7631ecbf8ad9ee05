// build: g++ -std=c++17 -Wno-unused-variable
#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/CLS_PoolScope.h"
#include "QuenHost/CLS_TaskOwner.h"
#include "QuenHost/CLS_TraceFile.h"
#include "docs/snippets/Thumbnails.h"

#include <cstdio>

void Use([[maybe_unused]] ST_Window* pWindow)
{
#include BLOCK
}
