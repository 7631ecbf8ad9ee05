// build: g++ -std=c++17
#include "QuenHost/CLS_TaskOwner.h"

#include <algorithm>
#include <thread>

void Use(const CLS_PoolScope& clsPool)
{
#include BLOCK
}
