// A schedule from its beginning to its end: the choice of the next thread, and the time.

#include "verify/schedules/core/Scheduler.h"

#include "verify/schedules/core/Memory.h"

#include <algorithm>
#include <sys/single_threaded.h>
#include <utility>

namespace
{
/// At each step, the oldest late store of a thread becomes visible with a probability of one in this number.
constexpr std::size_t LATE_ONE_IN = 16;
} // namespace

CLS_Scheduler* CLS_Scheduler::s_pActive = nullptr;
CLS_Scheduler* CLS_Scheduler::s_pRunning = nullptr;

CLS_Scheduler::CLS_Scheduler(CLS_Strategy& _clsStrategy, ST_ScheduleOptions _stOptions)
    : m_clsStrategy(_clsStrategy), m_stOptions(std::move(_stOptions))
{
}

CLS_Scheduler::~CLS_Scheduler() = default;

ST_Outcome CLS_Scheduler::Run(std::uint64_t _uiSeed, const std::function<void()>& _funBody)
{
    Begin(_uiSeed);
    ST_Thread& stFirst = AddThread(-1);
    stFirst.m_funBody = [](void* _pBody) -> void*
    {
        (*static_cast<const std::function<void()>*>(_pBody))();
        return nullptr;
    };
    stFirst.m_pArgument = const_cast<std::function<void()>*>(&_funBody);
    stFirst.m_bDetached = true;
    NoteStep(0);
    stFirst.m_clsFiber.SwitchFrom(m_clsOutside);
    End();
    return std::move(m_stOutcome);
}

void CLS_Scheduler::Begin(std::uint64_t _uiSeed)
{
    m_stOutcome = {};
    m_uiThreads = 0;
    m_uiEnded = 0;
    m_nsNow = 0;
    m_uiRandom = 0;
    m_iCurrent = 0;
    m_clsLocks.Clear();
    Memory::Reset();
    if (m_stOptions.m_funBegin)
    {
        m_stOptions.m_funBegin();
    }
    m_clsStrategy.Begin(_uiSeed);
    // The C library does not know the fibers. The C++ library's reference counts are atomic only if it sees
    // threads.
    __libc_single_threaded = 0;
    s_pRunning = this;
}

void CLS_Scheduler::End()
{
    s_pActive = nullptr;
    s_pRunning = nullptr;
    for (ST_Step& stStep : m_stOutcome.m_vecTrace)
    {
        stStep.m_strObject += NameObject(stStep.m_pObject);
    }
    m_stOutcome.m_nsTime = m_nsNow;
    m_stOutcome.m_uiBlocks = Memory::CountBlocks();
    if (m_stOptions.m_bRequireNoBlocks && m_stOutcome.m_strFailure.empty() && m_stOutcome.m_uiBlocks > 0)
    {
        m_stOutcome.m_strFailure = std::to_string(m_stOutcome.m_uiBlocks) + " blocks of memory are left";
    }
}

CLS_Scheduler::ST_Thread& CLS_Scheduler::AddThread(int _iMaker)
{
    if (m_uiThreads == m_vecThreads.size())
    {
        m_vecThreads.push_back(std::make_unique<ST_Thread>());
    }
    const auto iThread = static_cast<int>(m_uiThreads);
    ST_Thread& stThread = *m_vecThreads[m_uiThreads++];
    stThread.m_strName = m_stOptions.m_funNameThread ? m_stOptions.m_funNameThread(iThread, _iMaker)
                                                     : "thread " + std::to_string(iThread);
    stThread.m_bDetached = false;
    stThread.m_bJoined = false;
    stThread.m_iStep = STEP_BEGIN;
    stThread.m_pObject = nullptr;
    stThread.m_iWaitFor = WAIT_NOTHING;
    stThread.m_nsUntil = NEVER;
    stThread.m_clsStores.Clear();
    stThread.m_clsFiber.Start(&CLS_Scheduler::RunFiber);
    m_clsStrategy.AddThread();
    return stThread;
}

/// The outermost frame of every thread.
void CLS_Scheduler::RunFiber()
{
    CLS_Scheduler& clsScheduler = *s_pRunning;
    ST_Thread& stThread = clsScheduler.GetCurrent();
    s_pActive = &clsScheduler;
    stThread.m_pResult = stThread.m_funBody(stThread.m_pArgument);
    s_pActive = nullptr;
    clsScheduler.EndThread();
}

/// Ends the calling thread. Does not return.
void CLS_Scheduler::EndThread()
{
    GetCurrent().m_iWaitFor = WAIT_ENDED;
    if (++m_uiEnded == m_uiThreads)
    {
        m_clsOutside.SwitchFrom(GetCurrent().m_clsFiber);
    }
    GoOn();
}

void CLS_Scheduler::Fail(const std::string& _strFailure)
{
    s_pActive = nullptr;
    m_stOutcome.m_strFailure = _strFailure;
    NotePositions();
    m_clsOutside.SwitchFrom(GetCurrent().m_clsFiber);
    std::abort(); // a failed schedule is never resumed
}

void CLS_Scheduler::FailRunning(const std::string& _strFailure)
{
    if (s_pRunning != nullptr)
    {
        s_pRunning->Fail(_strFailure);
    }
}

void CLS_Scheduler::NotePositions()
{
    for (std::size_t i = 0; i < m_uiThreads; ++i)
    {
        const ST_Thread& stThread = *m_vecThreads[i];
        if (stThread.m_iWaitFor != WAIT_ENDED)
        {
            const std::string strText = NameSpecial(stThread);
            m_stOutcome.m_vecPositions.push_back(
                stThread.m_strName + ": " + GetStepText(stThread.m_iStep) + " " +
                (strText.empty() ? NameObject(stThread.m_pObject) : strText));
        }
    }
}

/// The subject of a step that has no object; else "".
std::string CLS_Scheduler::NameSpecial(const ST_Thread& _stThread) const
{
    if (_stThread.m_iStep >= STEP_CREATE && _stThread.m_iStep <= STEP_DETACH)
    {
        return m_vecThreads[static_cast<std::size_t>(_stThread.m_iJoined)]->m_strName;
    }
    if (_stThread.m_iStep == STEP_SLEEP)
    {
        return "until " + std::to_string(_stThread.m_nsUntil / 1000) + " us";
    }
    return "";
}

std::string CLS_Scheduler::NameObject(const void* _pObject) const
{
    if (_pObject == nullptr)
    {
        return "";
    }
    return m_stOptions.m_funNameObject ? m_stOptions.m_funNameObject(_pObject) : Memory::Describe(_pObject);
}

const std::string& CLS_Scheduler::GetThreadName(int _iThread) const
{
    return m_vecThreads[static_cast<std::size_t>(_iThread)]->m_strName;
}

std::size_t CLS_Scheduler::CountThreads() const
{
    return m_uiThreads - m_uiEnded;
}

/// Announces the calling thread's next step, and waits until it may take the step.
void CLS_Scheduler::WaitFor(n_Step _iStep, const void* _pObject, n_WaitFor _iWaitFor)
{
    ST_Thread& stThread = GetCurrent();
    stThread.m_iStep = _iStep;
    stThread.m_pObject = _pObject;
    stThread.m_iWaitFor = _iWaitFor;
    GoOn();
}

/// Does the same for a step with an object, whose memory must be allocated. Checks the memory before and
/// after the wait, because other threads run meanwhile.
void CLS_Scheduler::WaitAt(n_Step _iStep, const void* _pObject, n_WaitFor _iWaitFor, const char* _szAccess)
{
    Memory::CheckAccess(*this, _pObject, _szAccess);
    WaitFor(_iStep, _pObject, _iWaitFor);
    Memory::CheckAccess(*this, _pObject, _szAccess);
}

/// Lets the strategy choose the next thread. Returns when it has chosen the calling thread.
void CLS_Scheduler::GoOn()
{
    ST_Thread& stSelf = GetCurrent();
    const int iNext = ChooseNext();
    if (iNext != m_iCurrent)
    {
        m_iCurrent = iNext;
        GetCurrent().m_clsFiber.SwitchFrom(stSelf.m_clsFiber);
    }
}

int CLS_Scheduler::ChooseNext()
{
    CheckLimits();
    if (m_stOptions.m_funObserver)
    {
        m_stOptions.m_funObserver(*this);
    }
    LeaveToChance();
    CollectReady();
    while (m_vecReady.empty())
    {
        if (!PassTime())
        {
            Fail("deadlock");
        }
        CollectReady();
    }
    const int iNext = m_clsStrategy.ChooseThread(m_vecReady, m_iCurrent);
    NoteStep(iNext);
    return iNext;
}

void CLS_Scheduler::CheckLimits()
{
    if (m_stOutcome.m_uiSteps >= m_stOptions.m_uiMostSteps)
    {
        Fail("livelock: " + std::to_string(m_stOutcome.m_uiSteps) + " steps");
    }
    if (m_nsNow > m_stOptions.m_nsMostTime)
    {
        Fail("livelock: " + std::to_string(m_nsNow / 1000000) + " ms");
    }
}

void CLS_Scheduler::CollectReady()
{
    m_vecReady.clear();
    for (std::size_t i = 0; i < m_uiThreads; ++i)
    {
        if (IsReady(*m_vecThreads[i]))
        {
            m_vecReady.push_back(static_cast<int>(i));
        }
    }
}

bool CLS_Scheduler::IsReady(const ST_Thread& _stThread) const
{
    switch (_stThread.m_iWaitFor)
    {
    case WAIT_NOTHING:
        return true;
    case WAIT_LOCK:
        return m_clsLocks.IsFree(_stThread.m_pLock);
    case WAIT_SHARED:
        return m_clsLocks.IsOpen(_stThread.m_pLock);
    case WAIT_CONDITION:
        return m_nsNow >= _stThread.m_nsUntil && m_clsLocks.IsFree(_stThread.m_pLock);
    case WAIT_TIME:
        return m_nsNow >= _stThread.m_nsUntil;
    case WAIT_THREAD:
        return m_vecThreads[static_cast<std::size_t>(_stThread.m_iJoined)]->m_iWaitFor == WAIT_ENDED;
    default:
        return false;
    }
}

/// Makes all stores visible, and advances to the earliest time for which a thread waits. False if there is
/// none.
bool CLS_Scheduler::PassTime()
{
    for (std::size_t i = 0; i < m_uiThreads; ++i)
    {
        m_vecThreads[i]->m_clsStores.ShowAll();
    }
    std::int64_t nsEarliest = NEVER;
    for (std::size_t i = 0; i < m_uiThreads; ++i)
    {
        const ST_Thread& stThread = *m_vecThreads[i];
        if ((stThread.m_iWaitFor == WAIT_TIME || stThread.m_iWaitFor == WAIT_CONDITION) &&
            stThread.m_nsUntil > m_nsNow)
        {
            nsEarliest = std::min(nsEarliest, stThread.m_nsUntil);
        }
    }
    if (nsEarliest == NEVER)
    {
        return false;
    }
    m_nsNow = nsEarliest;
    return true;
}

/// Other random events: late stores become visible, waits end spuriously, and threads are slow.
void CLS_Scheduler::LeaveToChance()
{
    for (std::size_t i = 0; m_stOptions.m_bLateStores && i < m_uiThreads; ++i)
    {
        CLS_StoreBuffer& clsStores = m_vecThreads[i]->m_clsStores;
        if (!clsStores.IsEmpty() && m_clsStrategy.Draw(LATE_ONE_IN) == 1)
        {
            clsStores.ShowOldest();
        }
    }
    if (m_stOptions.m_uiSpuriousOneIn > 0 && m_clsStrategy.Draw(m_stOptions.m_uiSpuriousOneIn) == 1)
    {
        WakeForNoReason();
    }
    if (m_stOptions.m_uiEarlyOneIn > 0 && m_clsStrategy.Draw(m_stOptions.m_uiEarlyOneIn) == 1)
    {
        PassTime();
    }
}

void CLS_Scheduler::WakeForNoReason()
{
    const std::vector<ST_Thread*> vecWaiting = FindWaiting(nullptr);
    if (!vecWaiting.empty())
    {
        StopWaiting(*vecWaiting[m_clsStrategy.Draw(vecWaiting.size())]);
    }
}

/// The threads that wait for this condition. Null stands for any condition.
std::vector<CLS_Scheduler::ST_Thread*> CLS_Scheduler::FindWaiting(const void* _pCondition)
{
    std::vector<ST_Thread*> vecWaiting;
    for (std::size_t i = 0; i < m_uiThreads; ++i)
    {
        ST_Thread& stThread = *m_vecThreads[i];
        if (stThread.m_iWaitFor == WAIT_CONDITION &&
            (_pCondition == nullptr || stThread.m_pObject == _pCondition))
        {
            vecWaiting.push_back(&stThread);
        }
    }
    return vecWaiting;
}

/// The thread now waits for the lock instead of the condition.
void CLS_Scheduler::StopWaiting(ST_Thread& _stThread)
{
    _stThread.m_bTimedOut = false;
    _stThread.m_iWaitFor = WAIT_LOCK;
    _stThread.m_iStep = STEP_WAKE;
}

void CLS_Scheduler::NoteStep(int _iThread)
{
    ++m_stOutcome.m_uiSteps;
    ST_Thread& stThread = *m_vecThreads[static_cast<std::size_t>(_iThread)];
    if (stThread.m_iWaitFor == WAIT_CONDITION)
    {
        stThread.m_iStep = STEP_WAKE;
    }
    for (const std::uint64_t uiPart : {static_cast<std::uint64_t>(_iThread * 32 + stThread.m_iStep),
                                       static_cast<std::uint64_t>(m_nsNow), GetNumber(stThread.m_pObject)})
    {
        m_stOutcome.m_uiHash = (m_stOutcome.m_uiHash ^ uiPart) * 0x100000001b3U;
    }
    if (m_stOptions.m_bTrace)
    {
        const std::string strText = NameSpecial(stThread);
        m_stOutcome.m_vecTrace.push_back({m_nsNow, stThread.m_strName, stThread.m_iStep, strText,
                                          strText.empty() ? stThread.m_pObject : nullptr});
    }
}

/// The number of an object, which is the same in every process that runs the schedule; 0 for none.
std::uint64_t CLS_Scheduler::GetNumber(const void* _pObject) const
{
    std::uint64_t uiNumber = Memory::GetNumber(_pObject);
    for (std::size_t i = 0; _pObject != nullptr && uiNumber == 0 && i < m_uiThreads; ++i)
    {
        std::size_t uiDepth = 0;
        if (m_vecThreads[i]->m_clsFiber.FindOnStack(_pObject, uiDepth))
        {
            uiNumber = (std::uint64_t{i + 1} << 32U) + uiDepth;
        }
    }
    return uiNumber;
}
