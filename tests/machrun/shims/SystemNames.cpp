#include "tests/machrun/shims/SystemNames.h"

#include "tests/machrun/shims/Tables.h"

#include <dlfcn.h>
#include <unordered_map>

namespace
{
using Names = std::unordered_map<std::string, void*>;

Names MakeNames()
{
    Names mapNames;
    for (const char* const szName : Tables::GetSame())
    {
        mapNames.emplace(std::string("_") + szName, dlsym(RTLD_DEFAULT, szName));
    }
    for (const auto funGet :
         {Tables::GetCharacters, Tables::GetConditions, Tables::GetDynamic, Tables::GetFiles,
          Tables::GetKernel, Tables::GetLocales, Tables::GetLocks, Tables::GetMemory, Tables::GetPatterns,
          Tables::GetProcess, Tables::GetSignals, Tables::GetStreams, Tables::GetTexts, Tables::GetThreads})
    {
        for (const ST_Shim& stShim : funGet())
        {
            mapNames.emplace(stShim.m_szName, stShim.m_pAddress);
        }
    }
    return mapNames;
}
} // namespace

namespace SystemNames
{
void* Find(const std::string& _strName)
{
    static const Names& s_mapNames = *new Names(MakeNames()); // threads may run to the end of the process
    const auto itName = s_mapNames.find(_strName);
    return itName == s_mapNames.end() ? nullptr : itName->second;
}
} // namespace SystemNames
