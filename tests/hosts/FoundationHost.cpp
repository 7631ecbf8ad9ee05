// A program for tests that need a process of their own. It executes its arguments in order:
//
// - fun NAME FOLDER: looks up an entry point of the logging library.
// - dll PATH NAME: opens a library and looks up a name.
// - reason PATH: prints why the dynamic loader cannot open a library.
// - record TEXT: makes a log record.
// - records COUNT: makes numbered log records.
// - at-once COUNT: makes one log record on each of COUNT threads at the same time.
// - uuids COUNT: makes COUNT ids, and prints the last field of the first one and of the last two.
// - uuid-no-files: requests ids in each way while no file can be opened, and counts the exceptions.
// - leave-at-load STATUS: lets the next library with an initialiser end the process like "leave".
// - threads-at-load COUNT: lets each thread of such an initialiser start COUNT threads in sequence. Each of
//   them makes a numbered log record.
// - leave STATUS: ends the process at once, without flushing anything.

#include "QuenInclude/CLS_Basic.h"
#include "tests/support/Waiting.h"

#include <cstdlib>
#include <dlfcn.h>
#include <iostream>
#include <sys/resource.h>
#include <thread>

namespace
{
constexpr const char* FILE_NAME = "tests/hosts/FoundationHost";

/// The status with which an initialiser ends the process; -1 if it does not.
int g_iLeaveAtLoad = -1;

/// How many threads make a log record while a library is opened.
int g_iThreadsAtLoad = 0;

void MakeRecord(const std::string& _strText)
{
    Logger::LogMessageStream("FoundationHost", "MakeRecord", FILE_NAME, 42, Logger::LOG_LEVEL_PROGRESS)
        << _strText;
}

void MakeRecordsAtOnce(int _iCount)
{
    CLS_Gate clsGate;
    std::vector<std::thread> vecThreads;
    for (int i = 0; i < _iCount; ++i)
    {
        vecThreads.emplace_back(
            [&clsGate]
            {
                if (clsGate.Wait())
                {
                    MakeRecord("at once");
                }
            });
    }
    clsGate.Open();
    for (std::thread& thRecord : vecThreads)
    {
        thRecord.join();
    }
}

void LookUp(const std::string& _strName, const std::string& _strFolder)
{
    const bool bFound = Logger::GetModuleFun(_strName, _strFolder) != nullptr;
    std::cout << "fun " << _strName << ": " << (bFound ? "found" : "null") << "\n";
}

void OpenLibrary(const std::string& _strPath, const std::string& _strName)
{
    std::map<std::string, void*> mapFuns = Util::GetDllFunction(_strPath, {_strName});
    std::cout << "dll " << mapFuns.size() << ": " << (mapFuns[_strName] != nullptr ? "found" : "null")
              << "\n";
}

void PrintReason(const std::string& _strPath)
{
    if (dlopen(_strPath.c_str(), RTLD_NOW) == nullptr)
    {
        std::cout << dlerror();
    }
}

std::string GetCounterField(const std::string& _strId)
{
    return _strId.substr(_strId.rfind('-') + 1);
}

void MakeIds(int _iCount)
{
    std::vector<std::string> vecFields;
    for (int i = 0; i < _iCount; ++i)
    {
        vecFields.push_back(GetCounterField(Util::GetUuid()));
    }
    std::cout << vecFields.front() << " " << vecFields.end()[-2] << " " << vecFields.back() << "\n";
}

int CountException(const std::function<void()>& _funCall)
{
    try
    {
        _funCall();
        return 0;
    }
    catch (const std::exception&)
    {
        return 1;
    }
}

void MakeIdsWithoutFiles()
{
    CLS_Basic clsObject;
    // Instrumented builds check the type of an object at its first call, and open files for that.
    clsObject.GetClassCode();
    rlimit stLimit{};
    getrlimit(RLIMIT_NOFILE, &stLimit);
    const rlim_t uiLimitBefore = stLimit.rlim_cur;
    stLimit.rlim_cur = 3;
    setrlimit(RLIMIT_NOFILE, &stLimit);
    const int iExceptions =
        CountException([] { Util::GetUuid(); }) + CountException([&clsObject] { clsObject.GetId(); }) +
        CountException([&clsObject] { clsObject.SetCallBackResultFun(nullptr, nullptr); });
    stLimit.rlim_cur = uiLimitBefore;
    setrlimit(RLIMIT_NOFILE, &stLimit);
    std::cout << iExceptions << " exceptions\n";
}

class CLS_Arguments
{
public:
    CLS_Arguments(int _iCount, char** _ppTexts) : m_vecTexts(_ppTexts + 1, _ppTexts + _iCount) {}
    bool IsEmpty() const { return m_uiNext == m_vecTexts.size(); }
    std::string Next() { return m_vecTexts.at(m_uiNext++); }
    int NextNumber() { return std::stoi(Next()); }

private:
    std::vector<std::string> m_vecTexts;
    std::size_t m_uiNext = 0;
};

bool CarryOutLibraryCommand(const std::string& _strCommand, CLS_Arguments& _clsArguments)
{
    if (_strCommand == "fun" || _strCommand == "dll")
    {
        const std::string strFirst = _clsArguments.Next();
        const std::string strSecond = _clsArguments.Next();
        _strCommand == "fun" ? LookUp(strFirst, strSecond) : OpenLibrary(strFirst, strSecond);
        return true;
    }
    if (_strCommand == "leave-at-load")
    {
        g_iLeaveAtLoad = _clsArguments.NextNumber();
        return true;
    }
    if (_strCommand == "threads-at-load")
    {
        g_iThreadsAtLoad = _clsArguments.NextNumber();
        return true;
    }
    if (_strCommand == "reason")
    {
        PrintReason(_clsArguments.Next());
        return true;
    }
    return false;
}

bool CarryOutRecordCommand(const std::string& _strCommand, CLS_Arguments& _clsArguments)
{
    if (_strCommand == "record")
    {
        MakeRecord(_clsArguments.Next());
        return true;
    }
    if (_strCommand == "records")
    {
        const int iCount = _clsArguments.NextNumber();
        for (int i = 0; i < iCount; ++i)
        {
            MakeRecord(std::to_string(i));
        }
        return true;
    }
    if (_strCommand == "at-once")
    {
        MakeRecordsAtOnce(_clsArguments.NextNumber());
        return true;
    }
    return false;
}

bool CarryOutIdCommand(const std::string& _strCommand, CLS_Arguments& _clsArguments)
{
    if (_strCommand == "uuids")
    {
        MakeIds(_clsArguments.NextNumber());
        return true;
    }
    if (_strCommand == "uuid-no-files")
    {
        MakeIdsWithoutFiles();
        return true;
    }
    return false;
}
} // namespace

extern "C" void ZelTestAtLoad(const char* _szThread)
{
    if (g_iLeaveAtLoad != -1)
    {
        std::_Exit(g_iLeaveAtLoad);
    }
    for (int i = 0; i < g_iThreadsAtLoad; ++i)
    {
        std::thread([i] { MakeRecord(std::to_string(i)); }).join();
    }
    MakeRecord(std::string("at load: ") + _szThread);
}

int main(int _iCount, char** _ppTexts)
{
    CLS_Arguments clsArguments(_iCount, _ppTexts);
    while (!clsArguments.IsEmpty())
    {
        const std::string strCommand = clsArguments.Next();
        if (strCommand == "leave")
        {
            std::_Exit(clsArguments.NextNumber());
        }
        if (!CarryOutLibraryCommand(strCommand, clsArguments) &&
            !CarryOutRecordCommand(strCommand, clsArguments) && !CarryOutIdCommand(strCommand, clsArguments))
        {
            std::cerr << "unknown: " << strCommand << "\n";
            return 64;
        }
    }
    return 0;
}
