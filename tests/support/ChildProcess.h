#pragma once

#include "tests/support/Waiting.h"

#include <array>
#include <chrono>
#include <map>
#include <mutex>
#include <ostream>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

/// How a child process ended and what it wrote.
struct ST_ChildResult
{
    bool m_bTimedOut = false; ///< it was killed because its time was up
    int m_iExit = -1;         ///< exit status; -1 when a signal ended it
    int m_iSignal = 0;        ///< the signal that ended it; 0 when it exited
    std::string m_strOut;
    std::string m_strErr;
};

void PrintTo(const ST_ChildResult& _stResult, std::ostream* _pOut);

/// A program that runs as a child in a process group of its own, with an empty standard input. Collects its
/// output. Kills what is left of its group when it ends.
///
/// Belongs to one thread. The signal dispositions and the mask of the child are the default ones for the
/// signals that end a program.
class CLS_ChildProcess
{
public:
    /// Starts the program with this process's environment plus _mapEnvironment. Throws std::runtime_error if
    /// the program cannot be started.
    explicit CLS_ChildProcess(const std::string& _strProgram,
                              const std::vector<std::string>& _vecArguments = {},
                              const std::map<std::string, std::string>& _mapEnvironment = {});

    /// Kills the child when it still runs.
    ~CLS_ChildProcess();

    CLS_ChildProcess(const CLS_ChildProcess&) = delete;
    CLS_ChildProcess& operator=(const CLS_ChildProcess&) = delete;

    /// Sends a signal to the child alone. No effect once Wait has returned.
    void SendSignal(int _iSignal) const;

    /// The child's output so far.
    std::string GetOut();
    std::string GetErr();

    /// Waits for the child to end. Kills it at the time limit.
    ST_ChildResult Wait(std::chrono::milliseconds _msLimit = WAIT_LIMIT);

private:
    struct ST_Reader
    {
        int m_iFile = -1;
        std::string m_strText; ///< guarded by m_mtxText
        std::thread m_thReader;
    };

    void StartReader(ST_Reader& _stReader, int _iFile);
    void CloseReaders();
    std::string GetText(const ST_Reader& _stReader);
    /// Whether the child has ended; fetches its status then.
    bool HasEnded();

    std::mutex m_mtxText; ///< guards the texts of the readers
    std::array<ST_Reader, 2> m_arrReaders;
    pid_t m_iProcess = -1; ///< -1 once everything of the child was fetched
    int m_iStatus = 0;     ///< as the system gives it
    ST_ChildResult m_stResult;
};

/// Runs a program to its end.
ST_ChildResult RunChild(const std::string& _strProgram, const std::vector<std::string>& _vecArguments = {},
                        const std::map<std::string, std::string>& _mapEnvironment = {},
                        std::chrono::milliseconds _msLimit = WAIT_LIMIT);

/// The name of the variable in which the dynamic loader looks for folders of libraries.
std::string GetLibraryPathName();
