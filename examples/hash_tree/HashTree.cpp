#include "examples/hash_tree/HashTree.h"

#include "examples/hash_tree/CancelSignal.h"

#include <algorithm>
#include <chrono>
#include <sstream>
#include <system_error>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace
{
/// How many files are with the pool at a time. Fewer than the pool has workers, since it starts tasks in the
/// order in which they come: the progress would wait behind all files. It also bounds the files open at once.
constexpr int g_iMaxJobsOpen = 128;

/// Counts a task that is at work; the last thing that a task touches.
class CLS_TaskInside
{
public:
    explicit CLS_TaskInside(std::atomic<int>& _iTasks) : m_iTasks(_iTasks) { ++m_iTasks; }
    ~CLS_TaskInside() { --m_iTasks; }

    CLS_TaskInside(const CLS_TaskInside&) = delete;
    CLS_TaskInside& operator=(const CLS_TaskInside&) = delete;

private:
    std::atomic<int>& m_iTasks;
};
} // namespace

CLS_HashTree::CLS_HashTree(CLS_PoolScope _clsPool, const CLS_ChecksumFile& _clsOutput,
                           CLS_Progress& _clsProgress, std::shared_ptr<CLS_TraceFile> _pTrace)
    : m_clsOutput(_clsOutput), m_pTrace(std::move(_pTrace)), m_clsProgress(_clsProgress),
      m_clsWalk(_clsProgress, [this](const fs::directory_entry& _entry) { AddFile(_entry); }),
      m_clsPool(std::move(_clsPool))
{
}

CLS_RunResult CLS_HashTree::Run(const fs::path& _pathRoot, int _iInterval)
{
    std::optional<CLS_StatusWatch> clsStatus(
        std::in_place, [this] { ReportStatus(); }, [this] { return CountSteps(); });
    CLS_LoopTask clsProgressTask = StartProgress(_iInterval);
    m_clsWalk.Run(_pathRoot);
    m_clsProgress.m_clsCounters.m_bWalking = CancelSignal() != 0;
    WaitForFiles();
    const double dSeconds = m_clsProgress.Seconds();
    CancelTasks();
    clsProgressTask.Remove();
    m_clsProgress.DrawLast();
    m_clsTasks.reset();
    clsStatus.reset();
    m_clsPool.End();
    return CollectResult(dSeconds);
}

CLS_LoopTask CLS_HashTree::StartProgress(int _iInterval)
{
    const auto funDraw = [this]
    {
        const CLS_TaskInside clsInside(m_iTasksInside);
        m_clsProgress.Draw();
    };
    return CLS_LoopTask(m_clsPool, funDraw, _iInterval, "hash_tree progress");
}

bool CLS_HashTree::IsOwnFile(const fs::path& _path) const
{
    return m_clsOutput.IsSelf(_path) || (m_pTrace && m_pTrace->IsSelf(_path));
}

void CLS_HashTree::AddFile(const fs::directory_entry& _entry)
{
    if (IsOwnFile(_entry.path()))
    {
        return;
    }
    std::error_code error;
    const std::uintmax_t iSize = _entry.file_size(error);
    m_clsProgress.m_clsCounters.m_iBytesFound += error ? 0 : iSize;
    ++m_clsProgress.m_clsCounters.m_iFilesFound;
    m_deqFiles.emplace_back(_entry.path().string());
    SubmitFiles();
}

/// Submits as many of the files that were found as the pool may have now.
void CLS_HashTree::SubmitFiles()
{
    while (m_iFilesSubmitted < m_deqFiles.size() && TakeTurn())
    {
        Submit(m_deqFiles[m_iFilesSubmitted++]);
    }
}

bool CLS_HashTree::TakeTurn()
{
    const std::lock_guard<std::mutex> lock(m_mtxJobs);
    if (m_iJobsOpen == g_iMaxJobsOpen)
    {
        return false;
    }
    ++m_iJobsOpen;
    return true;
}

void CLS_HashTree::Submit(CLS_HashJob& _clsJob)
{
    const auto funTask = [this, pJob = &_clsJob] { RunJob(*pJob); };
    if (!m_clsTasks->Submit(funTask, "hash_tree " + _clsJob.Path()))
    {
        _clsJob.Refuse("the pool did not take it");
        FinishJob(_clsJob);
    }
}

void CLS_HashTree::RunJob(CLS_HashJob& _clsJob)
{
    const CLS_TaskInside clsInside(m_iTasksInside);
    _clsJob.Run(m_clsProgress.m_clsCounters.m_iBytesDone);
    FinishJob(_clsJob);
}

void CLS_HashTree::FinishJob(const CLS_HashJob& _clsJob)
{
    if (_clsJob.State() == n_HashState::Unreadable)
    {
        m_clsProgress.Report("cannot read " + _clsJob.Path() + ": " + _clsJob.Reason());
    }
    if (_clsJob.State() != n_HashState::Left)
    {
        ++m_clsProgress.m_clsCounters.m_iFilesDone;
    }
    const std::lock_guard<std::mutex> lock(m_mtxJobs);
    --m_iJobsOpen;
    m_cvJobs.notify_one();
}

/// Submits the rest of the files, and waits until all are dealt with or a cancel is asked for.
void CLS_HashTree::WaitForFiles()
{
    bool bAllDone = false;
    while (!bAllDone && CancelSignal() == 0)
    {
        SubmitFiles();
        const bool bAllSubmitted = m_iFilesSubmitted == m_deqFiles.size();
        const int iJobsWanted = bAllSubmitted ? 0 : g_iMaxJobsOpen - 1;
        std::unique_lock<std::mutex> lock(m_mtxJobs);
        // A signal handler cannot notify: look for the signal now and then.
        m_cvJobs.wait_for(lock, std::chrono::milliseconds(50), [&] { return m_iJobsOpen <= iJobsWanted; });
        bAllDone = bAllSubmitted && m_iJobsOpen == 0;
    }
}

void CLS_HashTree::CancelTasks()
{
    if (CancelSignal() != 0)
    {
        m_clsTasks->RemoveTasks();
    }
}

/// Shows what the pool is doing.
void CLS_HashTree::ReportStatus()
{
    std::istringstream issStatus(m_clsPool.TakeSnapshot().ToText());
    for (std::string strLine; std::getline(issStatus, strLine);)
    {
        m_clsProgress.Report(strLine);
    }
}

/// Grows as long as the run gets on.
std::uint64_t CLS_HashTree::CountSteps() const
{
    const CLS_Counters& clsCounters = m_clsProgress.m_clsCounters;
    return clsCounters.m_iFilesFound + clsCounters.m_iFilesDone + clsCounters.m_iBytesDone;
}

CLS_RunResult CLS_HashTree::CollectResult(double _dSeconds) const
{
    CLS_RunResult clsResult;
    clsResult.m_dSeconds = _dSeconds;
    clsResult.m_iWalkErrors = m_clsWalk.Errors();
    clsResult.m_iSignal = CancelSignal();
    std::vector<const CLS_HashJob*> vecDone;
    for (const CLS_HashJob& clsJob : m_deqFiles)
    {
        const n_HashState enState = clsJob.State();
        clsResult.m_iUnreadable += enState == n_HashState::Unreadable ? 1 : 0;
        clsResult.m_iLeft += enState == n_HashState::Left ? 1 : 0;
        if (enState == n_HashState::Done)
        {
            vecDone.push_back(&clsJob);
        }
    }
    clsResult.m_iHashed = vecDone.size();
    std::sort(vecDone.begin(), vecDone.end(),
              [](const CLS_HashJob* _pLeft, const CLS_HashJob* _pRight)
              { return _pLeft->Path() < _pRight->Path(); });
    for (const CLS_HashJob* pJob : vecDone)
    {
        clsResult.m_strSums += FormatChecksumLine(pJob->Path(), pJob->Digest());
    }
    return clsResult;
}
