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
/// The largest number of files that the pool has at a time. It also limits the open files.
///
/// It is less than the number of workers. The pool starts tasks in order, so otherwise the progress would
/// wait behind all files.
constexpr int MAX_JOBS_OPEN = 128;

/// Counts a running task. It is the last object that a task touches.
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

ST_RunResult CLS_HashTree::Run(const fs::path& _pathRoot, int _iInterval)
{
    std::optional<CLS_StatusWatch> clsStatus(
        std::in_place, [this] { ReportStatus(); }, [this] { return CountSteps(); });
    CLS_LoopTask clsProgressTask = StartProgress(_iInterval);
    m_clsWalk.Run(_pathRoot);
    m_clsProgress.m_stCounters.m_bWalking = GetCancelSignal() != 0;
    WaitForFiles();
    const double dSeconds = m_clsProgress.GetSeconds();
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
    m_clsProgress.m_stCounters.m_iBytesFound += error ? 0 : iSize;
    ++m_clsProgress.m_stCounters.m_iFilesFound;
    m_deqFiles.emplace_back(_entry.path().string());
    SubmitFiles();
}

/// Submits as many of the found files as the pool may have now.
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
    if (m_iJobsOpen == MAX_JOBS_OPEN)
    {
        return false;
    }
    ++m_iJobsOpen;
    return true;
}

void CLS_HashTree::Submit(CLS_HashJob& _clsJob)
{
    const auto funTask = [this, pJob = &_clsJob] { RunJob(*pJob); };
    if (!m_clsTasks->Submit(funTask, "hash_tree " + _clsJob.GetPath()))
    {
        _clsJob.Refuse("the pool did not take it");
        FinishJob(_clsJob);
    }
}

void CLS_HashTree::RunJob(CLS_HashJob& _clsJob)
{
    const CLS_TaskInside clsInside(m_iTasksInside);
    _clsJob.Run(m_clsProgress.m_stCounters.m_iBytesDone);
    FinishJob(_clsJob);
}

void CLS_HashTree::FinishJob(const CLS_HashJob& _clsJob)
{
    if (_clsJob.GetState() == n_HashState::Unreadable)
    {
        m_clsProgress.Report("cannot read " + _clsJob.GetPath() + ": " + _clsJob.GetReason());
    }
    if (_clsJob.GetState() != n_HashState::Left)
    {
        ++m_clsProgress.m_stCounters.m_iFilesDone;
    }
    const std::lock_guard<std::mutex> lock(m_mtxJobs);
    --m_iJobsOpen;
    m_cvJobs.notify_one();
}

/// Submits the remaining files, and waits until all are done or a cancel comes.
void CLS_HashTree::WaitForFiles()
{
    bool bAllDone = false;
    while (!bAllDone && GetCancelSignal() == 0)
    {
        SubmitFiles();
        const bool bAllSubmitted = m_iFilesSubmitted == m_deqFiles.size();
        const int iJobsWanted = bAllSubmitted ? 0 : MAX_JOBS_OPEN - 1;
        std::unique_lock<std::mutex> lock(m_mtxJobs);
        // A signal handler cannot notify, so this polls for the signal.
        m_cvJobs.wait_for(lock, std::chrono::milliseconds(50), [&] { return m_iJobsOpen <= iJobsWanted; });
        bAllDone = bAllSubmitted && m_iJobsOpen == 0;
    }
}

void CLS_HashTree::CancelTasks()
{
    if (GetCancelSignal() != 0)
    {
        m_clsTasks->RemoveTasks();
    }
}

/// Prints what the pool is doing.
void CLS_HashTree::ReportStatus()
{
    std::istringstream issStatus(m_clsPool.TakeSnapshot().ToText());
    for (std::string strLine; std::getline(issStatus, strLine);)
    {
        m_clsProgress.WriteLine(strLine);
    }
}

/// Grows as long as the run makes progress.
std::uint64_t CLS_HashTree::CountSteps() const
{
    const ST_Counters& stCounters = m_clsProgress.m_stCounters;
    return stCounters.m_iFilesFound + stCounters.m_iFilesDone + stCounters.m_iBytesDone;
}

ST_RunResult CLS_HashTree::CollectResult(double _dSeconds) const
{
    ST_RunResult stResult;
    stResult.m_dSeconds = _dSeconds;
    stResult.m_iWalkErrors = m_clsWalk.GetErrors();
    stResult.m_iSignal = GetCancelSignal();
    std::vector<const CLS_HashJob*> vecDone;
    for (const CLS_HashJob& clsJob : m_deqFiles)
    {
        const n_HashState enState = clsJob.GetState();
        stResult.m_iUnreadable += enState == n_HashState::Unreadable ? 1 : 0;
        stResult.m_iLeft += enState == n_HashState::Left ? 1 : 0;
        if (enState == n_HashState::Done)
        {
            vecDone.push_back(&clsJob);
        }
    }
    stResult.m_iHashed = vecDone.size();
    std::sort(vecDone.begin(), vecDone.end(),
              [](const CLS_HashJob* _pLeft, const CLS_HashJob* _pRight)
              { return _pLeft->GetPath() < _pRight->GetPath(); });
    for (const CLS_HashJob* pJob : vecDone)
    {
        stResult.m_strSums += FormatChecksumLine(pJob->GetPath(), pJob->GetDigest());
    }
    return stResult;
}
