#include "QuenHost/CLS_PoolScope.h"
#include "QuenHost/CLS_TraceFile.h"
#include "examples/hash_tree/CancelSignal.h"
#include "examples/hash_tree/Checksums.h"
#include "examples/hash_tree/HashTree.h"
#include "examples/hash_tree/Progress.h"
#include "examples/hash_tree/StandardStreams.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace
{
enum n_ExitCode
{
    AllDone = 0,
    SomeFailed = 1,
    Trouble = 2,
    SignalBase = 128 ///< plus the number of the signal that cancelled
};

struct ST_HashOptions
{
    std::string m_strRoot = "/usr/include";
    std::string m_strOutput = "SHA256SUMS";
    std::string m_strLibrary = CLS_PoolLibrary::GetUsualName();
    std::optional<std::string> m_strTrace;
    std::optional<int> m_iInterval;
};

constexpr char FOOTER[] =
    R"(Ctrl-C (or SIGTERM, or SIGHUP) cancels: the sums that are done are written. A second one ends the program
at once, without sums.
SIGUSR1 (on macOS also SIGINFO, Ctrl-T) prints what the pool is doing; and so do 10 s without progress.

Exit codes:
  0    every file was hashed
  1    some files or directories could not be read, or the sums, the trace or the output could not be written
  2    wrong usage, or the pool library could not be used
  129  cancelled by SIGHUP: its terminal was closed
  130  cancelled by Ctrl-C
  143  cancelled by SIGTERM

Environment of the logging library, when the pool library finds it:
  ZEL_LOG_FILE   the file to log to, instead of standard error
  ZEL_LOG_LEVEL  the least level to log: 0 finest detail, 1 detail, 2 progress, 3 errors
                 (2 with ZEL_LOG_FILE, 3 otherwise, if not set))";

void DescribeOptions(CLI::App& _app, ST_HashOptions& _stOptions)
{
    _app.add_option("directory", _stOptions.m_strRoot, "The directory whose regular files are hashed")
        ->check(CLI::ExistingDirectory)
        ->capture_default_str();
    _app.add_option("--output", _stOptions.m_strOutput, "The file for the sums, which sha256sum -c reads")
        ->type_name("FILE")
        ->capture_default_str();
    _app.add_option("--library", _stOptions.m_strLibrary,
                    "The pool library; a name without a slash is searched for next to the program first")
        ->type_name("PATH")
        ->capture_default_str();
    _app.add_option("--trace", _stOptions.m_strTrace,
                    "The file for a trace of every task, which Perfetto and chrome://tracing open")
        ->type_name("FILE");
    _app.add_option("--progress-interval", _stOptions.m_iInterval,
                    "Milliseconds between two progress lines (200 at a terminal, 1000 otherwise)")
        ->type_name("MS")
        ->check(CLI::Range(10, 3600000));
    _app.footer(FOOTER);
    _app.failure_message([](const CLI::App* _pApp, const CLI::Error& _error)
                         { return "hash_tree: " + CLI::FailureMessage::simple(_pApp, _error); });
}

/// Keeps the pool's log records of progress out of standard error, unless the user asks for them.
///
/// One of them, "task id is fail", sounds like a failure. It appears when a task was removed while it was
/// queued, as a loop task may be at the end of a normal run.
void LimitLog()
{
    // There is no other thread yet.
    const char* const szFile = std::getenv("ZEL_LOG_FILE"); // NOLINT(concurrency-mt-unsafe)
    if (szFile == nullptr || *szFile == '\0')
    {
        setenv("ZEL_LOG_LEVEL", "3", 0); // NOLINT(concurrency-mt-unsafe)
    }
}

/// Returns null if no trace is wanted. Fails: CLS_TraceError.
std::shared_ptr<CLS_TraceFile> OpenTrace(const std::optional<std::string>& _strPath)
{
    return _strPath ? CLS_TraceFile::Create(*_strPath, "hash_tree") : nullptr;
}

void ReportCancel(const ST_RunResult& _stResult, CLS_Progress& _clsProgress)
{
    const char* pWalk = _clsProgress.m_stCounters.m_bWalking ? " of those found so far" : "";
    _clsProgress.Report("cancelled with " + std::to_string(_stResult.m_iLeft) + " files left" + pWalk);
}

void PrintSummary(const ST_RunResult& _stResult, const CLS_Progress& _clsProgress)
{
    const std::uint64_t iBytes = _clsProgress.m_stCounters.m_iBytesDone;
    const double dSeconds = std::max(_stResult.m_dSeconds, 0.001);
    const std::string strRate = FormatBytes(static_cast<double>(iBytes) / dSeconds) + "/s";
    const std::string strCounts = std::to_string(_stResult.m_iUnreadable) + " unreadable, " +
                                  std::to_string(_stResult.m_iLeft) + " left, " +
                                  std::to_string(_stResult.m_iWalkErrors) + " walk errors";
    std::printf("%s files hashed, %s bytes in %.2f seconds, %s\n%s\n",
                std::to_string(_stResult.m_iHashed).c_str(), std::to_string(iBytes).c_str(), dSeconds,
                strRate.c_str(), strCounts.c_str());
}

/// Prints a message and returns false if the sums cannot be written.
bool PublishSums(CLS_ChecksumFile& _clsOutput, const ST_RunResult& _stResult, CLS_Progress& _clsProgress)
{
    try
    {
        _clsOutput.Publish(_stResult.m_strSums);
        return true;
    }
    catch (const CLS_OutputError& error)
    {
        _clsProgress.Report(error.what());
        return false;
    }
}

/// Prints a message and returns false if there is a trace that cannot be written.
bool CloseTrace(CLS_TraceFile* _pTrace, CLS_Progress& _clsProgress)
{
    try
    {
        if (_pTrace != nullptr)
        {
            _pTrace->Close();
        }
        return true;
    }
    catch (const CLS_TraceError& error)
    {
        _clsProgress.Report(error.what());
        return false;
    }
}

int GetExitCode(const ST_RunResult& _stResult, bool _bWritten)
{
    if (_stResult.m_iSignal != 0)
    {
        return SignalBase + _stResult.m_iSignal;
    }
    const bool bAllRead = _stResult.m_iUnreadable == 0 && _stResult.m_iWalkErrors == 0;
    return bAllRead && _bWritten ? AllDone : SomeFailed;
}

/// Flushes standard output. Returns the exit code, which is a failure if output is lost.
int FinishOutput(int _iExitCode)
{
    const std::string strReason = FlushStandardOutput();
    if (strReason.empty())
    {
        return _iExitCode;
    }
    std::fprintf(stderr, "hash_tree: cannot write to standard output: %s\n", strReason.c_str());
    return _iExitCode == AllDone ? SomeFailed : _iExitCode;
}

int RunHost(const ST_HashOptions& _stOptions)
{
    LimitLog();
    CatchCancelSignals();
    CLS_PoolLibrary clsLibrary(_stOptions.m_strLibrary);
    CLS_ChecksumFile clsOutput(_stOptions.m_strOutput);
    const std::shared_ptr<CLS_TraceFile> pTrace = OpenTrace(_stOptions.m_strTrace);
    CLS_PoolScope clsPool(std::move(clsLibrary), ST_ScopeOptions{{}, pTrace});
    CLS_Progress clsProgress;
    CLS_HashTree clsTree(std::move(clsPool), clsOutput, clsProgress, pTrace);

    const int iInterval = _stOptions.m_iInterval.value_or(clsProgress.GetUsualInterval());
    const ST_RunResult stResult = clsTree.Run(_stOptions.m_strRoot, iInterval);
    if (stResult.m_iSignal != 0)
    {
        ReportCancel(stResult, clsProgress);
    }
    PrintSummary(stResult, clsProgress);
    const bool bPublished = PublishSums(clsOutput, stResult, clsProgress);
    if (bPublished)
    {
        std::printf("sums in %s\n", _stOptions.m_strOutput.c_str());
    }
    const bool bTraced = CloseTrace(pTrace.get(), clsProgress);
    const int iExitCode = GetExitCode(stResult, bPublished && bTraced);
    if (clsTree.HasTasks())
    {
        // They may continue at any moment, so nothing that they use may be destroyed.
        std::_Exit(FinishOutput(iExitCode));
    }
    return iExitCode;
}

int RunProgram(int _iArguments, char** _pArguments)
{
    ST_HashOptions stOptions;
    CLI::App app("Hashes every regular file of a directory tree with SHA-256, in tasks of the pool.");
    try
    {
        DescribeOptions(app, stOptions);
        app.parse(_iArguments, _pArguments);
        return RunHost(stOptions);
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == 0 ? AllDone : Trouble;
    }
    catch (const CLS_OutputError& error)
    {
        std::fprintf(stderr, "hash_tree: %s\n", error.what());
        return SomeFailed;
    }
    catch (const CLS_TraceError& error)
    {
        std::fprintf(stderr, "hash_tree: %s\n", error.what());
        return SomeFailed;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "hash_tree: %s\n", error.what());
        return Trouble;
    }
}
} // namespace

// Only a stream that fails while it prints an error may throw here.
int main(int argc, char** argv) // NOLINT(bugprone-exception-escape)
{
    GuardStandardStreams();
    return FinishOutput(RunProgram(argc, argv));
}
