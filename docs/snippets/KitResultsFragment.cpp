// build: g++ -std=c++17
#include "QuenHost/CLS_Delivery.h"
#include "QuenHost/CLS_Steps.h"
#include "QuenHost/SubmitAndDeliver.h"

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

struct ST_Picture
{
};

ST_Picture Load(const std::string& strPath);
ST_Picture Scale(const ST_Picture& stPicture);
bool Compress(const ST_Picture& stPicture, const CLS_StopToken& clsToken);
void Show(const ST_Picture& stPicture);
void ShowAll(const std::vector<ST_Picture>& vecPictures);
void ShowProgress(int iPercent);
void ShowError(const ST_TaskFailure& stFailure);
void RunOnWindowThread(std::function<void()> funCall);

void Use(const CLS_PoolScope& clsPool, const std::string& strPath, const std::vector<std::string>& vecPaths)
{
#include BLOCK
}
