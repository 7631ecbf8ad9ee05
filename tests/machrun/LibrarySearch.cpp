#include "tests/machrun/LibrarySearch.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace
{
namespace fs = std::filesystem;

const std::string RUN_PATH = "@rpath/";

LibrarySearch::ST_Places& GetPlaces()
{
    static LibrarySearch::ST_Places s_stPlaces;
    return s_stPlaces;
}

/// The folders in an environment variable, separated by colons.
std::vector<std::string> GetFolders(const char* _szVariable)
{
    std::vector<std::string> vecFolders;
    const char* const szValue = std::getenv(_szVariable); // NOLINT(concurrency-mt-unsafe): as macOS does
    const std::string strValue = szValue == nullptr ? "" : szValue;
    for (std::size_t uiStart = 0; uiStart < strValue.size();)
    {
        const std::size_t uiEnd = std::min(strValue.find(':', uiStart), strValue.size());
        if (uiEnd > uiStart)
        {
            vecFolders.push_back(strValue.substr(uiStart, uiEnd - uiStart));
        }
        uiStart = uiEnd + 1;
    }
    return vecFolders;
}

/// All paths to try, in order.
std::vector<std::string> GetCandidates(const std::string& _strName, const std::string& _strAsking,
                                       const std::vector<std::string>& _vecRunPaths)
{
    std::vector<std::string> vecCandidates;
    for (const std::string& strFolder : GetFolders("DYLD_LIBRARY_PATH"))
    {
        vecCandidates.push_back(strFolder + "/" + fs::path(_strName).filename().string());
    }
    const bool bBare = _strName.find('/') == std::string::npos;
    const bool bRunPath = _strName.rfind(RUN_PATH, 0) == 0;
    if (bBare || bRunPath)
    {
        for (const std::string& strRunPath : _vecRunPaths)
        {
            vecCandidates.push_back(strRunPath + "/" + _strName.substr(bRunPath ? RUN_PATH.size() : 0));
        }
    }
    if (bBare)
    {
        vecCandidates.insert(vecCandidates.end(),
                             {_strName, "/usr/local/lib/" + _strName, "/usr/lib/" + _strName});
    }
    else if (!bRunPath)
    {
        vecCandidates.push_back(LibrarySearch::Expand(_strName, _strAsking));
    }
    return vecCandidates;
}

/// The file of a path; empty if there is none.
std::string Resolve(const std::string& _strPath)
{
    const std::string strBelowRoot = GetPlaces().m_strRoot + _strPath;
    for (const std::string& strPath : {_strPath[0] == '/' ? strBelowRoot : _strPath, _strPath})
    {
        std::error_code errIgnored;
        if (fs::is_regular_file(strPath, errIgnored))
        {
            return fs::canonical(strPath).string();
        }
    }
    return "";
}
} // namespace

namespace LibrarySearch
{
void SetPlaces(const ST_Places& _stPlaces)
{
    GetPlaces() = _stPlaces;
}

const std::string& GetProgramPath()
{
    return GetPlaces().m_strProgram;
}

std::string Expand(const std::string& _strPath, const std::string& _strAsking)
{
    const std::array<std::pair<std::string, const std::string*>, 2> arrNames{
        {{"@loader_path", &_strAsking}, {"@executable_path", &GetProgramPath()}}};
    for (const auto& [strName, pFile] : arrNames)
    {
        const bool bWhole = _strPath.size() == strName.size() || _strPath[strName.size()] == '/';
        if (_strPath.rfind(strName, 0) == 0 && bWhole)
        {
            return fs::path(*pFile).parent_path().string() + _strPath.substr(strName.size());
        }
    }
    return _strPath;
}

bool IsSystem(const std::string& _strName)
{
    static const std::array<const char*, 6> s_arrNames{
        "/usr/lib/libSystem.B.dylib", "/usr/lib/libSystem.dylib", "/usr/lib/libc.dylib",
        "/usr/lib/libdl.dylib",       "/usr/lib/libm.dylib",      "/usr/lib/libpthread.dylib"};
    return std::find(s_arrNames.begin(), s_arrNames.end(), _strName) != s_arrNames.end() ||
           _strName.rfind("/usr/lib/system/", 0) == 0;
}

std::string Find(const std::string& _strName, const std::string& _strAsking,
                 const std::vector<std::string>& _vecRunPaths)
{
    std::string strTried;
    for (const std::string& strCandidate : GetCandidates(_strName, _strAsking, _vecRunPaths))
    {
        if (std::string strPath = Resolve(strCandidate); !strPath.empty())
        {
            return strPath;
        }
        strTried += (strTried.empty() ? "'" : ", '") + strCandidate + "' (no such file)";
    }
    throw std::runtime_error("tried: " + (strTried.empty() ? "no run path" : strTried));
}
} // namespace LibrarySearch
