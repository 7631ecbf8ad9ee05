#include "tests/support/FastSleep.h"

#include "tests/support/NextFunction.h"

#include <atomic>
#include <cerrno>
#include <ctime>
#include <mutex>

namespace
{
constexpr std::chrono::microseconds CUT_LENGTH{20};
constexpr std::chrono::milliseconds SHORTEST_SCALED{50};

std::atomic<CLS_ScaledSleep::Scale> g_funScale{nullptr};

/// The number of sleeps to reserve memory for, because a sleep must not allocate.
constexpr std::size_t USUAL_SLEEPS = 10000;

/// Never destroyed: service threads sleep until the process ends.
struct ST_Sleeps
{
    std::mutex m_mtxSleeps; ///< guards everything below
    bool m_bCutting = false;
    std::chrono::milliseconds m_msShortest{0};
    std::vector<ST_Sleep> m_vecSleeps;
    std::function<void(const ST_Sleep&)> m_funHook;
};

ST_Sleeps& GetState()
{
    static ST_Sleeps& s_stState = *new ST_Sleeps;
    return s_stState;
}

timespec ToTimespec(std::chrono::nanoseconds _nsLength)
{
    const auto sWhole = std::chrono::duration_cast<std::chrono::seconds>(_nsLength);
    return {sWhole.count(), std::chrono::nanoseconds(_nsLength - sWhole).count()};
}

/// Whether to cut the sleep. If so, records it and returns the hook.
bool NoteSleep(std::chrono::nanoseconds _nsAsked, ST_Sleep& _stSleep,
               std::function<void(const ST_Sleep&)>& _funHook)
{
    ST_Sleeps& stState = GetState();
    const std::lock_guard<std::mutex> lock(stState.m_mtxSleeps);
    if (!stState.m_bCutting || _nsAsked < stState.m_msShortest)
    {
        return false;
    }
    _stSleep = {std::this_thread::get_id(), std::chrono::duration_cast<std::chrono::milliseconds>(_nsAsked)};
    stState.m_vecSleeps.push_back(_stSleep);
    _funHook = stState.m_funHook;
    return true;
}

int SleepReally(const timespec& _stLength, timespec* _pRest)
{
    static auto* const s_pSleep = GetNextFunction<decltype(nanosleep)>("nanosleep");
    return s_pSleep(&_stLength, _pRest);
}
} // namespace

CLS_FastSleep::CLS_FastSleep(const std::function<void(const ST_Sleep&)>& _funHook,
                             std::chrono::milliseconds _msShortest)
{
    ST_Sleeps& stState = GetState();
    const std::lock_guard<std::mutex> lock(stState.m_mtxSleeps);
    stState.m_bCutting = true;
    stState.m_msShortest = _msShortest;
    stState.m_vecSleeps.clear();
    stState.m_vecSleeps.reserve(USUAL_SLEEPS);
    stState.m_funHook = _funHook;
}

CLS_FastSleep::~CLS_FastSleep()
{
    ST_Sleeps& stState = GetState();
    const std::lock_guard<std::mutex> lock(stState.m_mtxSleeps);
    stState.m_bCutting = false;
    std::vector<ST_Sleep>().swap(stState.m_vecSleeps); // its memory, too
    stState.m_funHook = nullptr;
}

std::vector<ST_Sleep> CLS_FastSleep::GetSleeps() const
{
    const std::lock_guard<std::mutex> lock(GetState().m_mtxSleeps);
    return GetState().m_vecSleeps;
}

std::vector<ST_Sleep> CLS_FastSleep::GetSleeps(std::thread::id _idThread) const
{
    std::vector<ST_Sleep> vecOwn;
    for (const ST_Sleep& stSleep : GetSleeps())
    {
        if (stSleep.m_idThread == _idThread)
        {
            vecOwn.push_back(stSleep);
        }
    }
    return vecOwn;
}

CLS_ScaledSleep::CLS_ScaledSleep(Scale _funScale)
{
    g_funScale = _funScale;
}

CLS_ScaledSleep::~CLS_ScaledSleep()
{
    g_funScale = nullptr;
}

/// Replaces the system's function of the same name in every program that is linked with this file.
extern "C" int nanosleep(const timespec* _pLength, timespec* _pRest)
{
    const std::chrono::nanoseconds nsAsked =
        std::chrono::seconds(_pLength->tv_sec) + std::chrono::nanoseconds(_pLength->tv_nsec);
    const CLS_ScaledSleep::Scale funScale = g_funScale;
    if (funScale != nullptr && nsAsked >= SHORTEST_SCALED)
    {
        return SleepReally(ToTimespec(funScale(nsAsked)), nullptr);
    }
    ST_Sleep stSleep;
    std::function<void(const ST_Sleep&)> funHook;
    if (!NoteSleep(nsAsked, stSleep, funHook))
    {
        return SleepReally(*_pLength, _pRest);
    }
    const int iResult = SleepReally(ToTimespec(CUT_LENGTH), nullptr);
    if (funHook)
    {
        funHook(stSleep);
    }
    return iResult;
}

#ifdef _LIBCPP_VERSION
/// This C++ library calls the system's function directly, not the one above.
void std::this_thread::sleep_for(const std::chrono::nanoseconds& _nsLength)
{
    timespec stRest = ToTimespec(_nsLength);
    while (nanosleep(&stRest, &stRest) != 0 && errno == EINTR)
    {
    }
}
#endif
