#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <typeinfo>
#include <vector>

/// The layout of a class, for tests that look inside.
namespace ClassLayout
{
/// One data member of one object.
struct ST_Member
{
    const char* m_szName;
    const void* m_pPlace;
    std::size_t m_uiSize;

    /// Whether the address lies in the member.
    bool Contains(const void* _pPlace) const
    {
        const auto* const pBegin = static_cast<const char*>(m_pPlace);
        const auto* const pPlace = static_cast<const char*>(_pPlace);
        return pPlace >= pBegin && pPlace < pBegin + m_uiSize;
    }
};

using Members = std::vector<ST_Member>;

template <typename T_Member>
ST_Member Describe(const char* _szName, const T_Member& _memOne)
{
    return {_szName, &_memOne, sizeof(T_Member)};
}

/// Whether the members of one object lie in memory in this order, which is that of their declarations.
inline bool AreInOrder(const Members& _vecMembers)
{
    return std::is_sorted(_vecMembers.begin(), _vecMembers.end(),
                          [](const ST_Member& _stFirst, const ST_Member& _stSecond)
                          { return std::less<>()(_stFirst.m_pPlace, _stSecond.m_pPlace); });
}

/// Whether both classes have no base, both have a single public one, or both have other bases. Each of these
/// three cases has its own class of type information.
template <typename T_First, typename T_Second>
bool HaveAlikeBases()
{
    return typeid(typeid(T_First)) == typeid(typeid(T_Second));
}

template <typename T_Member, typename T_Object>
T_Member DeclareMember(T_Member& (*_funGet)(T_Object&));

/// The type of the member that a function of a view returns.
template <auto GET_MEMBER>
using MemberOf = decltype(DeclareMember(GET_MEMBER));
} // namespace ClassLayout
