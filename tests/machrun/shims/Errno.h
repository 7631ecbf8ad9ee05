#pragma once

#include <cerrno>

/// Error numbers, and the errno of Mach-O code.
///
/// The two systems have different error numbers. The errno of Mach-O code is not that of this program.
namespace Errno
{
int ToDarwin(int _iLinux);
int FromDarwin(int _iDarwin);

/// The errno of the calling thread as Mach-O code sees it.
int* GetDarwins() noexcept;

/// Sets it, and returns the result of a failed call.
int Fail(int _iLinux);
} // namespace Errno

/// Calls of Linux functions during its life set this program's errno. The destructor translates that errno
/// for Mach-O code, if it was set.
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
