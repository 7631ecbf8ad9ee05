#include "tests/support/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

// Not every system declares it.
extern char** environ; // NOLINT(readability-redundant-declaration)

namespace
{
/// The ends of a pipe that no other child inherits.
struct ST_Pipe
{
    int m_iRead = -1;
    int m_iWrite = -1;
};

ST_Pipe MakePipe()
{
    std::array<int, 2> arrEnds{};
    if (pipe(arrEnds.data()) != 0)
    {
        throw std::runtime_error("no pipe: " + std::generic_category().message(errno));
    }
    fcntl(arrEnds[0], F_SETFD, FD_CLOEXEC);
    fcntl(arrEnds[1], F_SETFD, FD_CLOEXEC);
    return {arrEnds[0], arrEnds[1]};
}

/// The environment of this process with some variables set anew, as "NAME=value".
std::vector<std::string> MergeEnvironment(const std::map<std::string, std::string>& _mapExtra)
{
    std::vector<std::string> vecMerged;
    for (char** ppEntry = environ; *ppEntry != nullptr; ++ppEntry)
    {
        const std::string strEntry = *ppEntry;
        if (_mapExtra.count(strEntry.substr(0, strEntry.find('='))) == 0)
        {
            vecMerged.push_back(strEntry);
        }
    }
    for (const auto& [strName, strValue] : _mapExtra)
    {
        vecMerged.push_back(strName);
        vecMerged.back() += "=" + strValue;
    }
    return vecMerged;
}

std::vector<char*> ToPointers(std::vector<std::string>& _vecTexts)
{
    std::vector<char*> vecPointers;
    vecPointers.reserve(_vecTexts.size() + 1);
    for (std::string& strText : _vecTexts)
    {
        vecPointers.push_back(strText.data());
    }
    vecPointers.push_back(nullptr);
    return vecPointers;
}

/// The initial state of a new process: default dispositions, no blocked signals, its own process group.
void ResetProcess()
{
    setsid();
    for (const int iSignal : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGTERM})
    {
        std::signal(iSignal, SIG_DFL);
    }
    sigset_t stNone;
    sigemptyset(&stNone);
    pthread_sigmask(SIG_SETMASK, &stNone, nullptr);
}

/// Replaces the new process by the program. On failure, writes the error number to _iFailure.
[[noreturn]] void BecomeProgram(char* const* _ppArguments, char* const* _ppEnvironment, int _iOut, int _iErr,
                                int _iFailure)
{
    ResetProcess();
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(_iOut, STDOUT_FILENO);
    dup2(_iErr, STDERR_FILENO);
    execve(_ppArguments[0], _ppArguments, _ppEnvironment);
    const int iError = errno;
    const ssize_t iWritten = write(_iFailure, &iError, sizeof(iError));
    _exit(iWritten == sizeof(iError) ? 127 : 126);
}

/// The error number that stopped the new process from running its program; 0 if none.
int ReadFailure(int _iFailure)
{
    int iError = 0;
    while (read(_iFailure, &iError, sizeof(iError)) == -1 && errno == EINTR)
    {
    }
    return iError;
}

/// Zero or an error number. No process is left in the latter case.
int Start(pid_t& _iProcess, const std::string& _strProgram, std::vector<std::string> _vecArguments,
          const std::map<std::string, std::string>& _mapEnvironment, int _iOut, int _iErr)
{
    _vecArguments.insert(_vecArguments.begin(), _strProgram);
    std::vector<std::string> vecEnvironment = MergeEnvironment(_mapEnvironment);
    const std::vector<char*> vecArgumentTexts = ToPointers(_vecArguments);
    const std::vector<char*> vecEnvironmentTexts = ToPointers(vecEnvironment);
    const ST_Pipe stFailure = MakePipe();
    _iProcess = fork();
    if (_iProcess == 0)
    {
        BecomeProgram(vecArgumentTexts.data(), vecEnvironmentTexts.data(), _iOut, _iErr, stFailure.m_iWrite);
    }
    int iError = _iProcess == -1 ? errno : 0;
    close(stFailure.m_iWrite);
    if (iError == 0 && (iError = ReadFailure(stFailure.m_iRead)) != 0)
    {
        waitpid(_iProcess, nullptr, 0);
        _iProcess = -1;
    }
    close(stFailure.m_iRead);
    return iError;
}
} // namespace

void PrintTo(const ST_ChildResult& _stResult, std::ostream* _pOut)
{
    *_pOut << "{exit " << _stResult.m_iExit << ", signal " << _stResult.m_iSignal
           << (_stResult.m_bTimedOut ? ", timed out" : "") << ", out \"" << _stResult.m_strOut << "\", err \""
           << _stResult.m_strErr << "\"}";
}

CLS_ChildProcess::CLS_ChildProcess(const std::string& _strProgram,
                                   const std::vector<std::string>& _vecArguments,
                                   const std::map<std::string, std::string>& _mapEnvironment)
{
    // One start at a time: a child must not inherit the pipes that another start has just made.
    static std::mutex s_mtxStart;
    const std::lock_guard<std::mutex> lock(s_mtxStart);
    const ST_Pipe stOut = MakePipe();
    const ST_Pipe stErr = MakePipe();
    const int iError =
        Start(m_iProcess, _strProgram, _vecArguments, _mapEnvironment, stOut.m_iWrite, stErr.m_iWrite);
    close(stOut.m_iWrite);
    close(stErr.m_iWrite);
    if (iError != 0)
    {
        close(stOut.m_iRead);
        close(stErr.m_iRead);
        throw std::runtime_error("cannot start " + _strProgram + ": " +
                                 std::generic_category().message(iError));
    }
    StartReader(m_arrReaders[0], stOut.m_iRead);
    StartReader(m_arrReaders[1], stErr.m_iRead);
}

CLS_ChildProcess::~CLS_ChildProcess()
{
    if (m_iProcess != -1)
    {
        Wait(std::chrono::milliseconds(0));
    }
}

void CLS_ChildProcess::StartReader(ST_Reader& _stReader, int _iFile)
{
    _stReader.m_iFile = _iFile;
    _stReader.m_thReader = std::thread(
        [this, &_stReader]
        {
            std::array<char, 4096> arrPiece{};
            ssize_t iSize = 0;
            while ((iSize = read(_stReader.m_iFile, arrPiece.data(), arrPiece.size())) != 0)
            {
                if (iSize > 0)
                {
                    const std::lock_guard<std::mutex> lock(m_mtxText);
                    _stReader.m_strText.append(arrPiece.data(), static_cast<std::size_t>(iSize));
                }
                else if (errno != EINTR)
                {
                    return;
                }
            }
        });
}

void CLS_ChildProcess::CloseReaders()
{
    for (ST_Reader& stReader : m_arrReaders)
    {
        stReader.m_thReader.join();
        close(stReader.m_iFile);
    }
}

void CLS_ChildProcess::SendSignal(int _iSignal) const
{
    if (m_iProcess != -1)
    {
        kill(m_iProcess, _iSignal);
    }
}

std::string CLS_ChildProcess::GetText(const ST_Reader& _stReader)
{
    const std::lock_guard<std::mutex> lock(m_mtxText);
    return _stReader.m_strText;
}

std::string CLS_ChildProcess::GetOut()
{
    return GetText(m_arrReaders[0]);
}

std::string CLS_ChildProcess::GetErr()
{
    return GetText(m_arrReaders[1]);
}

bool CLS_ChildProcess::HasEnded()
{
    const pid_t iResult = waitpid(m_iProcess, &m_iStatus, WNOHANG);
    return iResult == m_iProcess || (iResult == -1 && errno != EINTR);
}

ST_ChildResult CLS_ChildProcess::Wait(std::chrono::milliseconds _msLimit)
{
    if (m_iProcess == -1)
    {
        return m_stResult;
    }
    m_stResult.m_bTimedOut = !WaitUntil([this] { return HasEnded(); }, _msLimit);
    // Process numbers are reused late: that of a child that has just ended still belongs to no other process.
    kill(-m_iProcess, SIGKILL);
    while (m_stResult.m_bTimedOut && waitpid(m_iProcess, &m_iStatus, 0) == -1 && errno == EINTR)
    {
    }
    m_iProcess = -1;
    CloseReaders();
    m_stResult.m_iExit = WIFEXITED(m_iStatus) ? WEXITSTATUS(m_iStatus) : -1;
    m_stResult.m_iSignal = WIFSIGNALED(m_iStatus) ? WTERMSIG(m_iStatus) : 0;
    m_stResult.m_strOut = GetOut();
    m_stResult.m_strErr = GetErr();
    return m_stResult;
}

ST_ChildResult RunChild(const std::string& _strProgram, const std::vector<std::string>& _vecArguments,
                        const std::map<std::string, std::string>& _mapEnvironment,
                        std::chrono::milliseconds _msLimit)
{
    return CLS_ChildProcess(_strProgram, _vecArguments, _mapEnvironment).Wait(_msLimit);
}

std::string GetLibraryPathName()
{
#ifdef __APPLE__
    return "DYLD_LIBRARY_PATH";
#else
    return "LD_LIBRARY_PATH";
#endif
}
