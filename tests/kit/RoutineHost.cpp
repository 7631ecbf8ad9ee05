// A host in C++20 with coroutines:  zel_routine_host LIBRARY
// Prints what they did, or "no coroutines" where the compiler has none.

#include "QuenHost/CLS_Routine.h"

#include <cstdio>

#ifndef __cpp_lib_coroutine
int main()
{
    std::puts("no coroutines");
}
#else

#include "tests/support/Waiting.h"

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
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

    /// Waits for the next one. Empty when none comes.
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

/// A variable of a coroutine. Notes on which thread it is destroyed.
struct ST_Variable
{
    explicit ST_Variable(std::atomic<std::thread::id>& _idEnd) : m_idEnd(_idEnd) {}
    ~ST_Variable() { m_idEnd = std::this_thread::get_id(); }
    ST_Variable(const ST_Variable&) = delete;
    ST_Variable& operator=(const ST_Variable&) = delete;
    std::atomic<std::thread::id>& m_idEnd;
};

struct ST_Threads
{
    std::atomic<std::thread::id> m_idFirst{};
    std::atomic<std::thread::id> m_idWorker{};
    std::atomic<std::thread::id> m_idHost{};
    std::atomic<std::thread::id> m_idEnd{};
};

CLS_Routine Travel(CLS_HostThread _clsHost, std::string _strInfo, ST_Threads* _pThreads)
{
    const ST_Variable stVariable(_pThreads->m_idEnd);
    _pThreads->m_idFirst = std::this_thread::get_id();
    const CLS_StopToken clsToken = co_await MoveToWorker(_strInfo);
    _pThreads->m_idWorker = std::this_thread::get_id();
    if (!clsToken.IsStopRequested())
    {
        co_await MoveToHost(_clsHost, _strInfo);
        _pThreads->m_idHost = std::this_thread::get_id();
    }
}

CLS_Routine Sleep(std::string _strInfo, CLS_Gate* _pStarted, std::atomic<bool>* _pStopped,
                  ST_Threads* _pThreads)
{
    const ST_Variable stVariable(_pThreads->m_idEnd);
    const CLS_StopToken clsToken = co_await MoveToWorker(_strInfo);
    _pStarted->Open();
    *_pStopped = !clsToken.SleepFor(WAIT_LIMIT);
    co_await MoveToWorker(_strInfo);
    std::puts("it goes on after the removal");
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
    const std::thread::id idMain = std::this_thread::get_id();
    const std::string strInfo = "a text that does not fit into the string itself";
    CLS_CallQueue clsCalls;
    const CLS_HostThread clsHost([&](std::function<void()> _funCall) { clsCalls.Add(std::move(_funCall)); });
    const CLS_PoolScope clsPool{CLS_PoolLibrary(_ppTexts[1])};
    std::atomic<int> iFailures{0};
    CLS_TaskOwner clsOwner(clsPool, "owner", [&](const ST_TaskFailure&) { ++iFailures; });

    ST_Threads stWhole;
    Travel(clsHost, strInfo, &stWhole).Start(clsOwner);
    clsCalls.TakeNext()();
    Check("starts on the caller's thread", stWhole.m_idFirst.load() == idMain);
    Check("moves to a worker",
          stWhole.m_idWorker.load() != std::thread::id() && stWhole.m_idWorker.load() != idMain);
    Check("moves back and ends there", stWhole.m_idHost.load() == idMain && stWhole.m_idEnd.load() == idMain);

    ST_Threads stCancelled;
    Travel(clsHost, strInfo, &stCancelled).Start(clsOwner);
    const std::function<void()> funLate = clsCalls.TakeNext();
    clsOwner.RemoveTasks();
    Check("is destroyed by a removal while it waits", stCancelled.m_idEnd.load() == idMain);
    funLate();
    Check("does not go on after a removal", stCancelled.m_idHost.load() == std::thread::id());

    CLS_Gate clsStarted;
    std::atomic<bool> bStopped{false};
    ST_Threads stRunning;
    Sleep(strInfo, &clsStarted, &bStopped, &stRunning).Start(clsOwner);
    Check("runs", clsStarted.Wait());
    clsOwner.RemoveTasks();
    Check("has a stop token", bStopped);
    Check("is destroyed at its next wait", stRunning.m_idEnd.load() != std::thread::id());

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
