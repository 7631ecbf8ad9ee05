#include <cstdlib>
#include <cxxabi.h>
#include <dlfcn.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace
{
using ::testing::UnorderedElementsAreArray;

/// The names that the library exports.
const std::vector<std::string> OFFERED = {
    "AddTmpTask",
    "RemoveTmpTask",
    "AddLoopTask",
    "RemoveTask",
    "KillTask",
    "KillTaskAll",
    "UnInit",

    "CLS_QuenTaskPool::GetInstance()",
    "CLS_QuenTaskPool::m_pInstance",
    "CLS_QuenTaskPool::CLS_QuenTaskPool()",
    "CLS_QuenTaskPool::~CLS_QuenTaskPool()",
    "CLS_QuenTaskPool::AddTmpTask(std::function<void ()> const&, void*, std::string const&)",
    "CLS_QuenTaskPool::AddWaitingTasks(std::string const&)",
    "CLS_QuenTaskPool::RemoveTmpTask(std::string const&)",
    "CLS_QuenTaskPool::RemoveTmpTask(void*, std::string const&)",
    "CLS_QuenTaskPool::StopTask(std::string const&)",
    "CLS_QuenTaskPool::AddLoopTask(std::function<void ()> const&, int, std::string&, std::string const&)",
    "CLS_QuenTaskPool::RemoveTask(std::string const&, std::string const&)",
    "CLS_QuenTaskPool::KillTask(std::string const&, std::string const&)",
    "CLS_QuenTaskPool::KillTaskAll()",
    "CLS_QuenTaskPool::UnInit()",
    "CLS_QuenTaskPool::CreateTaskThread()",
    "CLS_QuenTaskPool::GetTaskThread()",
    "CLS_QuenTaskPool::GetTaskThreadNum()",
    "CLS_QuenTaskPool::FunRunTask(CLS_TaskThread*)",
    "CLS_QuenTaskPool::FunTaskingThread()",
    "CLS_QuenTaskPool::FunLoopThread()",
    "CLS_QuenTaskPool::FunTaskThreadWaitingOvertime()",

    "CLS_Task::CLS_Task(std::function<void ()> const&, int, std::string const&)",
    "CLS_Task::~CLS_Task()",
    "CLS_Task::CreateTask(std::function<void ()> const&, int, std::string const&)",
    "CLS_Task::GetTask(std::string const&)",
    "CLS_Task::DeleteTask(std::string const&)",
    "CLS_Task::Running()",
    "CLS_Task::Stop()",
    "CLS_Task::GetTaskStatus()",
    "CLS_Task::SetTaskStatus(n_TaskStatus)",
    "CLS_Task::SetTaskIsWaiting()",
    "CLS_Task::IsLoop()",
    "CLS_Task::SetLoopInterval(int)",
    "CLS_Task::GetLoopInterval()",
    "CLS_Task::IsRunning()",
    "CLS_Task::IsUseRun()",
    "CLS_Task::GetValid()",
    "CLS_Task::SetValid(bool)",
    "CLS_Task::m_mapTaskData",
    "CLS_Task::m_smTaskDataLock",

    "CLS_TaskThread::CLS_TaskThread()",
    "CLS_TaskThread::~CLS_TaskThread()",
    "CLS_TaskThread::FunTask()",
    "CLS_TaskThread::Exit()",
    "CLS_TaskThread::AddFunction(std::function<void (CLS_TaskThread*)> const&)",
    "CLS_TaskThread::GetOrderId()",
    "CLS_TaskThread::SetOrderId(int)",
    "CLS_TaskThread::IsWaitingOvertime()",
    "CLS_TaskThread::SetWaitingOvertime(int)",
    "CLS_TaskThread::GetWaitingOvertime()",
    "CLS_TaskThread::m_iWaitingOvertime"};

/// The symbols in the list of exports, as dlsym takes them.
std::vector<std::string> ReadSymbols()
{
#ifdef __APPLE__
    constexpr std::size_t UNDERSCORES = 1; // every symbol in a file begins with one
#else
    constexpr std::size_t UNDERSCORES = 0;
#endif
    std::ifstream fsList(EXPORTS_LIST);
    std::vector<std::string> vecSymbols;
    for (std::string strLine; std::getline(fsList, strLine);)
    {
        if (!strLine.empty() && strLine.front() != '#')
        {
            vecSymbols.push_back(strLine.substr(UNDERSCORES));
        }
    }
    return vecSymbols;
}

/// The demangled name of a symbol, with the C++ library's name for a string reduced to std::string.
std::string Demangle(const std::string& _strSymbol)
{
    int iStatus = 0;
    const std::unique_ptr<char, void (*)(void*)> pName(
        abi::__cxa_demangle(_strSymbol.c_str(), nullptr, nullptr, &iStatus), &std::free);
    if (iStatus != 0)
    {
        return _strSymbol;
    }
    static const std::regex s_rgxTag(R"(__1::|__cxx11::|\[abi:cxx11\])");
    static const std::regex s_rgxText(
        R"(std::basic_string<char, std::char_traits<char>, std::allocator<char> ?>)");
    return std::regex_replace(std::regex_replace(pName.get(), s_rgxTag, ""), s_rgxText, "std::string");
}

TEST(ExportListTest, ListsExactlyTheIntendedExports)
{
    std::set<std::string> setNames;
    for (const std::string& strSymbol : ReadSymbols())
    {
        setNames.insert(Demangle(strSymbol));
    }
    EXPECT_THAT(setNames, UnorderedElementsAreArray(OFFERED));
}

TEST(ExportListTest, EverySymbolOfTheListIsFoundInTheLibrary)
{
    void* const pLibrary = dlopen(POOL_LIBRARY, RTLD_NOW);
    ASSERT_NE(nullptr, pLibrary) << dlerror();
    const std::vector<std::string> vecSymbols = ReadSymbols();
    EXPECT_FALSE(vecSymbols.empty());
    for (const std::string& strSymbol : vecSymbols)
    {
        EXPECT_NE(nullptr, dlsym(pLibrary, strSymbol.c_str())) << strSymbol;
    }
    // The library stays open: its registry lives as long as the process.
}
} // namespace
