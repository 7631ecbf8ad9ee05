#include "examples/hash_tree/StandardStreams.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace
{
/// Opens a closed stream in a way that makes its use fail.
void KeepPlace(int _iStream, int _iFlags)
{
    if (fcntl(_iStream, F_GETFD) == -1 && errno == EBADF)
    {
        // The system gives the lowest free number. If streams are kept in order, it is this one.
        static_cast<void>(open("/dev/null", _iFlags));
    }
}
} // namespace

void GuardStandardStreams()
{
    KeepPlace(STDIN_FILENO, O_WRONLY);
    KeepPlace(STDOUT_FILENO, O_RDONLY);
    KeepPlace(STDERR_FILENO, O_RDONLY);
    std::signal(SIGPIPE, SIG_IGN);
}

std::string FlushStandardOutput()
{
    if (std::fflush(stdout) != 0)
    {
        return std::generic_category().message(errno);
    }
    return std::ferror(stdout) != 0 ? "a part of it is lost" : "";
}
