#include "QuenInclude/Util.h"

#include "QuenInclude/CLS_LoadTurn.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <iostream>
#include <pthread.h>
#include <random>

namespace
{
/// MapToString reserves this many characters for each entry, to allocate once.
constexpr std::size_t TYPICAL_ENTRY = 64;

/// The libraries opened so far. Never destroyed, because late threads log while the process exits.
struct ST_Loader
{
    CLS_LoadTurn m_clsTurn;
    /// Path to handle, null after a failed open.
    std::map<std::string, void*> m_mapDllConn ZEL_GUARDED_BY(m_clsTurn);
};

ST_Loader& GetLoader()
{
    static ST_Loader& s_stLoader = *new ST_Loader;
    return s_stLoader;
}

void PrintOpenError(const std::string& _strPath)
{
    // The loader keeps its last error per thread.
    if (const char* const szReason = dlerror()) // NOLINT(concurrency-mt-unsafe)
    {
        std::cerr << "load dll [" << _strPath << "] fail !!! " << szReason << std::endl;
    }
}

/// Appends the number in at least _iLeast lower-case hexadecimal digits.
void AppendHex(std::string& _strText, std::uint64_t _uiNumber, std::ptrdiff_t _iLeast)
{
    std::array<char, 16> arrDigits; // as many as 64 bits have
    const auto stEnd = std::to_chars(arrDigits.data(), arrDigits.data() + arrDigits.size(), _uiNumber, 16);
    const std::ptrdiff_t iDigits = stEnd.ptr - arrDigits.data();
    _strText.append(static_cast<std::size_t>(std::max<std::ptrdiff_t>(_iLeast - iDigits, 0)), '0');
    _strText.append(arrDigits.data(), stEnd.ptr);
}
} // namespace

namespace Util
{
std::vector<std::string> SplitStdString(const std::string& _strText, const std::string& _strSeparators)
{
    std::vector<std::string> vecPieces;
    std::string strBuffer = _strText;
    char* szRest = nullptr;
    for (char* szPiece = strtok_r(strBuffer.data(), _strSeparators.c_str(), &szRest); szPiece != nullptr;
         szPiece = strtok_r(nullptr, _strSeparators.c_str(), &szRest))
    {
        vecPieces.emplace_back(szPiece);
    }
    return vecPieces;
}

std::string GetUuid()
{
    // Relaxed, and no read-modify-write: the other fields tell ids apart if threads draw the same value.
    static std::atomic<std::uint32_t> uiNum{0};
    const std::uint32_t uiCount = uiNum.load(std::memory_order_relaxed) % 65535;

    std::random_device clsRandom("/dev/urandom");
    const std::uint32_t uiRandom = clsRandom();
    // A pthread_t is a number on some platforms and a pointer on others.
    const auto uiThread = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(pthread_self()));
    const auto uiTime = static_cast<unsigned long long>(
        std::chrono::nanoseconds(std::chrono::steady_clock::now().time_since_epoch()).count());
    uiNum.store(uiCount + 1, std::memory_order_relaxed);

    std::string strId;
    strId.reserve(64);
    AppendHex(strId, uiRandom, 8);
    strId += '-';
    AppendHex(strId, uiThread, 4);
    strId += '-';
    AppendHex(strId, uiTime, 8);
    strId += '-';
    AppendHex(strId, uiCount, 4);
    return strId;
}

std::string MapToString(const std::map<std::string, CLS_CVariant>& _mapParam)
{
    std::string strText;
    strText.reserve(_mapParam.size() * TYPICAL_ENTRY);
    for (const auto& [strKey, clsValue] : _mapParam)
    {
        strText.append("[").append(strKey).append("] : [");
        clsValue.AppendTo(strText);
        strText.append("]\n");
    }
    return strText;
}

bool FileExists(const std::string& _strPath)
{
    return std::ifstream(_strPath).good();
}

void PinLibrary()
{
    static const char s_cAnchor = 0;
    Dl_info stInfo{};
    if (dladdr(&s_cAnchor, &stInfo) != 0)
    {
        // The reference is never given back.
        dlopen(stInfo.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
    }
    // Clears the text of a failure, which would otherwise appear in this thread's next loader message.
    dlerror(); // NOLINT(concurrency-mt-unsafe)
}

void SetThreadName(const char* _szName)
{
#ifdef __APPLE__
    pthread_setname_np(_szName);
#else
    pthread_setname_np(pthread_self(), _szName);
#endif
}

std::int64_t GetElapsedMilliseconds(std::chrono::steady_clock::time_point _tpStart)
{
    const auto msElapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - _tpStart);
    return std::abs(std::int64_t{msElapsed.count()});
}

std::map<std::string, void*> GetDllFunction(const std::string& _strPath,
                                            const std::vector<std::string>& _vecNames)
{
    ST_Loader& stLoader = GetLoader();
    const CLS_LoadTurn::CLS_Scope clsTurn(stLoader.m_clsTurn);
    if (!clsTurn.IsTaken())
    {
        return {};
    }

    // Only the request that opens the library names it in its lines.
    std::string strShownPath;
    auto itConn = stLoader.m_mapDllConn.find(_strPath);
    if (itConn == stLoader.m_mapDllConn.end())
    {
        strShownPath = _strPath;
        std::cout << "load dll - " << strShownPath << std::endl;
        itConn = stLoader.m_mapDllConn.emplace(_strPath, nullptr).first;
        itConn->second = dlopen(strShownPath.c_str(), RTLD_NOW);
    }
    if (itConn->second == nullptr)
    {
        PrintOpenError(strShownPath);
        return {};
    }

    std::map<std::string, void*> mapFuns;
    for (const std::string& strName : _vecNames)
    {
        mapFuns[strName] = dlsym(itConn->second, strName.c_str());
        std::cout << "load dll [" << strShownPath << ": " << strName << "] sucess" << std::endl;
    }
    return mapFuns;
}
} // namespace Util
