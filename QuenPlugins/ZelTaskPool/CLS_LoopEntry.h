#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_Task.h"

#include <chrono>
#include <memory>
#include <string>

/// What the loop scheduler keeps about one loop task from pass to pass: a reference that does not keep the
/// task alive, and the moment before which the task cannot be due. As long as the same record is behind the
/// id, it gives the answers of a look-up and a question to the task on every pass, which ten thousand tasks
/// would make expensive.
///
/// Not thread-safe: for the loop scheduler's thread.
class CLS_LoopEntry
{
public:
    /// Nothing is known about the task but its id.
    explicit CLS_LoopEntry(std::string&& _strTaskId);

    /// Valid as long as this object is neither moved nor destroyed.
    const std::string& GetTaskId() const { return m_strTaskId; }

    /// Whether the task, registered when it was looked up last, is due at _tpNow: CLS_Task::IsUseRun. Takes
    /// the registry's lock, shared, to look up a task that is gone or was never there.
    bool IsDue(std::chrono::steady_clock::time_point _tpNow);

    /// Makes IsDue ask the task again, for its interval may have changed.
    void ForgetTime() { m_tpEarliest = std::chrono::steady_clock::time_point::min(); }

private:
    std::shared_ptr<CLS_Task> FindTask();

    std::string m_strTaskId;
    std::weak_ptr<CLS_Task> m_pTask;
    /// Before this moment the task is not due, as long as its interval stays as it is.
    std::chrono::steady_clock::time_point m_tpEarliest = std::chrono::steady_clock::time_point::min();
};
