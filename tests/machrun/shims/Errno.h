#pragma once

#include <cerrno>

/// The numbers of errors, which the two systems do not share, and the errno of Mach-O code, which is another
/// than this program's.
namespace Errno
{
int ToDarwin(int _iLinux);
int FromDarwin(int _iDarwin);

/// The errno of the calling thread as Mach-O code sees it.
int* GetDarwins() noexcept;

/// Sets it, and gives the result of a call that has failed.
int Fail(int _iLinux);
} // namespace Errno

/// While one lives, calls of Linux set this program's errno; at the end it is handed over, if it was set.
class CLS_ErrnoScope
{
public:
    CLS_ErrnoScope() : m_iBefore(errno) { errno = 0; }
    ~CLS_ErrnoScope()
    {
        if (errno != 0)
        {
            *Errno::GetDarwins() = Errno::ToDarwin(errno);
        }
        errno = m_iBefore;
    }
    CLS_ErrnoScope(const CLS_ErrnoScope&) = delete;
    CLS_ErrnoScope& operator=(const CLS_ErrnoScope&) = delete;

private:
    const int m_iBefore;
};
