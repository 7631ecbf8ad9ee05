#pragma once

#include "verify/schedules/core/Fiber.h"
#include "verify/schedules/core/LockTable.h"
#include "verify/schedules/core/Step.h"
#include "verify/schedules/core/StoreBuffer.h"
#include "verify/schedules/core/Strategy.h"

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

class CLS_Scheduler;

/// Random events of a schedule besides the choice of threads, its limits, and its callbacks.
struct ST_ScheduleOptions
{
    /// At each step, a wait for a condition ends spuriously with a probability of one in this number. 0:
    /// never.
    std::size_t m_uiSpuriousOneIn = 0;
    /// At each step, time passes with a probability of one in this number although a thread could go on, as
    /// if all threads were slow. 0: never.
    std::size_t m_uiEarlyOneIn = 0;
    /// Whether other threads may see stores late, except sequentially consistent ones.
    bool m_bLateStores = false;
    std::int64_t m_nsShortestSleep = 0; ///< shorter sleeps take this long
    std::size_t m_uiMostSteps = 200000;
    std::int64_t m_nsMostTime = 2000'000'000'000; ///< of virtual time
    bool m_bRequireNoBlocks = false;              ///< fail if memory is left at the end
    bool m_bTrace = false;                        ///< keep the steps
    std::function<void()> m_funBegin;             ///< called before each schedule
    /// Called at every step, while no thread runs. May fail the schedule.
    std::function<void(CLS_Scheduler&)> m_funObserver;
    /// Called with the number of each new thread and of the thread that created it.
    std::function<std::string(int, int)> m_funNameThread;
    /// Called at the end of the schedule or at its failure. The object may be destroyed.
    std::function<std::string(const void*)> m_funNameObject;
};

/// Runs a program of several threads one step at a time.
///
/// Steps are locks, waits, notifications, sleeps, starts, joins and atomic accesses. At each step, a strategy
/// decides which thread goes on.
///
/// Time is virtual, and passes when all threads wait. So a loop that reads the clock must sleep. If it only
/// yields, time stands still and the schedule ends as a livelock.
///
/// The threads are fibers of one thread of the system. They call this class in two ways:
/// - through functions that replace the system's (LockCalls.cpp and others);
/// - through hooks for every access to memory (AtomicHooks.cpp).
class CLS_Scheduler
{
public:
    CLS_Scheduler(CLS_Strategy& _clsStrategy, ST_ScheduleOptions _stOptions);
    ~CLS_Scheduler();
    CLS_Scheduler(const CLS_Scheduler&) = delete;
    CLS_Scheduler& operator=(const CLS_Scheduler&) = delete;

    /// Runs one schedule of _funBody and the threads that it starts, until all end or one fails.
    ///
    /// After a failure, the threads never continue, and the objects that they own are lost.
    ST_Outcome Run(std::uint64_t _uiSeed, const std::function<void()>& _funBody);

    /// The scheduler of the calling code; null outside of a schedule, and for the scheduler's own code.
    static CLS_Scheduler* GetActive() { return s_pActive; }

    /// Marks code as the scheduler's own: it takes no steps, and its memory is not tracked.
    class CLS_Inside
    {
    public:
        CLS_Inside() : m_pBefore(s_pActive) { s_pActive = nullptr; }
        ~CLS_Inside() { s_pActive = m_pBefore; }
        CLS_Inside(const CLS_Inside&) = delete;
        CLS_Inside& operator=(const CLS_Inside&) = delete;

    private:
        CLS_Scheduler* const m_pBefore;
    };

    /// Announces a step that waits for nothing: a yield, a fence or an atomic access. The calling thread
    /// takes the step after the return.
    void Reach(n_Step _iStep, const void* _pWord);
    /// Makes the calling thread's late stores visible.
    void ShowStores();
    CLS_StoreBuffer& GetStores() { return GetCurrent().m_clsStores; }
    bool HasSlowThreads() const { return m_stOptions.m_uiEarlyOneIn > 0; }
    bool HasLateStores() const { return m_stOptions.m_bLateStores; }

    void Lock(const void* _pLock);
    void LockShared(const void* _pLock);
    bool TryLock(const void* _pLock, bool _bShared);
    void Unlock(const void* _pLock);

    /// Releases the lock, waits, and takes the lock again. False if the wait ended at _nsUntil.
    bool WaitForCondition(const void* _pCondition, const void* _pLock, std::int64_t _nsUntil);
    void Notify(const void* _pCondition, bool _bAll);
    /// Fails if a thread waits for the condition. Not a step.
    void DestroyCondition(const void* _pCondition);

    /// Begins and ends an initialisation that is done once per process.
    ///
    /// They are a step only for a thread that must wait for another one. So the first schedule of a process,
    /// which contains these initialisations, is as long as the others.
    void BeginOnce(const void* _pGuard);
    void EndOnce(const void* _pGuard);

    void SleepUntil(std::int64_t _nsUntil);
    void SleepFor(std::int64_t _nsLength);
    void Yield() { Reach(STEP_YIELD, nullptr); }
    /// Virtual time since the beginning of the schedule, in nanoseconds.
    std::int64_t GetTime() const { return m_nsNow; }

    /// A number below _uiCount that the strategy chooses.
    std::size_t Choose(std::size_t _uiCount) { return m_clsStrategy.Draw(_uiCount); }

    /// The next number of the random device. The numbers differ, but are the same in each schedule.
    std::uint32_t DrawRandom() { return ++m_uiRandom * 2654435761U; }

    using ThreadBody = void* (*)(void*);
    int CreateThread(ThreadBody _funBody, void* _pArgument);
    /// False if there is no such thread to join.
    bool JoinThread(int _iThread, void** _pResult);
    /// False if there is no such thread to detach.
    bool DetachThread(int _iThread);
    int GetCurrentNumber() const { return m_iCurrent; }
    /// The number of threads in this schedule, including ended ones. The next thread gets it as its number.
    int CountAllThreads() const { return static_cast<int>(m_uiThreads); }

    /// Ends the schedule as failed, with this text. Does not return.
    [[noreturn]] void Fail(const std::string& _strFailure);

    /// Does the same for the running schedule. Returns if there is none.
    static void FailRunning(const std::string& _strFailure);

    // For observers.
    const std::string& GetThreadName(int _iThread) const;
    std::size_t CountThreads() const; ///< without ended ones
    bool IsLockFree(const void* _pLock) const { return m_clsLocks.IsFree(_pLock); }
    std::size_t CountSteps() const { return m_stOutcome.m_uiSteps; }
    const CLS_LockTable& GetLocks() const { return m_clsLocks; }

    static constexpr std::int64_t NEVER = std::numeric_limits<std::int64_t>::max();

private:
    enum n_WaitFor
    {
        WAIT_NOTHING,
        WAIT_LOCK,
        WAIT_SHARED,
        WAIT_CONDITION,
        WAIT_TIME,
        WAIT_THREAD,
        WAIT_ENDED
    };

    struct ST_Thread
    {
        CLS_Fiber m_clsFiber;
        std::string m_strName;
        ThreadBody m_funBody = nullptr;
        void* m_pArgument = nullptr;
        void* m_pResult = nullptr;
        bool m_bDetached = false;
        bool m_bJoined = false;

        n_Step m_iStep = STEP_BEGIN; ///< its next step
        const void* m_pObject = nullptr;
        n_WaitFor m_iWaitFor = WAIT_NOTHING;
        std::int64_t m_nsUntil = NEVER;
        const void* m_pLock = nullptr; ///< the lock that it waits for, also after a wait for a condition
        bool m_bTimedOut = false;
        int m_iJoined = -1;
        CLS_StoreBuffer m_clsStores;
    };

    ST_Thread& GetCurrent() { return *m_vecThreads[static_cast<std::size_t>(m_iCurrent)]; }
    void Begin(std::uint64_t _uiSeed);
    void End();
    ST_Thread& AddThread(int _iMaker);
    static void RunFiber();
    void EndThread();
    bool IsJoinable(int _iThread) const; ///< whether it can be joined and detached

    void WaitFor(n_Step _iStep, const void* _pObject, n_WaitFor _iWaitFor);
    void WaitAt(n_Step _iStep, const void* _pObject, n_WaitFor _iWaitFor, const char* _szAccess);
    void GoOn();
    int ChooseNext();
    void CollectReady();
    bool IsReady(const ST_Thread& _stThread) const;
    bool PassTime();
    void LeaveToChance();
    void WakeForNoReason();
    std::vector<ST_Thread*> FindWaiting(const void* _pCondition);
    static void StopWaiting(ST_Thread& _stThread);
    void NoteStep(int _iThread);
    std::uint64_t GetNumber(const void* _pObject) const;
    void CheckLimits();
    std::string NameSpecial(const ST_Thread& _stThread) const;
    std::string NameObject(const void* _pObject) const;
    void NotePositions();

    static CLS_Scheduler* s_pActive;
    static CLS_Scheduler* s_pRunning; ///< new fibers read it

    CLS_Strategy& m_clsStrategy;
    const ST_ScheduleOptions m_stOptions;
    CLS_Fiber m_clsOutside;
    std::vector<std::unique_ptr<ST_Thread>> m_vecThreads; ///< of this schedule, then unused ones to reuse
    std::size_t m_uiThreads = 0;                          ///< the number of threads of this schedule
    std::size_t m_uiEnded = 0;
    int m_iCurrent = 0;
    std::vector<int> m_vecReady;
    std::int64_t m_nsNow = 0;
    std::uint32_t m_uiRandom = 0;
    CLS_LockTable m_clsLocks;
    ST_Outcome m_stOutcome;
};
