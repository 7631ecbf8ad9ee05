// Measures how long a process takes to exit with a busy pool:
//
//   zel_exit_times_host LIBRARY FINISHED TIMES
//
// First, FINISHED tasks run to their end and the pool is shut down. Their task records stay. Then TIMES
// children inherit these records. Each builds its own pool, keeps it busy and returns from main with status
// 7. Its time starts there.

#include "tests/hosts/BusyPool.h"

#include <algorithm>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace
{
using std::chrono::steady_clock;

constexpr int STATUS = 7;

/// The work of a child. Returns the status of its main.
int ReturnBusy(const CLS_HostLibrary& _clsPool, int _iPipe)
{
    BusyPool::KeepBusy(_clsPool);
    const steady_clock::rep nReturned = steady_clock::now().time_since_epoch().count();
    return write(_iPipe, &nReturned, sizeof nReturned) == sizeof nReturned ? STATUS : 5;
}

/// The time from the return of a child's main to its end. The child sends the former through the pipe.
steady_clock::duration WaitForEnd(pid_t _iChild, int _iPipe)
{
    int iStatus = 0;
    const bool bEnded = waitpid(_iChild, &iStatus, 0) == _iChild;
    const steady_clock::duration nsNow = steady_clock::now().time_since_epoch();
    steady_clock::rep nReturned = 0;
    if (!bEnded || !WIFEXITED(iStatus) || WEXITSTATUS(iStatus) != STATUS ||
        read(_iPipe, &nReturned, sizeof nReturned) != sizeof nReturned)
    {
        std::cerr << "a child ended with the wait status " << iStatus << std::endl;
        std::exit(1);
    }
    return nsNow - steady_clock::duration(nReturned);
}

void Print(std::vector<steady_clock::duration> _vecTimes, const std::string& _strFinished)
{
    std::sort(_vecTimes.begin(), _vecTimes.end());
    const auto funMilliseconds = [](steady_clock::duration _nsTime)
    { return std::chrono::duration_cast<std::chrono::milliseconds>(_nsTime).count(); };
    std::cout << _vecTimes.size() << " processes with " << _strFinished
              << " finished tasks ended with status " << STATUS << " within "
              << funMilliseconds(_vecTimes.front()) << " to " << funMilliseconds(_vecTimes.back())
              << " ms, half of them within " << funMilliseconds(_vecTimes[_vecTimes.size() / 2]) << " ms"
              << std::endl;
}
} // namespace

int main(int _iCount, char** _ppTexts)
{
    if (_iCount != 4)
    {
        return 64;
    }
    static const CLS_HostLibrary s_clsPool(_ppTexts[1]);
    BusyPool::RunToTheEnd(s_clsPool, std::stoi(_ppTexts[2]));
    s_clsPool.m_pUnInit();
    int arrPipe[2] = {};
    if (pipe(arrPipe) != 0)
    {
        return 5;
    }
    std::vector<steady_clock::duration> vecTimes;
    for (int i = 0; i < std::stoi(_ppTexts[3]); ++i)
    {
        const pid_t iChild = fork();
        if (iChild == 0)
        {
            return ReturnBusy(s_clsPool, arrPipe[1]);
        }
        vecTimes.push_back(WaitForEnd(iChild, arrPipe[0]));
    }
    Print(vecTimes, _ppTexts[2]);
    return 0;
}
