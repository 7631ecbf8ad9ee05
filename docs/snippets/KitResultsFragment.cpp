// build: g++ -std=c++17
#include "QuenHost/CLS_Delivery.h"
#include "QuenHost/SubmitAndDeliver.h"

#include <string>

struct ST_Picture
{
};

ST_Picture Load(const std::string& strPath);
void Show(const ST_Picture& stPicture);
void ShowProgress(int iPercent);

void Use(const CLS_PoolScope& clsPool, const CLS_HostThread& clsWindow, const std::string& strPath)
{
#include BLOCK
    static_cast<void>(bTaken);
}
