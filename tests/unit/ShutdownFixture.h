#pragma once

#include "tests/support/PoolView.h"
#include "tests/support/RecordMatchers.h"
#include "tests/support/RunGateView.h"
#include "tests/support/ThreadCount.h"
#include "tests/unit/PoolFixture.h"

#include <memory>
#include <string>
#include <vector>

/// A one-shot task that runs until m_clsMayEnd is opened. It is its own owner.
struct ST_HeldRun
{
    CLS_Gate m_clsStarted;
    CLS_Gate m_clsMayEnd;
    CLS_Gate m_clsOver; ///< the callable opens this last
    std::string m_strTaskId;
    std::string m_strParam; ///< the task's parameters as log records show them
};

/// Base of the shutdown's tests.
class CLS_ShutdownFixture : public CLS_PoolFixture
{
protected:
    using HeldRun = std::shared_ptr<ST_HeldRun>;

    /// Submits a task and waits until it runs. The task calls _funLast once m_clsMayEnd is open.
    static HeldRun StartHeldRun(CLS_QuenTaskPool& _clsPool, const std::function<void()>& _funLast = {})
    {
        const auto pRun = std::make_shared<ST_HeldRun>();
        ST_HeldRun* const pHeld = pRun.get();
        const auto funTask = [pRun, _funLast]
        {
            pRun->m_clsStarted.Open();
            EXPECT_TRUE(pRun->m_clsMayEnd.Wait());
            if (_funLast)
            {
                _funLast();
            }
            pRun->m_clsOver.Open();
        };
        EXPECT_TRUE(_clsPool.AddTmpTask(funTask, pHeld, "held"));
        EXPECT_TRUE(pHeld->m_clsStarted.Wait());
        const std::lock_guard<std::mutex> lock(PoolView::GetOwnerLock(_clsPool));
        pHeld->m_strTaskId = PoolView::GetOwnerLists(_clsPool).at(pHeld).front();
        pHeld->m_strParam = MakeParamText(pHeld->m_strTaskId, "held");
        return pRun;
    }

    /// Lets a run end and waits until its task is idle.
    static void EndHeldRun(const HeldRun& _pRun)
    {
        _pRun->m_clsMayEnd.Open();
        EXPECT_TRUE(_pRun->m_clsOver.Wait());
        EXPECT_TRUE(WaitUntil(
            [&]
            {
                const auto pTask = CLS_Task::GetTask(_pRun->m_strTaskId).lock();
                return !pTask || pTask->GetTaskStatus() == TASK_STATUS_IDLE;
            }));
    }

    /// Runs a task to its end, and waits until its worker is idle.
    static void RunShortTask(CLS_QuenTaskPool& _clsPool)
    {
        CLS_Gate clsOver;
        ASSERT_TRUE(_clsPool.AddTmpTask([&clsOver] { clsOver.Open(); }, &clsOver, "short"));
        ASSERT_TRUE(clsOver.Wait());
        ASSERT_TRUE(WaitUntil(
            [&] {
                return GetIdleOrder(_clsPool).size() == static_cast<std::size_t>(_clsPool.GetTaskThreadNum());
            }));
        // A run that ends before its owner is noted leaves the entry behind.
        _clsPool.RemoveTmpTask(&clsOver, "short");
    }

    static std::map<CLS_TaskThread*, std::string> CopyWorkers(CLS_QuenTaskPool& _clsPool)
    {
        const std::shared_lock<std::shared_mutex> lock(PoolView::GetWorkerLock(_clsPool));
        return PoolView::GetWorkers(_clsPool);
    }

    /// The worker to which a task is bound; null if there is none.
    static CLS_TaskThread* FindWorker(CLS_QuenTaskPool& _clsPool, const std::string& _strTaskId)
    {
        for (const auto& [pThread, strTaskId] : CopyWorkers(_clsPool))
        {
            if (strTaskId == _strTaskId)
            {
                return pThread;
            }
        }
        return nullptr;
    }

    /// For a CLS_FastSleep: makes a poll of Stop last 45 ms, so that thirty polls outlast a short run.
    static void SlowPollsDown(const ST_Sleep& _stSleep)
    {
        if (_stSleep.m_msAsked == CLS_Task::STOP_POLL)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(45));
        }
    }

    /// Whether the shutdown closed the worker's gate.
    static bool IsGateClosed(CLS_TaskThread& _clsThread)
    {
        return RunGateView::IsClosed(_clsThread.GetRunGate());
    }

    /// The log records of UnInit.
    static auto IsBegin() { return IsPoolRecord(2, "UnInit", "----- TaskPool UnInit begin -----"); }
    static auto IsStart() { return IsPoolRecord(2, "UnInit", "----- TaskPool m_mapAllThreads start -----"); }
    static auto IsEnd() { return IsPoolRecord(2, "UnInit", "----- TaskPool UnInit end -----"); }
    static auto IsError() { return IsPoolRecord(3, "UnInit", "UnInit error "); }

    /// The log record of Stop for a run. _iNumber is the number of sleeps plus one.
    static auto IsWaiting(const HeldRun& _pRun, int _iNumber)
    {
        return IsTaskRecord(2, "Stop",
                            "Stop Task waiting task info : [" + _pRun->m_strParam + "] " +
                                std::to_string(_iNumber));
    }
    static auto IsOvertime(const HeldRun& _pRun)
    {
        return IsTaskRecord(3, "Stop", "StopTask overtime task info : [" + _pRun->m_strParam + "]");
    }

    /// A thread that runs one of the test's functions. The destructor joins it.
    class CLS_Side
    {
    public:
        explicit CLS_Side(const std::function<void()>& _funSide)
            : m_thSide(
                  [this, _funSide]
                  {
                      _funSide();
                      m_clsReturned.Open();
                  })
        {
        }
        ~CLS_Side() { m_thSide.join(); }
        CLS_Side(const CLS_Side&) = delete;
        CLS_Side& operator=(const CLS_Side&) = delete;

        bool HasReturned() { return m_clsReturned.IsOpen(); }

        /// Whether the function is still running after a tenth of a second.
        bool IsStillRunning() { return !m_clsReturned.Wait(std::chrono::milliseconds(100)); }

        [[nodiscard]] bool Wait() { return m_clsReturned.Wait(); }

    private:
        CLS_Gate m_clsReturned;
        std::thread m_thSide;
    };
};

/// Counts the polls of Stop among the sleeps, and lets a test act after one of them.
class CLS_StopPolls
{
public:
    /// _funAct is called after the _iPoll-th poll, on the thread that polls.
    CLS_StopPolls(int _iPoll, const std::function<void()>& _funAct)
        : m_clsFastSleep(
              [this, _iPoll, _funAct](const ST_Sleep& _stSleep)
              {
                  if (_stSleep.m_msAsked == CLS_Task::STOP_POLL && ++m_iPolls == _iPoll)
                  {
                      _funAct();
                  }
              })
    {
    }

    /// The number of polls that the thread has made.
    int GetPolls(std::thread::id _idThread) const
    {
        int iPolls = 0;
        for (const ST_Sleep& stSleep : m_clsFastSleep.GetSleeps(_idThread))
        {
            iPolls += stSleep.m_msAsked == std::chrono::milliseconds(300) ? 1 : 0;
        }
        return iPolls;
    }

private:
    std::atomic<int> m_iPolls{0};
    CLS_FastSleep m_clsFastSleep;
};
