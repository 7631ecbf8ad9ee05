// Scenarios of a host that uses the pool through the host kit.

#include "QuenHost/CLS_Debounce.h"
#include "QuenHost/CLS_Delivery.h"
#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/CLS_Steps.h"
#include "QuenHost/CLS_TaskOwner.h"
#include "QuenHost/SubmitAndDeliver.h"
#include "verify/schedules/pool/Marks.h"
#include "verify/schedules/pool/Names.h"
#include "verify/schedules/pool/Scenarios.h"
#include "verify/schedules/pool/World.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

namespace
{
constexpr const char* RECORD_SWEPT = "a record is removed while the scope exists";
constexpr const char* DELIVERED = "a result is delivered";
constexpr const char* DELIVERY_FORESTALLED = "a delivery is prevented";
constexpr const char* STEP_REFUSED = "a step ends after its removal";
constexpr const char* TASK_HELD = "a task waits for its owner's limit";
constexpr const char* OLD_RUN_COUNTED = "a run that a removal left delays a task";
constexpr const char* TRIGGER_MET_RUN = "a trigger meets a run";
constexpr const char* TRIGGER_WAITED = "a trigger arrives during the quiet time";

/// A scope with a pool of its own. The pool ends with the scope and leaves nothing.
class CLS_KitWorld
{
public:
    CLS_KitWorld()
    {
        const Names::CLS_ServiceScope clsScope;
        m_clsPool.emplace(CLS_PoolLibrary::OpenLinked());
    }

    const CLS_PoolScope& GetPool() const { return *m_clsPool; }

    /// Submits a one-shot task that must begin at once.
    static void Submit(CLS_TaskOwner& _clsOwner, ST_Job& _stJob)
    {
        ++_stJob.m_iQueued;
        _stJob.m_nsQueued = CLS_World::GetTime();
        Require(_clsOwner.Submit(CLS_World::MakeCallable(_stJob), _stJob.m_strName),
                "the kit refuses a task");
    }

    static std::size_t CountRecords()
    {
        const std::shared_lock<std::shared_mutex> lock(CLS_Task::m_smTaskDataLock);
        return CLS_Task::m_mapTaskData.size();
    }

    void End()
    {
        m_clsPool.reset();
        Require(CLS_QuenTaskPool::m_pInstance == nullptr, "the pool survives the scope");
        CLS_World::RequireTimely(CountRecords() == 0, "the scope leaves records");
        CLS_World::RequireNoOtherThread();
    }

private:
    std::optional<CLS_PoolScope> m_clsPool;
};

/// A thread of the host that runs the callables posted to it.
class CLS_KitHost
{
public:
    CLS_HostThread GetThread()
    {
        return CLS_HostThread(
            [this](std::function<void()> _funCall)
            {
                const std::lock_guard<std::mutex> lock(m_mtxCalls);
                m_lstCalls.push_back(std::move(_funCall));
                m_cvCalls.notify_one();
            });
    }

    /// Runs the remaining callables, and ends the thread.
    void End()
    {
        {
            const std::lock_guard<std::mutex> lock(m_mtxCalls);
            m_bEnd = true;
            m_cvCalls.notify_one();
        }
        m_thrHost.join();
    }

private:
    void Run()
    {
        std::unique_lock<std::mutex> lock(m_mtxCalls);
        while (!m_bEnd || !m_lstCalls.empty())
        {
            m_cvCalls.wait(lock, [this] { return m_bEnd || !m_lstCalls.empty(); });
            if (!m_lstCalls.empty())
            {
                std::function<void()> funCall = std::move(m_lstCalls.front());
                m_lstCalls.pop_front();
                lock.unlock();
                funCall();
                funCall = nullptr;
                lock.lock();
            }
        }
    }

    std::mutex m_mtxCalls; ///< guards the members below
    std::condition_variable m_cvCalls;
    std::deque<std::function<void()>> m_lstCalls;
    bool m_bEnd = false;
    std::thread m_thrHost{[this] { Run(); }};
};

/// The deliveries of one owner. Their callable asserts that none begins after a removal.
struct ST_Deliveries
{
    std::atomic<int> m_iBegun{0};
    std::atomic<int> m_iEnded{0};
    std::atomic<bool> m_bGone{false}; ///< the owner's tasks were removed
    std::shared_ptr<int> m_pCaptured = std::make_shared<int>();

    std::function<void()> MakeCallable()
    {
        return [this, pCaptured = m_pCaptured]
        {
            Require(!m_bGone, "a delivery begins after its removal");
            ++m_iBegun;
            CLS_World::LetOthersRun();
            ++m_iEnded;
        };
    }

    /// Call this when the removal has returned; _bAllEnded is its result.
    void RequireOver(bool _bAllEnded)
    {
        CLS_World::RequireTimely(_bAllEnded, "the removal gives up");
        m_bGone = _bAllEnded;
        CLS_World::RequireTimely(m_iBegun == m_iEnded, "a delivery goes on after its removal");
        CLS_World::RequireTimely(m_pCaptured.use_count() == 1,
                                 "what a delivery captured outlives its removal");
        Marks::Reach(m_iBegun > 0 ? DELIVERED : DELIVERY_FORESTALLED);
    }
};

/// Removes tasks. The removal takes no longer than the runs in progress.
template <typename T_Remove>
void Remove(T_Remove _funRemove, const std::vector<ST_Job*>& _vecJobs)
{
    const auto nsBegin = CLS_World::GetTime();
    std::chrono::nanoseconds nsMost = 0ns;
    for (ST_Job* const pJob : _vecJobs)
    {
        pJob->m_nsLastBeginning = nsBegin;
        // The removal also waits for a run that is about to begin.
        nsMost = std::max(nsMost, pJob->m_iEnded < pJob->m_iQueued ? pJob->m_nsLength : 0ns);
        nsMost = pJob->m_iInterval >= 0 ? pJob->m_nsLength : nsMost;
    }
    CLS_World::RequireTimely(_funRemove(), "the removal says that something runs");
    for (ST_Job* const pJob : _vecJobs)
    {
        pJob->m_bRemoved = true;
        CLS_World::RequireTimely(pJob->m_iBegun == pJob->m_iEnded, pJob->m_strName + " still runs");
        CLS_World::RequireTimely(pJob->m_bDestroyed,
                                 "the callable of " + pJob->m_strName + " outlives its removal");
        Marks::Reach(pJob->m_nsEnded > nsBegin ? CLS_World::RUN_MET
                     : pJob->m_iBegun == 0     ? CLS_World::RUN_FORESTALLED
                                               : "a run had ended");
    }
    const auto nsTaken = CLS_World::GetTime() - nsBegin;
    CLS_World::RequireTimely(nsTaken <= nsMost, "the removal takes " + std::to_string(nsTaken / 1us) +
                                                    " us, more than " + std::to_string(nsMost / 1us));
}

/// One or two threads remove an owner's tasks at any stage of the tasks.
void KitRemoveOwner()
{
    CLS_World clsWorld;
    CLS_KitWorld clsKit;
    {
        CLS_TaskOwner clsOwner(clsKit.GetPool(), "owner");
        ST_Job& stShort = clsWorld.MakeJob("A");
        ST_Job& stLong = clsWorld.MakeJob("B", 5ms);
        CLS_KitWorld::Submit(clsOwner, stShort);
        CLS_KitWorld::Submit(clsOwner, stLong);
        CLS_World::LetOthersRun();
        std::this_thread::sleep_for(2ms * CLS_World::Choose(4));
        std::optional<std::thread> thrOther;
        if (CLS_World::Choose(2) == 1)
        {
            thrOther.emplace(
                [&] { CLS_World::RequireTimely(clsOwner.RemoveTasks(), "the other removal gives up"); });
        }
        Remove([&] { return clsOwner.RemoveTasks(); }, {&stShort, &stLong});
        if (thrOther)
        {
            thrOther->join();
        }
        ST_Job& stNext = clsWorld.MakeJob("C");
        CLS_KitWorld::Submit(clsOwner, stNext);
        clsWorld.Settle();
        Require(stNext.m_iEnded == 1, "the owner's next task does not run");
    }
    clsKit.End();
}

/// A task submits another one for its owner during its removal. The run polls its token.
void KitRemoveOwnerWhoseTaskSubmits()
{
    CLS_World clsWorld;
    CLS_KitWorld clsKit;
    {
        CLS_TaskOwner clsOwner(clsKit.GetPool(), "owner", [](const ST_TaskFailure&) {});
        ST_Job& stSecond = clsWorld.MakeJob("B");
        std::atomic<bool> bStarted{false};
        std::atomic<bool> bRemoving{false};
        const auto funFirst = [&](const CLS_StopToken& _clsToken)
        {
            bStarted = true;
            CLS_World::RequireTimely(!_clsToken.SleepFor(1000s), "the token does not wake the task");
            const bool bTaken = clsOwner.Submit(CLS_World::MakeCallable(stSecond), "B");
            Require(!bTaken, "a task is taken during the removal");
        };
        Require(clsOwner.Submit(funFirst, "A"), "the kit refuses a task");
        while (!bStarted)
        {
            std::this_thread::sleep_for(1ms);
        }
        CLS_World::LetOthersRun();
        const auto nsBegin = CLS_World::GetTime();
        CLS_World::RequireTimely(clsOwner.RemoveTasks(), "the removal gives up");
        CLS_World::RequireTimely(CLS_World::GetTime() == nsBegin, "the removal waits for the sleep");
        stSecond.m_bRemoved = true;
        std::this_thread::sleep_for(5ms);
    }
    clsKit.End();
}

/// Two removals of a loop task meet. One is by another thread or by the task's own run, and the other is by
/// this thread. When this thread's removal returns, nothing is left of the task.
void KitRemoveLoopTwice()
{
    CLS_World clsWorld;
    CLS_KitWorld clsKit;
    {
        ST_Job& stLoop = clsWorld.MakeJob("A", 5ms);
        stLoop.m_iInterval = 1000;
        const bool bByItself = CLS_World::Choose(2) == 1;
        std::optional<CLS_LoopTask> optLoop;
        std::atomic<bool> bMade{false};
        stLoop.m_funWork = [&]
        {
            if (bByItself && bMade)
            {
                Marks::Reach("a run removes its task");
                CLS_World::RequireTimely(optLoop->Remove(), "the run's removal gives up");
                CLS_World::LetOthersRun();
            }
        };
        optLoop.emplace(clsKit.GetPool(), CLS_World::MakeCallable(stLoop), 1000, "A");
        bMade = true;
        std::optional<std::thread> thrOther;
        if (!bByItself)
        {
            thrOther.emplace([&]
                             { CLS_World::RequireTimely(optLoop->Remove(), "the other removal gives up"); });
        }
        std::this_thread::sleep_for(1ms + 4ms * CLS_World::Choose(2));
        CLS_World::LetOthersRun();
        Remove([&] { return optLoop->Remove(); }, {&stLoop});
        if (thrOther)
        {
            thrOther->join();
        }
    }
    clsKit.End();
}

/// Removes a loop task at any moment up to shortly after its second run.
void KitRemoveLoop()
{
    CLS_World clsWorld;
    CLS_KitWorld clsKit;
    {
        ST_Job& stLoop = clsWorld.MakeJob("A", 5ms);
        stLoop.m_iInterval = 20;
        CLS_LoopTask clsLoop(clsKit.GetPool(), CLS_World::MakeCallable(stLoop), 20, "A");
        Require(clsLoop.IsAdded(), "the kit refuses a loop task");
        std::this_thread::sleep_for(5ms * CLS_World::Choose(12) + 2ms * CLS_World::Choose(2));
        CLS_World::LetOthersRun();
        Remove([&] { return clsLoop.Remove(); }, {&stLoop});
        std::this_thread::sleep_for(60ms);
    }
    clsKit.End();
}

/// Two threads submit bursts of tasks, and each task runs once. The heartbeat removes the records of workers
/// that have ended.
void KitKeepsFewRecords()
{
    CLS_World clsWorld;
    CLS_KitWorld clsKit;
    {
        CLS_TaskOwner clsOwner(clsKit.GetPool(), "owner");
        const auto funSubmit = [&](const std::string& _strName, std::chrono::nanoseconds _nsLength)
        {
            ST_Job& stJob = clsWorld.MakeJob(_strName, _nsLength);
            stJob.m_bAtOnce = false;
            CLS_KitWorld::Submit(clsOwner, stJob);
        };
        funSubmit("A", 20ms);
        funSubmit("B", 0ns);
        ST_Job& stOther = clsWorld.MakeJob("C", 7ms);
        stOther.m_bAtOnce = false;
        std::thread thrOther([&] { CLS_KitWorld::Submit(clsOwner, stOther); });
        funSubmit("D", 0ns);
        thrOther.join();
        std::this_thread::sleep_for(200ms);
        clsWorld.RequireAllRan();
        // Idle workers end after five seconds. The next heartbeat removes their records.
        std::this_thread::sleep_for(8s);
        CLS_World::RequireTimely(CLS_KitWorld::CountRecords() <= 1,
                                 "records are left besides the heartbeat's");
        Marks::Reach(RECORD_SWEPT);
        funSubmit("E", 0ns);
        std::this_thread::sleep_for(200ms);
        clsWorld.RequireAllRan();
    }
    clsKit.End();
}

/// The scope ends at any stage of its workers. Then no worker is in a call of the pool, and none begins one.
void KitEndsAtEveryMoment()
{
    CLS_World clsWorld;
    CLS_KitWorld clsKit;
    {
        CLS_TaskOwner clsOwner(clsKit.GetPool(), "owner");
        ST_Job& stFirst = clsWorld.MakeJob("A", 20ms * CLS_World::Choose(2));
        ST_Job& stSecond = clsWorld.MakeJob("B");
        stFirst.m_bAtOnce = stSecond.m_bAtOnce = false;
        CLS_KitWorld::Submit(clsOwner, stFirst);
        CLS_KitWorld::Submit(clsOwner, stSecond);
        // The heartbeat runs every second, and an idle worker ends after five.
        std::this_thread::sleep_for(CLS_World::Choose(2) == 0 ? 0ms : 5000ms + 10ms * CLS_World::Choose(10));
        CLS_World::LetOthersRun();
    }
    clsKit.End();
}

/// A result is delivered to the host's thread while its owner's tasks are removed.
void KitDeliverAgainstRemoval()
{
    CLS_World clsWorld;
    CLS_KitWorld clsKit;
    CLS_KitHost clsHost;
    ST_Deliveries stDeliveries;
    {
        CLS_TaskOwner clsOwner(clsKit.GetPool(), "owner");
        Require(SubmitAndDeliver(
                    clsOwner, clsHost.GetThread(), [] {}, stDeliveries.MakeCallable(), "A"),
                "the kit refuses a task");
        std::this_thread::sleep_for(1ms * CLS_World::Choose(2));
        CLS_World::LetOthersRun();
        stDeliveries.RequireOver(clsOwner.RemoveTasks());
    }
    clsHost.End();
    clsKit.End();
}

/// A thread outside of the pool posts to the host while the owner's tasks are removed.
void KitPostAgainstRemoval()
{
    CLS_World clsWorld;
    CLS_KitWorld clsKit;
    CLS_KitHost clsHost;
    ST_Deliveries stDeliveries;
    {
        CLS_TaskOwner clsOwner(clsKit.GetPool(), "owner");
        const CLS_Delivery clsDelivery(clsOwner, clsHost.GetThread());
        std::atomic<bool> bAllEnded{false};
        std::thread thrNews(
            [&]
            {
                const bool bGone = bAllEnded;
                auto funDeliver = stDeliveries.MakeCallable();
                const bool bPosted = clsDelivery.Post(std::move(funDeliver), "news");
                Require(!bGone || !bPosted, "a delivery is taken after the removal");
            });
        CLS_World::LetOthersRun();
        bAllEnded = clsOwner.RemoveTasks();
        CLS_World::RequireTimely(bAllEnded, "the removal gives up");
        stDeliveries.m_bGone = bAllEnded.load();
        thrNews.join();
        stDeliveries.RequireOver(clsOwner.RemoveTasks());
    }
    clsHost.End();
    clsKit.End();
}

/// A removal that does not wait meets the second of two steps.
void KitContinueAgainstRemoval()
{
    CLS_World clsWorld;
    CLS_KitWorld clsKit;
    {
        std::atomic<bool> bGone{false};
        std::atomic<bool> bFirstOutlasts{false};
        const auto pCaptured = std::make_shared<int>();
        {
            CLS_TaskOwner clsOwner(clsKit.GetPool(), "owner");
            const auto funFirst = [&]
            {
                std::this_thread::sleep_for(2ms);
                bFirstOutlasts = bGone.load();
            };
            const auto funSecond = [&, pCaptured]
            { Require(!bFirstOutlasts, "a step begins after its removal"); };
            Require(FirstStep(funFirst, "A").Then(funSecond, "B").Submit(clsOwner),
                    "the kit refuses the steps");
            std::this_thread::sleep_for(1ms * CLS_World::Choose(4));
            CLS_World::LetOthersRun();
            clsOwner.RemoveTasksLater();
            bGone = true;
            std::this_thread::sleep_for(20ms);
            if (bFirstOutlasts)
            {
                Marks::Reach(STEP_REFUSED);
            }
        }
        std::this_thread::sleep_for(20ms);
        CLS_World::RequireTimely(pCaptured.use_count() == 1, "what a step captured outlives it");
    }
    clsKit.End();
}

/// Two threads submit tasks of an owner with a limit, perhaps after a removal that leaves runs behind. The
/// number of running tasks never exceeds the limit. Each task that ends lets the next one start.
void KitKeepsTheLimit()
{
    constexpr int TASKS = 6;
    CLS_World clsWorld;
    CLS_KitWorld clsKit;
    {
        const int iLimit = 1 + CLS_World::Choose(2);
        const bool bRemoved = CLS_World::Choose(2) == 1;
        std::atomic<int> iRunning{0};
        std::atomic<int> iEnded{0};
        CLS_TaskOwner clsOwner(clsKit.GetPool(), "owner", ST_OwnerOptions{static_cast<unsigned>(iLimit)});
        const auto funTask = [&]
        {
            Require(++iRunning <= iLimit, "more tasks run than the owner's limit");
            std::this_thread::sleep_for(5ms);
            --iRunning;
            ++iEnded;
        };
        const auto funSubmit = [&]
        {
            for (int i = 0; i < TASKS / 2; ++i)
            {
                Require(clsOwner.Submit(funTask, "A"), "the kit refuses a task");
            }
        };
        if (bRemoved)
        {
            funSubmit();
            std::this_thread::sleep_for(1ms * CLS_World::Choose(2));
            CLS_World::LetOthersRun();
            clsOwner.RemoveTasksLater();
            Marks::Reach(iRunning > 0 ? OLD_RUN_COUNTED : "no task ran yet");
        }
        std::thread thrOther(funSubmit);
        funSubmit();
        thrOther.join();
        Marks::Reach(TASK_HELD);
        // The next heartbeat would start a task only after a second.
        std::this_thread::sleep_for(200ms);
        CLS_World::RequireTimely(iEnded >= TASKS, "a task that was held does not run");
    }
    clsKit.End();
}

/// A delayed task is removed at about the time when it is due. The owner's next task runs.
void KitRemoveLater()
{
    CLS_World clsWorld;
    CLS_KitWorld clsKit;
    {
        CLS_TaskOwner clsOwner(clsKit.GetPool(), "owner");
        const auto funSubmit = [&](ST_Job& _stJob)
        {
            _stJob.m_bAtOnce = false;
            ++_stJob.m_iQueued;
            Require(clsOwner.SubmitAfter(10ms, CLS_World::MakeCallable(_stJob), _stJob.m_strName),
                    "the kit refuses a task");
        };
        ST_Job& stFirst = clsWorld.MakeJob("A", 5ms);
        funSubmit(stFirst);
        std::this_thread::sleep_for(8ms + 1ms * CLS_World::Choose(12));
        CLS_World::LetOthersRun();
        Remove([&] { return clsOwner.RemoveTasks(); }, {&stFirst});
        ST_Job& stNext = clsWorld.MakeJob("B");
        funSubmit(stNext);
        std::this_thread::sleep_for(100ms);
        CLS_World::RequireTimely(stNext.m_iEnded == 1, "the owner's next task does not run");
    }
    clsKit.End();
}

/// Two threads trigger a debounce before, during and after its runs. A run begins after the last trigger.
void KitDebounceRunsTheLast()
{
    CLS_World clsWorld;
    CLS_KitWorld clsKit;
    {
        std::atomic<int> iTriggers{0};
        std::atomic<int> iSeen{0}; ///< triggers before the last run began
        std::atomic<int> iRunning{0};
        // A slow run is a failure, which the handler ignores.
        CLS_TaskOwner clsOwner(clsKit.GetPool(), "owner", [](const ST_TaskFailure&) {});
        const auto funTask = [&]
        {
            Require(++iRunning == 1, "two runs of a debounce overlap");
            iSeen = iTriggers.load();
            std::this_thread::sleep_for(5ms);
            --iRunning;
        };
        CLS_Debounce clsDebounce(clsOwner, 20ms, funTask, "A");
        const auto funTrigger = [&]
        {
            Marks::Reach(iRunning > 0 ? TRIGGER_MET_RUN : TRIGGER_WAITED);
            ++iTriggers;
            Require(clsDebounce.Trigger(), "the debounce refuses a trigger");
        };
        const auto funTriggerTwice = [&]
        {
            funTrigger();
            std::this_thread::sleep_for(10ms + 2ms * CLS_World::Choose(16));
            CLS_World::LetOthersRun();
            funTrigger();
        };
        std::thread thrOther(funTriggerTwice);
        funTriggerTwice();
        thrOther.join();
        std::this_thread::sleep_for(200ms);
        CLS_World::RequireTimely(iSeen == iTriggers, "the last trigger leads to no run");
    }
    clsKit.End();
}
} // namespace

Scenarios GetKitScenarios()
{
    const std::vector<std::string> vecBoth{CLS_World::RUN_MET, CLS_World::RUN_FORESTALLED};
    return {{"kit-remove-owner", KitRemoveOwner, vecBoth},
            {"kit-remove-owner-whose-task-submits", KitRemoveOwnerWhoseTaskSubmits, {}, false, 0ms, true},
            {"kit-remove-loop", KitRemoveLoop, vecBoth},
            {"kit-remove-loop-twice", KitRemoveLoopTwice, {CLS_World::RUN_MET, "a run removes its task"}},
            {"kit-deliver-against-removal", KitDeliverAgainstRemoval, {DELIVERED, DELIVERY_FORESTALLED}},
            {"kit-post-against-removal", KitPostAgainstRemoval, {DELIVERED, DELIVERY_FORESTALLED}},
            {"kit-continue-against-removal", KitContinueAgainstRemoval, {STEP_REFUSED}},
            {"kit-keeps-the-limit", KitKeepsTheLimit, {TASK_HELD, OLD_RUN_COUNTED}},
            {"kit-remove-later", KitRemoveLater, vecBoth},
            {"kit-debounce-runs-the-last", KitDebounceRunsTheLast, {TRIGGER_MET_RUN, TRIGGER_WAITED}},
            {"kit-keeps-few-records", KitKeepsFewRecords, {RECORD_SWEPT}, false, 50ms, true},
            {"kit-ends-at-every-moment", KitEndsAtEveryMoment, {}, false, 50ms, true}};
}
