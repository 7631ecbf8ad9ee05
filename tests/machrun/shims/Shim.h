#pragma once

#include "tests/machrun/shims/Errno.h"

#include <string>
#include <vector>

/// A name of the system's library, with its leading underscore, and what stands for it: a function or an
/// object.
struct ST_Shim
{
    template <typename OBJECT>
    ST_Shim(const char* _szName, OBJECT* _pObject)
        : m_szName(_szName), m_pAddress(reinterpret_cast<void*>(_pObject))
    {
    }

    const char* m_szName;
    void* m_pAddress;
};

using Shims = std::vector<ST_Shim>;

/// A Linux function that hands its errno over in Darwin's numbering: &CLS_WithErrno<&::read>::Call.
template <auto FUN, typename TYPE = decltype(FUN)>
struct CLS_WithErrno;

template <auto FUN, typename RESULT, typename... ARGUMENTS, bool NOEXCEPT>
struct CLS_WithErrno<FUN, RESULT (*)(ARGUMENTS...) noexcept(NOEXCEPT)>
{
    static RESULT Call(ARGUMENTS... _arguments)
    {
        const CLS_ErrnoScope clsErrno;
        return FUN(_arguments...);
    }
};

template <auto FUN>
constexpr auto WITH_ERRNO = &CLS_WithErrno<FUN>::Call;

/// A Linux function whose result is an error number, which it gives in Darwin's numbering.
template <auto FUN, typename TYPE = decltype(FUN)>
struct CLS_WithResult;

template <auto FUN, typename... ARGUMENTS, bool NOEXCEPT>
struct CLS_WithResult<FUN, int (*)(ARGUMENTS...) noexcept(NOEXCEPT)>
{
    static int Call(ARGUMENTS... _arguments) { return Errno::ToDarwin(FUN(_arguments...)); }
};

template <auto FUN>
constexpr auto WITH_RESULT = &CLS_WithResult<FUN>::Call;
