// build: g++ -std=c++17
#include "QuenHost/CLS_Debounce.h"
#include "QuenHost/CLS_TaskOwner.h"

#include <algorithm>
#include <chrono>
#include <thread>

void Search();
void HideHint();

void Use(const CLS_PoolScope& clsPool)
{
#include BLOCK
}
