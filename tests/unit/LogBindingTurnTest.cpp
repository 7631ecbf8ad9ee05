#include "QuenInclude/Logger.h"
#include "tests/support/NextFunction.h"
#include "tests/support/Waiting.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <iostream>
#include <pthread.h>
#include <sstream>
#include <string>
#include <thread>
#include <utility>

namespace
{
thread_local bool t_bWatched = false;
std::atomic<bool> g_bWaiting{false}; ///< whether a watched thread has begun to wait, its mutex still locked

void NoteWait()
{
    if (t_bWatched)
    {
        g_bWaiting = true;
    }
}
} // namespace

// Replaces the system's function of the same name. The two systems' C++ libraries wait in different ways.
#ifdef __APPLE__
extern "C" int pthread_cond_timedwait(pthread_cond_t* _pCondition, pthread_mutex_t* _pMutex,
                                      const timespec* _pLimit)
{
    static auto* const s_pWait = GetNextFunction<decltype(pthread_cond_timedwait)>("pthread_cond_timedwait");
    NoteWait();
    return s_pWait(_pCondition, _pMutex, _pLimit);
}
#else
extern "C" int pthread_cond_clockwait(pthread_cond_t* _pCondition, pthread_mutex_t* _pMutex,
                                      clockid_t _iClock, const timespec* _pLimit)
{
    static auto* const s_pWait = GetNextFunction<decltype(pthread_cond_clockwait)>("pthread_cond_clockwait");
    NoteWait();
    return s_pWait(_pCondition, _pMutex, _iClock, _pLimit);
}
#endif

namespace
{
/// Receives the output, and calls a function before the first piece of it.
class CLS_Printed final : public std::stringbuf
{
public:
    explicit CLS_Printed(std::function<void()> _funFirst)
        : m_funFirst(std::move(_funFirst)), m_pBefore(std::cout.rdbuf(this))
    {
    }
    ~CLS_Printed() override { std::cout.rdbuf(m_pBefore); }

protected:
    std::streamsize xsputn(const char* _pText, std::streamsize _iLength) override
    {
        if (const std::function<void()> funFirst = std::exchange(m_funFirst, nullptr))
        {
            funFirst();
        }
        return std::stringbuf::xsputn(_pText, _iLength);
    }

private:
    std::function<void()> m_funFirst;
    std::streambuf* const m_pBefore;
};

TEST(LogBindingTurnTest, ThreadThatWaitedForABindingUsesItAndDoesNotBindAgain)
{
    void* pWaited = nullptr;
    std::thread thWaiting;
    const auto funWaitForTurn = [&]
    {
        thWaiting = std::thread(
            [&]
            {
                t_bWatched = true;
                pWaited = Logger::GetModuleFun("PrintLog", "");
            });
        EXPECT_TRUE(WaitUntil([] { return g_bWaiting.load(); }));
    };
    void* pBound = nullptr;
    std::string strPrinted;
    {
        CLS_Printed clsPrinted(funWaitForTurn);
        pBound = Logger::GetModuleFun("PrintLog", "");
        thWaiting.join();
        strPrinted = clsPrinted.str();
    }
    EXPECT_NE(nullptr, pBound);
    EXPECT_EQ(pBound, pWaited);
    const std::string strLibrary = LOG_LIBRARY_NAME;
    std::string strExpected = "load dll - " + strLibrary + "\n";
    for (const char* const szName : {"Init", "SetLoggerConfig", "SetLoggerConfigAll", "PrintLog", "UnInit"})
    {
        strExpected += "load dll [" + strLibrary + ": " + szName + "] sucess\n";
    }
    EXPECT_EQ(strExpected, strPrinted);
}
} // namespace
