// build: g++ -std=c++17
#include "QuenHost/CLS_Debounce.h"
#include "QuenHost/CLS_TaskOwner.h"

#include <chrono>

void Search();
void HideHint();

void Use(const CLS_PoolScope& clsPool)
{
#include BLOCK
    static_cast<void>(bTaken);
}
