// build: g++ -std=c++17
#include "QuenHost/CLS_TaskOwner.h"

#include <memory>

void Use(CLS_TaskOwner& clsOwner, const std::shared_ptr<const void>& pModel)
{
#include BLOCK
}
