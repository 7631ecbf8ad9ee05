// Tasks that remove, stop and kill each other.

#include "tests/support/PoolView.h"
#include "tests/unit/PoolFixture.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <gmock/gmock.h>
#include <random>
#include <stdexcept>

namespace
{
using ::testing::IsEmpty;
using ::testing::SizeIs;

class PoolHostileTaskTest : public CLS_PoolFixture
{
protected:
    std::array<int, 3> m_arrOwners{}; ///< their addresses serve as owners
};

// Pins docs/limits.md, "Two tasks that remove each other".
TEST_F(PoolHostileTaskTest, TwoTasksThatRemoveEachOtherWaitTheirBoundsAndComplete)
{
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_Counter clsStarted;
    CLS_Counter clsCompleted;
    std::array<std::string, 2> arrTaskIds;
    std::array<std::atomic<std::thread::id>, 2> arrWorkers{};
    CLS_Gate clsKnown;
    const CLS_FastSleep clsFastSleep(
        [&](const ST_Sleep& _stSleep)
        {
            // Neither wait ends before the other one has begun.
            if (_stSleep.m_msAsked == CLS_Task::STOP_POLL)
            {
                EXPECT_TRUE(clsStarted.Wait(2));
            }
        });
    for (std::size_t i = 0; i < arrTaskIds.size(); ++i)
    {
        clsPool.AddLoopTask(
            [&, i]
            {
                EXPECT_TRUE(clsKnown.Wait());
                arrWorkers[i] = std::this_thread::get_id();
                clsStarted.Add();
                EXPECT_TRUE(clsStarted.Wait(2));
                RemoveTask(arrTaskIds[1 - i], "each other");
                clsCompleted.Add();
                EXPECT_TRUE(clsCompleted.Wait(2)); // runs until both waits have timed out
            },
            0, arrTaskIds[i], "call");
    }
    clsKnown.Open();
    EXPECT_TRUE(clsCompleted.Wait(2));
    EXPECT_TRUE(PoolView::WaitForAllIdle(clsPool));
    for (const std::atomic<std::thread::id>& idWorker : arrWorkers)
    {
        EXPECT_THAT(clsFastSleep.GetSleeps(idWorker), SizeIs(CLS_Task::STOP_POLLS));
    }
    EXPECT_THAT(PoolView::GetRegistered(), IsEmpty());
    EXPECT_THAT(PoolView::GetLoopTasks(clsPool), IsEmpty());
}

TEST_F(PoolHostileTaskTest, TaskMayRemoveEverythingThatIsQueuedBehindIt)
{
    CLS_QuenTaskPool& clsPool = MakeStillPool();
    const auto pCaptured = std::make_shared<int>();
    std::string strLoopId;
    ASSERT_TRUE(clsPool.AddTmpTask(
        [&]
        {
            RemoveTmpTask(&m_arrOwners[1], "first");
            KillTask(strLoopId, "first");
        },
        &m_arrOwners[0], "first"));
    for (int i = 0; i < 10; ++i)
    {
        ASSERT_TRUE(clsPool.AddTmpTask([pCaptured] { ADD_FAILURE(); }, &m_arrOwners[1], "behind"));
    }
    clsPool.AddLoopTask([pCaptured] { ADD_FAILURE(); }, 0, strLoopId, "behind");
    const std::vector<std::string> vecQueue = PoolView::GetQueue(clsPool);
    PoolView::ClearQueue(clsPool);
    clsPool.AddWaitingTasks(vecQueue.front());
    PoolView::RunDispatchPass(clsPool);
    ASSERT_TRUE(WaitForIdle(clsPool, 1));
    EXPECT_EQ(1, pCaptured.use_count());
    EXPECT_THAT(PoolView::GetRegistered(), ::testing::ElementsAre(vecQueue.front()));
}

/// The state that the tasks share: the known ids and the number of calls left.
class CLS_RandomCalls
{
public:
    explicit CLS_RandomCalls(int _iCalls) : m_iCallsLeft(_iCalls) {}

    /// The call that one run makes, and its target.
    class CLS_OneCall
    {
    public:
        explicit CLS_OneCall(CLS_RandomCalls& _clsCalls) : m_clsCalls(_clsCalls) { m_clsCalls.Begin(*this); }
        ~CLS_OneCall() { m_clsCalls.End(); }
        CLS_OneCall(const CLS_OneCall&) = delete;
        CLS_OneCall& operator=(const CLS_OneCall&) = delete;

        std::uint32_t m_uiKind = KINDS; ///< KINDS: no call is left
        std::uint32_t m_uiAim = 0;
        std::string m_strTaskId; ///< any known id; its task may have been removed

    private:
        CLS_RandomCalls& m_clsCalls;
    };

    void Note(const std::string& _strTaskId)
    {
        const std::lock_guard<std::mutex> lock(m_mtxCalls);
        m_vecTaskIds.push_back(_strTaskId);
    }

    /// Whether all calls are done. From then on, no task calls the pool.
    bool IsOver()
    {
        const std::lock_guard<std::mutex> lock(m_mtxCalls);
        return m_iCallsLeft == 0 && m_iInProgress == 0;
    }

private:
    static constexpr std::uint32_t KINDS = 8;

    void Begin(CLS_OneCall& _clsCall)
    {
        const std::lock_guard<std::mutex> lock(m_mtxCalls);
        ++m_iInProgress;
        if (m_iCallsLeft > 0)
        {
            --m_iCallsLeft;
            _clsCall.m_uiKind = static_cast<std::uint32_t>(m_rngCalls() % KINDS);
            _clsCall.m_uiAim = static_cast<std::uint32_t>(m_rngCalls());
            _clsCall.m_strTaskId = m_vecTaskIds.at(_clsCall.m_uiAim % m_vecTaskIds.size());
        }
    }

    void End()
    {
        const std::lock_guard<std::mutex> lock(m_mtxCalls);
        --m_iInProgress;
    }

    std::mutex m_mtxCalls; ///< guards everything below
    std::vector<std::string> m_vecTaskIds{"unknown"};
    int m_iCallsLeft;
    int m_iInProgress = 0;
    std::mt19937 m_rngCalls; // NOLINT(cert-msc51-cpp): the same numbers each time
};

// Pins docs/limits.md, "Tasks may use the pool".
TEST_F(PoolHostileTaskTest, TasksThatAddRemoveStopAndKillEachOtherLeaveNothingBehind)
{
    const auto pCaptured = std::make_shared<int>();
    CLS_QuenTaskPool& clsPool = MakePool();
    CLS_RandomCalls clsCalls(3000);
    std::function<void()> funCall;
    const auto funAddLoop = [&]
    {
        std::string strTaskId;
        clsPool.AddLoopTask([&funCall, pCaptured] { funCall(); }, 0, strTaskId, "hostile");
        clsCalls.Note(strTaskId);
    };
    funCall = [&]
    {
        const CLS_RandomCalls::CLS_OneCall clsCall(clsCalls);
        void* const pOwner = &m_arrOwners[clsCall.m_uiAim % m_arrOwners.size()];
        switch (clsCall.m_uiKind)
        {
        case 0:
        case 1:
            return funAddLoop();
        case 2:
        case 3:
            EXPECT_TRUE(clsPool.AddTmpTask([&funCall, pCaptured] { funCall(); }, pOwner, "hostile"));
            return;
        case 4:
            return clsPool.RemoveTask(clsCall.m_strTaskId, "hostile");
        case 5:
            return clsPool.KillTask(clsCall.m_strTaskId, "hostile");
        case 6:
            return clsPool.StopTask(clsCall.m_strTaskId);
        case 7:
            clsPool.RemoveTmpTask(pOwner, "hostile");
            throw std::runtime_error("hostile");
        default:
            return;
        }
    };
    {
        const CLS_FastSleep clsFastSleep; // many tasks remove themselves
        EXPECT_TRUE(WaitUntil(
            [&]
            {
                funAddLoop(); // the tasks may have removed each other down to the last one
                return clsCalls.IsOver();
            }));
    }
    EXPECT_LE(clsPool.GetTaskThreadNum(), 301);
    clsPool.UnInit();
    for (const std::string& strTaskId : PoolView::GetRegistered())
    {
        CLS_Task::DeleteTask(strTaskId);
    }
    EXPECT_EQ(1, pCaptured.use_count());
}
} // namespace
