#pragma once

#include <exception>
#include <optional>
#include <string>

/// \file
/// The one place that differs in a program without exceptions: there, what the library or a task throws ends
/// the program. All sources of a program must agree on whether they have exceptions.

namespace PoolCall
{
/// Calls _funCall and returns what it throws; null when it throws nothing.
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

/// What an exception says, for the user. One that has no text, or is not derived from std::exception, is
/// unknown.
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

/// Calls _funCall and turns what it throws into a text for the user; empty when it throws nothing.
template <typename T_Call>
std::optional<std::string> Guard(T_Call&& _funCall)
{
    const std::exception_ptr pError = Catch(_funCall);
    return pError ? std::optional<std::string>(Describe(pError)) : std::nullopt;
}
} // namespace PoolCall
