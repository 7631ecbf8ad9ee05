#pragma once

#include "tests/machrun/shims/Errno.h"

#include <string>
#include <vector>

/// A name of the system's library, with its leading underscore, and the function or object that replaces it.
struct ST_Shim
{
    template <typename T_Object>
    ST_Shim(const char* _szName, T_Object* _pObject)
        : m_szName(_szName), m_pAddress(reinterpret_cast<void*>(_pObject))
    {
    }

    const char* m_szName;
    void* m_pAddress;
};

using Shims = std::vector<ST_Shim>;

/// A Linux function that translates its errno into Darwin's numbers: &CLS_WithErrno<&::read>::Call.
template <auto FUN, typename T_Type = decltype(FUN)>
struct CLS_WithErrno;

template <auto FUN, typename T_Result, typename... T_Arguments, bool NOEXCEPT>
struct CLS_WithErrno<FUN, T_Result (*)(T_Arguments...) noexcept(NOEXCEPT)>
{
    static T_Result Call(T_Arguments... _arguments)
    {
        const CLS_ErrnoScope clsErrno;
        return FUN(_arguments...);
    }
};

template <auto FUN>
constexpr auto WITH_ERRNO = &CLS_WithErrno<FUN>::Call;

/// A Linux function that returns an error number, translated into Darwin's numbers.
template <auto FUN, typename T_Type = decltype(FUN)>
struct CLS_WithResult;

template <auto FUN, typename... T_Arguments, bool NOEXCEPT>
struct CLS_WithResult<FUN, int (*)(T_Arguments...) noexcept(NOEXCEPT)>
{
    static int Call(T_Arguments... _arguments) { return Errno::ToDarwin(FUN(_arguments...)); }
};

template <auto FUN>
constexpr auto WITH_RESULT = &CLS_WithResult<FUN>::Call;
