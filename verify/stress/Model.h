#pragma once

#include "verify/rules/TaskRules.h"
#include "verify/stress/Entry.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// What the program has done so far.
struct ST_Counts
{
    std::atomic<std::int64_t> m_iOperations{0};
    std::atomic<std::int64_t> m_iTasks{0}; ///< accepted, of any kind
    std::atomic<std::int64_t> m_iRuns{0};  ///< of one-shot tasks
    std::atomic<std::int64_t> m_iLoopRuns{0};
    std::atomic<std::int64_t> m_iOverruns{0}; ///< removals that gave up waiting
    std::atomic<std::int64_t> m_iRetired{0};  ///< workers
    std::atomic<std::int64_t> m_iPools{0};    ///< ended
    std::atomic<int> m_iMostWorkers{0};
};

/// The expected tasks, and the rules that always hold for them. A broken rule ends the process at once with
/// status 1 and prints the rule and the seed. Thread-safe.
class CLS_Model
{
public:
    static constexpr int MOST_WORKERS = 301;

    explicit CLS_Model(std::uint64_t _uiSeed) : m_uiSeed(_uiSeed) {}

    [[noreturn]] void Break(const std::string& _strWhat) const;
    [[noreturn]] void Break(const std::string& _strWhat, const ST_Entry& _stEntry) const;

    /// Breaks with the rule that the task breaks, if any.
    void RequireUnbroken(const char* _szBroken, const ST_Entry& _stEntry) const;

    /// The task as the shared rules see it.
    static TaskRules::ST_TaskState GetState(const ST_Entry& _stEntry);

    Entry MakeEntry(n_TaskKind _iKind, int _iInterval = 0);
    std::vector<Entry> GetEntries();

    /// The pool has taken the task.
    void NoteAccepted(ST_Entry& _stEntry);

    /// Call these around each run, on the thread that runs the task.
    void BeginRun(ST_Entry& _stEntry);
    void EndRun(ST_Entry& _stEntry);

    /// A removal has returned: the task must neither run now nor begin again.
    void NoteEnded(ST_Entry& _stEntry) const;

    /// The pool has logged that a run outlasted a wait. _strRecord is the log record, which quotes the call
    /// information.
    void NoteOverrun(const std::string& _strRecord);

    void NoteWorkers(int _iWorkers);

    /// Forgets the tasks for which _funGone holds.
    template <typename T_Gone>
    void Forget(T_Gone _funGone)
    {
        const std::lock_guard<std::mutex> lock(m_mtxEntries);
        for (auto itEntry = m_mapEntries.begin(); itEntry != m_mapEntries.end();)
        {
            itEntry = _funGone(*itEntry->second) ? m_mapEntries.erase(itEntry) : std::next(itEntry);
        }
    }

    static std::string MakeCallInfo(const ST_Entry& _stEntry);

    ST_Counts m_stCounts;

private:
    const std::uint64_t m_uiSeed;
    std::atomic<long> m_iLastNumber{0};
    std::mutex m_mtxEntries;            ///< guards m_mapEntries
    std::map<long, Entry> m_mapEntries; ///< by number
};
