#include "tests/support/WatchedJoins.h"

#include "tests/support/NextFunction.h"

#include <cerrno>
#include <mutex>
#include <system_error>
#include <thread>

namespace
{
/// Kept for good: threads are joined until the process ends.
struct ST_Joins
{
    std::mutex m_mtxJoins; ///< guards everything below
    bool m_bWatching = false;
    std::size_t m_uiFailing = 0;
    std::vector<pthread_t> m_vecThreads;
    std::function<void(pthread_t)> m_funHook;
};

ST_Joins& GetState()
{
    static ST_Joins& s_stState = *new ST_Joins;
    return s_stState;
}

/// Whether the wait is to be refused; hands the hook out.
bool NoteJoin(pthread_t _idThread, std::function<void(pthread_t)>& _funHook)
{
    ST_Joins& stState = GetState();
    const std::lock_guard<std::mutex> lock(stState.m_mtxJoins);
    if (!stState.m_bWatching)
    {
        return false;
    }
    stState.m_vecThreads.push_back(_idThread);
    _funHook = stState.m_funHook;
    return stState.m_vecThreads.size() == stState.m_uiFailing;
}
} // namespace

CLS_WatchedJoins::CLS_WatchedJoins(int _iFailing, const std::function<void(pthread_t)>& _funHook)
{
    ST_Joins& stState = GetState();
    const std::lock_guard<std::mutex> lock(stState.m_mtxJoins);
    stState.m_bWatching = true;
    stState.m_uiFailing = static_cast<std::size_t>(_iFailing);
    stState.m_vecThreads.clear();
    stState.m_funHook = _funHook;
}

CLS_WatchedJoins::~CLS_WatchedJoins()
{
    ST_Joins& stState = GetState();
    const std::lock_guard<std::mutex> lock(stState.m_mtxJoins);
    stState.m_bWatching = false;
    stState.m_funHook = nullptr;
}

std::vector<pthread_t> CLS_WatchedJoins::GetThreads() const
{
    const std::lock_guard<std::mutex> lock(GetState().m_mtxJoins);
    return GetState().m_vecThreads;
}

/// Replaces the system's function of the same name in every program that is linked with this file.
extern "C" int pthread_join(pthread_t _idThread, void** _ppResult)
{
    std::function<void(pthread_t)> funHook;
    const bool bRefused = NoteJoin(_idThread, funHook);
    if (funHook)
    {
        funHook(_idThread);
    }
    if (bRefused)
    {
        return EDEADLK;
    }
    static auto* const s_pJoin = GetNextFunction<decltype(pthread_join)>("pthread_join");
    return s_pJoin(_idThread, _ppResult);
}

#ifdef _LIBCPP_VERSION
/// This C++ library calls the system's function directly, not the one above.
void std::thread::join()
{
    const int iError = joinable() ? pthread_join(native_handle(), nullptr) : EINVAL;
    if (iError != 0)
    {
        throw std::system_error(iError, std::generic_category(), "thread::join failed");
    }
    __t_ = {};
}
#endif
