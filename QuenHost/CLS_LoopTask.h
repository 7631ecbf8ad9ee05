#pragma once

#include "QuenHost/PoolCall.h"
#include "QuenHost/ST_PoolFunctions.h"

#include <functional>
#include <string>
#include <utility>

/// A task that runs again and again until this object is destroyed.
///
/// It must go before the pool's end, before the library is unloaded, and before what its callable uses: as a
/// member it comes last. Moveable; a moved-from object has no task. Belongs to one thread at a time, and not
/// to a run of its own task, which would wait for itself.
class CLS_LoopTask
{
public:
    /// Runs _funTask, copied, at once, and again _iInterval milliseconds after each run ended, plus up to
    /// about 10. With 0 it is repeated without a pause; a negative interval is not for loop tasks.
    /// _strCallInfo says, in the pool's records, what it is. When it cannot be added, usually because memory
    /// ran out, there is a record and no task: see IsAdded. Waits for no task.
    CLS_LoopTask(const ST_PoolFunctions& _stFunctions, const std::function<void()>& _funTask, int _iInterval,
                 std::string _strCallInfo)
        : m_stFunctions(_stFunctions), m_strCallInfo(std::move(_strCallInfo))
    {
        m_stFunctions.m_funAddLoopTask(_funTask, _iInterval, m_strTaskId, m_strCallInfo);
    }

    /// The same as Remove.
    ~CLS_LoopTask()
    {
        PoolCall::Guard([this] { Remove(); });
    }

    CLS_LoopTask(const CLS_LoopTask&) = delete;
    CLS_LoopTask& operator=(const CLS_LoopTask&) = delete;

    /// Takes over the task; _clsOther has none then.
    CLS_LoopTask(CLS_LoopTask&& _clsOther) noexcept
        : m_stFunctions(_clsOther.m_stFunctions), m_strCallInfo(std::move(_clsOther.m_strCallInfo)),
          m_strTaskId(std::exchange(_clsOther.m_strTaskId, {}))
    {
    }

    /// Removes the task that this object had, with Remove's wait. An object that is moved to itself keeps its
    /// task.
    CLS_LoopTask& operator=(CLS_LoopTask&& _clsOther) noexcept
    {
        CLS_LoopTask clsOther(std::move(_clsOther));
        std::swap(m_stFunctions, clsOther.m_stFunctions);
        m_strCallInfo.swap(clsOther.m_strCallInfo);
        m_strTaskId.swap(clsOther.m_strTaskId);
        return *this;
    }

    /// Whether there is a task to be removed.
    bool IsAdded() const { return !m_strTaskId.empty(); }

    /// Removes the task, once; waits, up to about 9 seconds, for a run in progress. What the callable
    /// captured is destroyed on this thread, unless the run took longer.
    void Remove()
    {
        if (IsAdded())
        {
            m_stFunctions.m_funRemoveTask(std::exchange(m_strTaskId, {}), m_strCallInfo);
        }
    }

private:
    ST_PoolFunctions m_stFunctions;
    std::string m_strCallInfo;
    std::string m_strTaskId; ///< "" for none
};
