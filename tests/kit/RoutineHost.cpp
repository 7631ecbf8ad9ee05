// A host in C++20 with coroutines:  zel_routine_host LIBRARY
// Prints what they did, or "no coroutines" if the compiler does not support them.

#include "QuenHost/CLS_Routine.h"

#include <cstdio>

#ifndef __cpp_lib_coroutine
int main()
{
    std::puts("no coroutines");
}
#else

#include "QuenHost/Core/ThreadInfo.h"
#include "tests/support/Waiting.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

namespace
{
/// The host's queue.
class CLS_CallQueue
{
public:
    void Add(std::function<void()> _funCall)
    {
        const std::lock_guard<std::mutex> lock(m_mtxCalls);
        m_lstCalls.push_back(std::move(_funCall));
    }

    /// Waits for the next call. Returns an empty one at the limit.
    std::function<void()> TakeNext()
    {
        std::function<void()> funCall;
        const auto funTake = [&]
        {
            const std::lock_guard<std::mutex> lock(m_mtxCalls);
            if (!m_lstCalls.empty())
            {
                funCall = std::move(m_lstCalls.front());
                m_lstCalls.pop_front();
            }
            return static_cast<bool>(funCall);
        };
        static_cast<void>(WaitUntil(funTake));
        return funCall;
    }

private:
    std::mutex m_mtxCalls; ///< guards m_lstCalls
    std::deque<std::function<void()>> m_lstCalls;
};

// ThreadInfo identifies threads here, because compilers may reuse the result of pthread_self() after a
// co_await.

/// A variable of a coroutine. It records the thread that destroys it.
struct ST_Variable
{
    explicit ST_Variable(std::atomic<std::uint64_t>& _uiEnd) : m_uiEnd(_uiEnd) {}
    ~ST_Variable() { m_uiEnd = ThreadInfo::GetId(); }
    ST_Variable(const ST_Variable&) = delete;
    ST_Variable& operator=(const ST_Variable&) = delete;
    std::atomic<std::uint64_t>& m_uiEnd;
};

struct ST_Threads
{
    std::atomic<std::uint64_t> m_uiFirst{0};
    std::atomic<std::uint64_t> m_uiWorker{0};
    std::atomic<std::uint64_t> m_uiHost{0};
    std::atomic<std::uint64_t> m_uiEnd{0};
};

CLS_Routine Travel(CLS_HostThread _clsHost, std::string _strInfo, ST_Threads* _pThreads)
{
    const ST_Variable stVariable(_pThreads->m_uiEnd);
    _pThreads->m_uiFirst = ThreadInfo::GetId();
    const CLS_StopToken clsToken = co_await MoveToWorker(_strInfo);
    _pThreads->m_uiWorker = ThreadInfo::GetId();
    if (!clsToken.IsStopRequested())
    {
        co_await MoveToHost(_clsHost, _strInfo);
        _pThreads->m_uiHost = ThreadInfo::GetId();
    }
}

CLS_Routine Sleep(std::string _strInfo, CLS_Gate* _pStarted, std::atomic<bool>* _pStopped,
                  ST_Threads* _pThreads)
{
    const ST_Variable stVariable(_pThreads->m_uiEnd);
    const CLS_StopToken clsToken = co_await MoveToWorker(_strInfo);
    _pStarted->Open();
    *_pStopped = !clsToken.SleepFor(WAIT_LIMIT);
    co_await MoveToWorker(_strInfo);
    std::puts("it goes on after the removal");
}

struct ST_SelfRemoval
{
    std::thread::id m_idFirst;
    std::thread::id m_idLast;
    std::atomic<int> m_iResult{-1}; ///< the removal's result; -1 until it has returned
};

/// Removes the tasks of its own owner, after it has obtained its thread's id on another thread.
CLS_Routine RemoveOwn(std::optional<CLS_HostThread> _optHost, CLS_TaskOwner* _pOther, CLS_TaskOwner* _pOwner,
                      ST_SelfRemoval* _pRemoval)
{
    _pRemoval->m_idFirst = ThreadInfo::GetSelf();
    _pOther->RemoveTasks();
    co_await MoveToWorker("remove");
    _pRemoval->m_idLast = ThreadInfo::GetSelf();
    if (_optHost)
    {
        _pOther->RemoveTasks();
        co_await MoveToHost(*_optHost, "remove");
        _pRemoval->m_idLast = ThreadInfo::GetSelf();
    }
    _pRemoval->m_iResult = _pOwner->RemoveTasks() ? 1 : 0;
}

CLS_Routine Throw(bool _bAtOnce)
{
    if (_bAtOnce)
    {
        throw std::runtime_error("at once");
    }
    co_await MoveToWorker("thrower");
    throw std::runtime_error("later");
}

void Check(const char* _szWhat, bool _bSo)
{
    std::printf("%s: %s\n", _szWhat, _bSo ? "yes" : "NO");
}
} // namespace

int main(int, char** _ppTexts)
{
    const std::uint64_t uiMain = ThreadInfo::GetId();
    const std::string strInfo = "a text that does not fit into the string itself";
    CLS_CallQueue clsCalls;
    const CLS_HostThread clsHost([&](std::function<void()> _funCall) { clsCalls.Add(std::move(_funCall)); });
    const CLS_PoolScope clsPool{CLS_PoolLibrary(_ppTexts[1])};
    std::atomic<int> iFailures{0};
    CLS_TaskOwner clsOwner(clsPool, "owner", [&](const ST_TaskFailure&) { ++iFailures; });

    ST_Threads stWhole;
    Travel(clsHost, strInfo, &stWhole).Start(clsOwner);
    clsCalls.TakeNext()();
    Check("starts on the caller's thread", stWhole.m_uiFirst.load() == uiMain);
    Check("moves to a worker", stWhole.m_uiWorker.load() != 0U && stWhole.m_uiWorker.load() != uiMain);
    Check("moves back and ends there", stWhole.m_uiHost.load() == uiMain && stWhole.m_uiEnd.load() == uiMain);

    ST_Threads stCancelled;
    Travel(clsHost, strInfo, &stCancelled).Start(clsOwner);
    const std::function<void()> funLate = clsCalls.TakeNext();
    clsOwner.RemoveTasks();
    Check("is destroyed by a removal while it waits", stCancelled.m_uiEnd.load() == uiMain);
    funLate();
    Check("does not go on after a removal", stCancelled.m_uiHost.load() == 0U);

    CLS_Gate clsStarted;
    std::atomic<bool> bStopped{false};
    ST_Threads stRunning;
    Sleep(strInfo, &clsStarted, &bStopped, &stRunning).Start(clsOwner);
    Check("runs", clsStarted.Wait());
    clsOwner.RemoveTasks();
    Check("has a stop token", bStopped);
    Check("is destroyed at its next wait", stRunning.m_uiEnd.load() != 0U);

    CLS_TaskOwner clsOther(clsPool, "other");
    ST_SelfRemoval stOnWorker;
    RemoveOwn(std::nullopt, &clsOther, &clsOwner, &stOnWorker).Start(clsOwner);
    const bool bRemoved = WaitUntil([&] { return stOnWorker.m_iResult >= 0; });
    Check("knows its thread on a worker", bRemoved && stOnWorker.m_idLast != stOnWorker.m_idFirst);
    Check("removes its own owner's tasks on a worker", stOnWorker.m_iResult == 1);

    ST_SelfRemoval stOnHost;
    RemoveOwn(clsHost, &clsOther, &clsOwner, &stOnHost).Start(clsOwner);
    clsCalls.TakeNext()();
    Check("knows its thread on the host's", stOnHost.m_idLast == stOnHost.m_idFirst);
    Check("removes its own owner's tasks on the host's thread", stOnHost.m_iResult == 1);

    Throw(false).Start(clsOwner);
    Check("what it throws is a failure", WaitUntil([&] { return iFailures == 1; }));
    bool bThrown = false;
    try
    {
        Throw(true).Start(clsOwner);
    }
    catch (const std::runtime_error&)
    {
        bThrown = true;
    }
    Check("what it throws at first reaches the caller", bThrown);
    {
        const CLS_Routine clsUnused = Throw(true);
    }
    std::puts("end");
    return 0;
}
#endif
