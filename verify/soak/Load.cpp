#include "verify/soak/Load.h"

#include "QuenPlugins/ZelTaskPool/TaskPoolExports.h"
#include "tests/support/Waiting.h"

#include <array>

namespace
{
constexpr int TASKS_PER_BATCH = 100;
constexpr std::size_t MOST_OWNERS = 50;

/// Every fourth owner removes its tasks as soon as they are queued.
constexpr std::size_t BATCHES_PER_HASTY_OWNER = 4;

/// Loop intervals, in milliseconds: 200, 201 ... 2199 and again from the start.
constexpr std::size_t SHORTEST_INTERVAL = 200;
constexpr std::size_t INTERVALS = 2000;

/// The size of a callable's captures, so that a lost callable is visible.
struct ST_Load
{
    CLS_LiveCopy m_clsCopy;
    std::array<char, 64> m_arrWeight;
};
} // namespace

CLS_Submitter::CLS_Submitter(ST_Totals& _stTotals, int _iLoops) : m_stTotals(_stTotals)
{
    for (int i = 0; i < _iLoops; ++i)
    {
        m_vecLoopIds.push_back(AddLoop());
    }
}

void CLS_Submitter::RunRound(std::int64_t _iTasks, std::chrono::milliseconds _msLength)
{
    const std::int64_t iBatches = (_iTasks + TASKS_PER_BATCH - 1) / TASKS_PER_BATCH;
    const auto tpStart = std::chrono::steady_clock::now();
    for (std::int64_t i = 0; i < iBatches; ++i)
    {
        std::this_thread::sleep_until(tpStart + _msLength * i / iBatches);
        RunBatch();
    }
    std::this_thread::sleep_until(tpStart + _msLength);
    while (!m_deqOwners.empty())
    {
        RemoveOldestOwner();
    }
}

void CLS_Submitter::RunBatch()
{
    const Owner pOwner = SubmitBatch();
    if (++m_uiBatches % BATCHES_PER_HASTY_OWNER == 0)
    {
        RemoveTmpTask(pOwner.get(), "hasty owner");
    }
    else
    {
        m_deqOwners.push_back(pOwner);
    }
    if (m_deqOwners.size() > MOST_OWNERS)
    {
        RemoveOldestOwner();
    }
    ReplaceLoop();
}

CLS_Submitter::Owner CLS_Submitter::SubmitBatch()
{
    Owner pOwner = std::make_shared<ST_Owner>();
    ++m_stTotals.m_iOwners;
    for (int i = 0; i < TASKS_PER_BATCH; ++i)
    {
        const auto funTask =
            [&stTotals = m_stTotals, pOwner, stLoad = ST_Load{CLS_LiveCopy(m_stTotals.m_pLiveCopies), {}}]
        {
            ++stTotals.m_iRuns;
            ++pOwner->m_iRuns;
        };
        m_stTotals.m_iFailures += AddTmpTask(funTask, pOwner.get(), "soak") ? 0 : 1;
    }
    m_stTotals.m_iSubmitted += TASKS_PER_BATCH;
    return pOwner;
}

/// First waits for the owner's tasks. None was removed, so all of them must run.
void CLS_Submitter::RemoveOldestOwner()
{
    const Owner pOwner = m_deqOwners.front();
    m_deqOwners.pop_front();
    if (!WaitUntil([&pOwner] { return pOwner->m_iRuns == TASKS_PER_BATCH; }))
    {
        ++m_stTotals.m_iFailures;
    }
    RemoveTmpTask(pOwner.get(), "owner");
}

std::string CLS_Submitter::AddLoop()
{
    const auto funTask = [&stTotals = m_stTotals, stLoad = ST_Load{CLS_LiveCopy(m_stTotals.m_pLiveCopies),
                                                                   {}}] { ++stTotals.m_iLoopRuns; };
    std::string strTaskId;
    const std::size_t uiInterval = SHORTEST_INTERVAL + m_uiLoops++ % INTERVALS;
    AddLoopTask(funTask, static_cast<int>(uiInterval), strTaskId, "soak loop");
    return strTaskId;
}

void CLS_Submitter::ReplaceLoop()
{
    if (!m_vecLoopIds.empty())
    {
        std::string& strTaskId = m_vecLoopIds[m_uiBatches % m_vecLoopIds.size()];
        RemoveTask(strTaskId, "soak loop");
        strTaskId = AddLoop();
    }
}

void CLS_Submitter::RemoveLoops()
{
    for (const std::string& strTaskId : m_vecLoopIds)
    {
        RemoveTask(strTaskId, "soak loop");
    }
    m_vecLoopIds.clear();
}
