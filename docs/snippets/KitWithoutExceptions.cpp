// build: g++ -std=c++17 -fno-exceptions
#include "QuenHost/CLS_PoolScope.h"

#include <cstdio>

int Run(const std::string& strPath)
{
#include BLOCK
    return 0;
}
