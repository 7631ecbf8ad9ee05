#pragma once

#include "QuenPlugins/ZelTaskPool/CLS_Task.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// What the loop scheduler knows about the loop tasks from pass to pass.
///
/// A pass over ten thousand tasks must stay cheap. So the schedule keeps for each task a weak reference and
/// the moment before which the task cannot be due. It looks a task up, or asks it, only when it has to.
///
/// Threads: for the loop scheduler's thread, except NoteListChange. Not thread-safe.
class CLS_LoopSchedule
{
public:
    /// One loop task: its id, a reference that does not keep it alive, and the moment before which it is not
    /// due.
    class CLS_Entry
    {
    public:
        /// An entry that knows only the id.
        explicit CLS_Entry(std::string _strTaskId);

        /// Valid as long as this object is neither moved nor destroyed.
        const std::string& GetTaskId() const { return m_strTaskId; }

        /// Whether the task, registered when it was last looked up, is due at _tpNow, as CLS_Task::IsUseRun
        /// says.
        ///
        /// Waits: for the registry's lock, shared, when the task was not found before or is gone.
        bool IsDue(std::chrono::steady_clock::time_point _tpNow);

        /// The registered task, which IsDue asks from now on. Null when there is none.
        ///
        /// Waits: for the registry's lock, shared.
        std::shared_ptr<CLS_Task> LookUp();

        /// Makes IsDue ask the task again, because its interval may have changed.
        void ForgetTime() { m_tpEarliest = std::chrono::steady_clock::time_point::min(); }

    private:
        /// The task; looks it up when the reference is empty. Null when there is none.
        std::shared_ptr<CLS_Task> FindTask();

        std::string m_strTaskId;
        std::weak_ptr<CLS_Task> m_pTask;
        /// The task is not due before this moment, unless its interval changes.
        std::chrono::steady_clock::time_point m_tpEarliest = std::chrono::steady_clock::time_point::min();
    };

    /// Records that the list of loop tasks has changed.
    ///
    /// Threads: any, with the lock of the list held exclusively.
    void NoteListChange() { ++m_uiListChanges; }

    /// Brings the entries into line with the list and with intervals that have changed.
    ///
    /// Threads: the loop scheduler's, with the lock of the list held.
    /// Fails: std::bad_alloc propagates; the next call tries again.
    void Refresh(const std::vector<std::string>& _vecTaskIds);

    /// The entries, in list order. The next Refresh may replace them.
    std::vector<CLS_Entry>& GetEntries() { return m_vecEntries; }

private:
    /// Makes an entry for each id, reusing the known entries.
    void Rebuild(const std::vector<std::string>& _vecTaskIds);

    std::uint64_t m_uiListChanges = 0; ///< changes of the list; guarded by the lock of the list
    std::vector<CLS_Entry> m_vecEntries;
    std::uint64_t m_uiSeenListChanges = 0;     ///< m_uiListChanges at the last rebuild
    std::uint64_t m_uiSeenIntervalChanges = 0; ///< CLS_Task::GetIntervalChanges at the last refresh
};
