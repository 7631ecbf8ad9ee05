#include "QuenInclude/CLS_LogBinding.h"
#include "verify/schedules/pool/Marks.h"
#include "verify/schedules/pool/Scenarios.h"
#include "verify/schedules/pool/World.h"

#include <set>

namespace
{
constexpr int THREADS = 3;
constexpr int RECORDS = 3; ///< of each thread
constexpr auto OPENING = 1ms;

/// One call of "PrintLog": the thread that made the call, the thread that made the log record, and its
/// number.
struct ST_Printed
{
    std::thread::id m_idThread;
    std::string m_strMaker;
    std::string m_strNumber;
};

std::vector<ST_Printed>* g_pPrinted = nullptr;

void Note(int, const char* _szMaker, const char*, int, const char*, const std::string& _strNumber)
{
    CLS_World::LetOthersRun();
    g_pPrinted->push_back({std::this_thread::get_id(), _szMaker, _strNumber});
    CLS_World::LetOthersRun();
}

/// Asserts that the log records of one thread arrived in their order.
void RequireAllOf(const std::vector<ST_Printed>& _vecPrinted, const std::string& _strMaker)
{
    int iNext = 0;
    for (const ST_Printed& stPrinted : _vecPrinted)
    {
        if (stPrinted.m_strMaker == _strMaker)
        {
            Require(stPrinted.m_strNumber == std::to_string(iNext++), "a record overtakes an earlier one");
        }
    }
    Require(iNext == RECORDS, "a record is lost");
}

/// Threads make log records while one of them opens the logging library, which takes a while.
void RecordsDuringTheOpening()
{
    std::vector<ST_Printed> vecPrinted;
    g_pPrinted = &vecPrinted;
    int iOpenings = 0;
    CLS_LogBinding clsBinding(
        [&iOpenings](const std::string&) -> CLS_LogBinding::Functions
        {
            ++iOpenings;
            std::this_thread::sleep_for(OPENING);
            return {{"PrintLog", reinterpret_cast<void*>(&Note)}};
        });
    int iSlow = 0; // calls that took time
    std::vector<std::thread> vecThreads;
    for (int i = 0; i < THREADS; ++i)
    {
        vecThreads.emplace_back(
            [&, strMaker = std::to_string(i)]
            {
                for (int j = 0; j < RECORDS; ++j)
                {
                    // Sleeps as long as the opening takes, or not at all.
                    std::this_thread::sleep_for(CLS_World::Choose(2) == 0 ? OPENING : 0ms);
                    const auto nsBegin = CLS_World::GetTime();
                    clsBinding.Emit({0, strMaker.c_str(), "", 0, "", std::to_string(j)});
                    iSlow += CLS_World::GetTime() == nsBegin ? 0 : 1;
                }
            });
    }
    for (std::thread& thrRecords : vecThreads)
    {
        thrRecords.join();
    }
    Require(iOpenings == 1, "the library is opened again");
    CLS_World::RequireTimely(iSlow == 1, "a record waits for the opening");
    for (int i = 0; i < THREADS; ++i)
    {
        RequireAllOf(vecPrinted, std::to_string(i));
    }
    std::set<std::thread::id> setThreads;
    for (const ST_Printed& stPrinted : vecPrinted)
    {
        setThreads.insert(stPrinted.m_idThread);
    }
    Marks::Reach(setThreads.size() == 1 ? "one thread hands all over" : "threads hand over their own");
}
} // namespace

Scenarios GetLogScenarios()
{
    return {{"records-during-the-opening",
             RecordsDuringTheOpening,
             {"one thread hands all over", "threads hand over their own"},
             true}};
}
