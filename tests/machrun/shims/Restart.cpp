#include "tests/machrun/shims/Restart.h"

#include "tests/machrun/CLS_MachOFile.h"

#include <unistd.h>

namespace
{
std::vector<std::string>& GetOwnArguments()
{
    static std::vector<std::string>& s_vecArguments = *new std::vector<std::string>;
    return s_vecArguments;
}
} // namespace

namespace Restart
{
void SetOwnArguments(const std::vector<std::string>& _vecArguments)
{
    GetOwnArguments() = _vecArguments;
}

int Execute(const char* _szPath, char* const* _ppArguments, char* const* _ppEnvironment)
{
    if (!CLS_MachOFile::IsMachO(_szPath))
    {
        return execve(_szPath, _ppArguments, _ppEnvironment);
    }
    std::vector<char*> vecArguments;
    for (std::string& strArgument : GetOwnArguments())
    {
        vecArguments.push_back(strArgument.data());
    }
    vecArguments.push_back(const_cast<char*>(_szPath));
    for (char* const* ppNext = _ppArguments; *ppNext != nullptr && *++ppNext != nullptr;)
    {
        vecArguments.push_back(*ppNext);
    }
    vecArguments.push_back(nullptr);
    return execve("/proc/self/exe", vecArguments.data(), _ppEnvironment);
}
} // namespace Restart
