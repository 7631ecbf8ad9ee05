#include "tests/machrun/shims/Errno.h"

#include <array>
#include <utility>

namespace
{
/// Linux's and Darwin's numbers, where they differ.
constexpr std::array<std::pair<int, int>, 51> NUMBERS{{
    {EAGAIN, 35},          {EDEADLK, 11},      {EINPROGRESS, 36},  {EALREADY, 37},     {ENOTSOCK, 38},
    {EDESTADDRREQ, 39},    {EMSGSIZE, 40},     {EPROTOTYPE, 41},   {ENOPROTOOPT, 42},  {EPROTONOSUPPORT, 43},
    {ESOCKTNOSUPPORT, 44}, {EOPNOTSUPP, 45},   {EPFNOSUPPORT, 46}, {EAFNOSUPPORT, 47}, {EADDRINUSE, 48},
    {EADDRNOTAVAIL, 49},   {ENETDOWN, 50},     {ENETUNREACH, 51},  {ENETRESET, 52},    {ECONNABORTED, 53},
    {ECONNRESET, 54},      {ENOBUFS, 55},      {EISCONN, 56},      {ENOTCONN, 57},     {ESHUTDOWN, 58},
    {ETOOMANYREFS, 59},    {ETIMEDOUT, 60},    {ECONNREFUSED, 61}, {ELOOP, 62},        {ENAMETOOLONG, 63},
    {EHOSTDOWN, 64},       {EHOSTUNREACH, 65}, {ENOTEMPTY, 66},    {EUSERS, 68},       {EDQUOT, 69},
    {ESTALE, 70},          {EREMOTE, 71},      {ENOLCK, 77},       {ENOSYS, 78},       {EOVERFLOW, 84},
    {ECANCELED, 89},       {EIDRM, 90},        {ENOMSG, 91},       {EILSEQ, 92},       {EBADMSG, 94},
    {EMULTIHOP, 95},       {ENODATA, 96},      {ENOLINK, 97},      {EPROTO, 100},      {ENOTRECOVERABLE, 104},
    {EOWNERDEAD, 105},
}};

thread_local int t_iErrno = 0;
} // namespace

namespace Errno
{
int ToDarwin(int _iLinux)
{
    for (const auto& [iLinux, iDarwin] : NUMBERS)
    {
        if (iLinux == _iLinux)
        {
            return iDarwin;
        }
    }
    return _iLinux;
}

int FromDarwin(int _iDarwin)
{
    for (const auto& [iLinux, iDarwin] : NUMBERS)
    {
        if (iDarwin == _iDarwin)
        {
            return iLinux;
        }
    }
    return _iDarwin;
}

int* GetDarwins() noexcept
{
    return &t_iErrno;
}

int Fail(int _iLinux)
{
    t_iErrno = ToDarwin(_iLinux);
    return -1;
}
} // namespace Errno
