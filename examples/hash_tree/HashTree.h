#pragma once

#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/CLS_PoolScope.h"
#include "QuenHost/CLS_TaskOwner.h"
#include "examples/hash_tree/Checksums.h"
#include "examples/hash_tree/HashJob.h"
#include "examples/hash_tree/Progress.h"
#include "examples/hash_tree/StatusWatch.h"
#include "examples/hash_tree/TreeWalk.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

/// The result of a run.
struct ST_RunResult
{
    std::uint64_t m_iHashed = 0;
    std::uint64_t m_iUnreadable = 0;
    std::uint64_t m_iLeft = 0;       ///< found, but not hashed because of a cancel
    std::uint64_t m_iWalkErrors = 0; ///< directories and entries that could not be read
    double m_dSeconds = 0;           ///< until the last file was done
    int m_iSignal = 0;               ///< the signal that cancelled the run; 0 if none did
    std::string m_strSums;           ///< the lines of the hashed files, sorted by path
};

/// Hashes the files of a directory tree, each in a task of the pool.
///
/// Threads: one, and one run. The tasks use this object: HasTasks tells whether it may be destroyed.
class CLS_HashTree
{
public:
    /// Takes over the pool, and shuts it down at the latest when this object is destroyed.
    ///
    /// It leaves out the files that _clsOutput and _pTrace write; _pTrace may be null.
    ///
    /// Owns: the pool. It keeps references to _clsOutput and _clsProgress.
    CLS_HashTree(CLS_PoolScope _clsPool, const CLS_ChecksumFile& _clsOutput, CLS_Progress& _clsProgress,
                 std::shared_ptr<CLS_TraceFile> _pTrace);

    /// Walks the tree, hashes its regular files, and shuts the pool down.
    ///
    /// Draws the progress every _iInterval milliseconds.
    ///
    /// Waits: until every file is done, or until shortly after a cancel.
    ST_RunResult Run(const std::filesystem::path& _pathRoot, int _iInterval);

    /// Returns whether tasks that outlasted the shutdown still use this object: reads that do not return.
    bool HasTasks() const { return m_iTasksInside.load() != 0; }

private:
    CLS_LoopTask StartProgress(int _iInterval);
    bool IsOwnFile(const std::filesystem::path& _path) const;
    void AddFile(const std::filesystem::directory_entry& _entry);
    void SubmitFiles();
    bool TakeTurn();
    void Submit(CLS_HashJob& _clsJob);
    void RunJob(CLS_HashJob& _clsJob);
    void FinishJob(const CLS_HashJob& _clsJob);
    void WaitForFiles();
    void CancelTasks();
    void ReportStatus();
    std::uint64_t CountSteps() const;
    ST_RunResult CollectResult(double _dSeconds) const;

    const CLS_ChecksumFile& m_clsOutput;
    const std::shared_ptr<CLS_TraceFile> m_pTrace; ///< null for none
    CLS_Progress& m_clsProgress;

    CLS_TreeWalk m_clsWalk;
    std::deque<CLS_HashJob> m_deqFiles; ///< tasks point to the elements, which a deque never moves
    std::size_t m_iFilesSubmitted = 0;

    std::mutex m_mtxJobs;
    std::condition_variable m_cvJobs;
    int m_iJobsOpen = 0; ///< files that the pool has; guarded by m_mtxJobs
    std::atomic<int> m_iTasksInside{0};

    CLS_PoolScope m_clsPool; ///< shuts down before what the tasks use is destroyed
    std::optional<CLS_TaskOwner> m_clsTasks{std::in_place, m_clsPool, "hash_tree"};
};
