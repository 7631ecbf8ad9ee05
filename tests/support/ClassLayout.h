#pragma once

#include <algorithm>
#include <cstdint>
#include <typeinfo>
#include <vector>

/// How a class is put together. For tests that look inside.
namespace ClassLayout
{
/// Whether the members of one object lie in memory in this order, which is that of their declarations.
template <typename... Members>
bool AreInOrder(const Members&... _memAll)
{
    const std::vector<std::uintptr_t> vecPlaces{reinterpret_cast<std::uintptr_t>(&_memAll)...};
    return std::is_sorted(vecPlaces.begin(), vecPlaces.end());
}

/// Whether both classes have no base at all, both have a single public one, or both have other bases. The
/// type information is itself of a class for each of the three.
template <typename First, typename Second>
bool HaveAlikeBases()
{
    return typeid(typeid(First)) == typeid(typeid(Second));
}
} // namespace ClassLayout
