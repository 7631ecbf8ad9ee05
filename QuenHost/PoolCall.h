#pragma once

#include <exception>
#include <optional>
#include <string>

/// \file
/// The only code of the kit that differs in a program without exceptions.
///
/// In such a program, an exception from the library or from a task ends the program. Compile all sources of a
/// program alike: with exceptions, or without.

namespace PoolCall
{
/// Calls _funCall and returns its exception; null if it throws nothing.
template <typename T_Call>
std::exception_ptr Catch(T_Call&& _funCall) noexcept
{
#ifdef __cpp_exceptions
    try
    {
        _funCall();
    }
    catch (...)
    {
        return std::current_exception();
    }
#else
    _funCall();
#endif
    return nullptr;
}

/// The text of an exception, for the user: "unknown exception" if it has no text or is not a std::exception.
inline std::string Describe(const std::exception_ptr& _pError)
{
#ifdef __cpp_exceptions
    try
    {
        std::rethrow_exception(_pError);
    }
    catch (const std::exception& error)
    {
        if (const char* const szText = error.what())
        {
            return szText;
        }
    }
    catch (...)
    {
    }
#else
    static_cast<void>(_pError);
#endif
    return "unknown exception";
}

/// Calls _funCall and returns the text of its exception for the user; empty if it throws nothing.
template <typename T_Call>
std::optional<std::string> Guard(T_Call&& _funCall)
{
    const std::exception_ptr pError = Catch(_funCall);
    return pError ? std::optional<std::string>(Describe(pError)) : std::nullopt;
}
} // namespace PoolCall
