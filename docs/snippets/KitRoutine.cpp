// build: g++ -std=c++20
#include "QuenHost/CLS_Routine.h"

#include <string>

struct ST_Picture
{
};

ST_Picture Load(const std::string& strPath);
void Show(const ST_Picture& stPicture);

#include BLOCK
