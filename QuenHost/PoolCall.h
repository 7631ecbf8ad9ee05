#pragma once

#include <exception>
#include <optional>
#include <string>

namespace PoolCall
{
/// The text for what is thrown without one.
inline constexpr const char* UNKNOWN = "unknown exception";

/// Calls _funCall and turns what it throws into a text for the user; empty when it throws nothing.
///
/// The one place that differs in a program without exceptions: there, what the library throws ends the
/// program. All sources of a program must agree on whether they have exceptions.
template <typename T_Call>
std::optional<std::string> Guard(const T_Call& _funCall)
{
#ifdef __cpp_exceptions
    try
    {
        _funCall();
        return std::nullopt;
    }
    catch (const std::exception& error)
    {
        const char* const szText = error.what();
        return szText != nullptr ? szText : UNKNOWN;
    }
    catch (...)
    {
        return UNKNOWN;
    }
#else
    _funCall();
    return std::nullopt;
#endif
}
} // namespace PoolCall
