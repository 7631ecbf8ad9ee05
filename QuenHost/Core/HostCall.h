#pragma once

#include "QuenHost/CLS_StopToken.h"

#include <cstddef>
#include <type_traits>
#include <utility>
#if __cplusplus >= 202002L
#include <version>
#endif
#ifdef __cpp_lib_jthread
#include <stop_token>
#endif

/// Calls the callables that a host submits.
///
/// A callable takes the kit's arguments, such as the result of a step, and then one of these:
/// - a CLS_StopToken;
/// - a std::stop_token, if the standard library has it;
/// - nothing.
namespace HostCall
{
/// Stands for the result of a step that returns nothing.
struct ST_Nothing
{
};

template <typename T_Callable, typename... T_Arguments>
constexpr bool TAKES_TOKEN = std::is_invocable_v<T_Callable&, T_Arguments..., CLS_StopToken>;

#ifdef __cpp_lib_jthread
template <typename T_Callable, typename... T_Arguments>
constexpr bool TAKES_STANDARD_TOKEN = !TAKES_TOKEN<T_Callable, T_Arguments...> &&
                                      std::is_invocable_v<T_Callable&, T_Arguments..., std::stop_token>;

/// Calls the callable with a standard token that follows the kit's.
template <typename T_Callable, typename... T_Arguments>
decltype(auto) CallWithStandardToken(T_Callable& _funTask, const CLS_StopToken& _clsToken,
                                     T_Arguments&&... _clsArguments)
{
    std::stop_source clsSource;
    const CLS_StopCallback clsFollow(_clsToken, [&clsSource] { clsSource.request_stop(); });
    return _funTask(std::forward<T_Arguments>(_clsArguments)..., clsSource.get_token());
}
#endif

/// Calls the callable with the arguments and the token that it takes.
template <typename T_Callable, typename... T_Arguments>
decltype(auto) Call(T_Callable& _funTask, const CLS_StopToken& _clsToken, T_Arguments&&... _clsArguments)
{
    if constexpr (TAKES_TOKEN<T_Callable, T_Arguments...>)
    {
        return _funTask(std::forward<T_Arguments>(_clsArguments)..., _clsToken);
    }
#ifdef __cpp_lib_jthread
    else if constexpr (TAKES_STANDARD_TOKEN<T_Callable, T_Arguments...>)
    {
        return CallWithStandardToken(_funTask, _clsToken, std::forward<T_Arguments>(_clsArguments)...);
    }
#endif
    else
    {
        static_assert(
            std::is_invocable_v<T_Callable&, T_Arguments...>,
            "a callable takes the result before it, if there is one, and then a stop token or nothing");
        return _funTask(std::forward<T_Arguments>(_clsArguments)...);
    }
}

/// The same for a callable after a step that returns nothing.
template <typename T_Callable>
decltype(auto) Call(T_Callable& _funTask, const CLS_StopToken& _clsToken, ST_Nothing&& /*_stNothing*/)
{
    return HostCall::Call(_funTask, _clsToken);
}

/// What the callable returns.
template <typename T_Callable, typename... T_Arguments>
using Result = decltype(HostCall::Call(std::declval<T_Callable&>(), std::declval<const CLS_StopToken&>(),
                                       std::declval<T_Arguments>()...));

template <typename T_Callable, typename = void>
inline constexpr bool MAY_BE_EMPTY = false;
template <typename T_Callable>
inline constexpr bool
    MAY_BE_EMPTY<T_Callable, std::void_t<decltype(std::declval<const T_Callable&>() == nullptr)>> =
        std::is_constructible_v<T_Callable, std::nullptr_t>;

/// Whether the callable is an empty function object or a null function pointer.
template <typename T_Callable>
bool IsEmpty(const T_Callable& _funTask)
{
    if constexpr (MAY_BE_EMPTY<T_Callable>)
    {
        return _funTask == nullptr;
    }
    else
    {
        static_cast<void>(_funTask);
        return false;
    }
}
} // namespace HostCall
