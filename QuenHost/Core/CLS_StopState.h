#pragma once

#include "QuenHost/Core/CLS_Chain.h"
#include "QuenHost/Core/ThreadInfo.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

/// The request to stop that tokens share.
///
/// Threads: any.
class CLS_StopState
{
public:
    /// A function that is called when the stop is requested.
    struct ST_Callback
    {
        explicit ST_Callback(std::function<void()> _funCall) : m_funCall(std::move(_funCall)) {}

        std::function<void()> m_funCall;
        ST_Link<ST_Callback> m_stLink; ///< guarded by m_mtxStop
        bool m_bRegistered = false;    ///< guarded by m_mtxStop
    };

    bool IsRequested() const { return m_bRequested.load(std::memory_order_acquire); }

    /// Requests the stop. Only the first call has an effect.
    ///
    /// It wakes sleeping threads, and calls each callback once on this thread, with no lock held.
    void Request()
    {
        std::unique_lock<std::mutex> lock(m_mtxStop);
        if (IsRequested())
        {
            return;
        }
        m_bRequested.store(true, std::memory_order_release);
        m_cvStop.notify_all();
        while (ST_Callback* const pCallback = m_chnCallbacks.GetFirst())
        {
            m_chnCallbacks.Remove(*pCallback);
            pCallback->m_bRegistered = false;
            m_pCalled = pCallback;
            m_idCaller = ThreadInfo::GetSelf();
            lock.unlock();
            pCallback->m_funCall();
            lock.lock();
            m_pCalled = nullptr;
            m_cvStop.notify_all();
        }
    }

    /// Sleeps. Returns true after _nsTime, and false as soon as the stop is requested.
    ///
    /// Waits: at most a year.
    bool SleepFor(std::chrono::nanoseconds _nsTime)
    {
        constexpr std::chrono::nanoseconds LONGEST = std::chrono::hours(24 * 365);
        std::unique_lock<std::mutex> lock(m_mtxStop);
        return !m_cvStop.wait_for(lock, std::min(_nsTime, LONGEST), [this] { return IsRequested(); });
    }

    /// Registers a callback. Returns false, and does nothing, if the stop was requested before.
    bool Register(ST_Callback& _stCallback)
    {
        const std::lock_guard<std::mutex> lock(m_mtxStop);
        if (!IsRequested())
        {
            m_chnCallbacks.Append(_stCallback);
            _stCallback.m_bRegistered = true;
        }
        return _stCallback.m_bRegistered;
    }

    /// Unregisters a callback. From now on, it is not called.
    ///
    /// Waits: for a call that is running on another thread.
    void Unregister(ST_Callback& _stCallback)
    {
        std::unique_lock<std::mutex> lock(m_mtxStop);
        if (_stCallback.m_bRegistered)
        {
            m_chnCallbacks.Remove(_stCallback);
            return;
        }
        while (m_pCalled == &_stCallback && m_idCaller != ThreadInfo::GetSelf())
        {
            m_cvStop.wait_for(lock, std::chrono::seconds(1));
        }
    }

private:
    std::atomic<bool> m_bRequested{false}; ///< set under m_mtxStop
    std::mutex m_mtxStop;                  ///< guards what follows
    std::condition_variable m_cvStop;      ///< notified by the request, and after each call
    ST_Callback* m_pCalled = nullptr;      ///< the callback that m_idCaller is calling
    std::thread::id m_idCaller;
    CLS_Chain<ST_Callback, &ST_Callback::m_stLink> m_chnCallbacks; ///< to be called
};
