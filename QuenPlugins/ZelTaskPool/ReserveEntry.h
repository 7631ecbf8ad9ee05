#pragma once

#include <utility>

/// Makes one entry of a map or a set ahead of time. Inserting it later needs no memory and cannot fail.
///
/// Fails: std::bad_alloc and the exceptions of the entry's copies propagate.
template <typename T_Container, typename... T_Values>
typename T_Container::node_type ReserveEntry(T_Values&&... _valAll)
{
    T_Container clsOne;
    return clsOne.extract(clsOne.emplace(std::forward<T_Values>(_valAll)...).first);
}
