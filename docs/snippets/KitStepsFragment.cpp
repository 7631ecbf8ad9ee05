// build: g++ -std=c++17
#include "QuenHost/CLS_Steps.h"

#include <string>
#include <utility>
#include <vector>

struct ST_Picture
{
};

ST_Picture Load(const std::string& strPath);
ST_Picture Scale(const ST_Picture& stPicture);
void Show(const ST_Picture& stPicture);
void ShowAll(const std::vector<ST_Picture>& vecPictures);
void ShowError(const ST_TaskFailure& stFailure);

void Use(CLS_TaskOwner& clsTasks, const CLS_HostThread& clsWindow, const std::string& strPath,
         const std::vector<std::string>& vecPaths)
{
    const auto funLoad = [strPath] { return Load(strPath); };
#include BLOCK
    static_cast<void>(bTaken);
}
