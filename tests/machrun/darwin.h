// machrun: what the shims share. "d" prefixes a function as the loaded macOS
// program sees it; plain names are those of the Linux C library.
#pragma once
#include <cerrno>
#include <cstddef>
#include <cstdint>

namespace machrun
{

struct ShimEntry
{
    const char* name; // C name with the leading underscore of the file format
    void* address;
};
struct ShimTable
{
    const ShimEntry* entries;
    size_t count;
};
ShimTable coreShims();
ShimTable fileShims();
ShimTable pthreadShims();
ShimTable localeShims();
ShimTable passThrough();

int errnoToDarwin(int linuxErrno);
int errnoFromDarwin(int darwinErrno);
extern "C" int* darwinErrno(); // what __error() returns

// Runs a Linux function and hands its errno over in Darwin's numbering.
class ErrnoScope
{
public:
    ErrnoScope() : m_saved(errno) { errno = 0; }
    ~ErrnoScope()
    {
        if (errno)
            *darwinErrno() = errnoToDarwin(errno);
        errno = m_saved;
    }

private:
    int m_saved;
};

template <class T, T F>
struct WithErrnoOf;
template <class R, class... A, bool N, R (*F)(A...) noexcept(N)>
struct WithErrnoOf<R (*)(A...) noexcept(N), F>
{
    static R call(A... a)
    {
        ErrnoScope scope;
        return F(a...);
    }
};
template <auto F>
using WithErrno = WithErrnoOf<decltype(F), F>;

// For functions that return the error number (pthread style).
template <class T, T F>
struct WithResultOf;
template <class... A, bool N, int (*F)(A...) noexcept(N)>
struct WithResultOf<int (*)(A...) noexcept(N), F>
{
    static int call(A... a) { return errnoToDarwin(F(a...)); }
};
template <auto F>
using WithResult = WithResultOf<decltype(F), F>;

#define SHIM_ERRNO(name)                                                                                     \
    {                                                                                                        \
        "_" #name, reinterpret_cast<void*>(&WithErrno<&::name>::call)                                        \
    }
#define SHIM_RESULT(name)                                                                                    \
    {                                                                                                        \
        "_" #name, reinterpret_cast<void*>(&WithResult<&::name>::call)                                       \
    }
#define SHIM(name)                                                                                           \
    {                                                                                                        \
        "_" #name, reinterpret_cast<void*>(&d_##name)                                                        \
    }
#define SHIM_AS(symbol, fn)                                                                                  \
    {                                                                                                        \
        symbol, reinterpret_cast<void*>(&fn)                                                                 \
    }
#define SHIM_DATA(symbol, object)                                                                            \
    {                                                                                                        \
        symbol, static_cast<void*>(&object)                                                                  \
    }

int signalFromDarwin(int number);
int signalToDarwin(int number);

} // namespace machrun
