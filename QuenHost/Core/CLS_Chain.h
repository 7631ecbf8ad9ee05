#pragma once

#include <cstddef>

/// The place of an item in a chain. An item has one for each chain that it can be in.
template <typename T_Item>
struct ST_Link
{
    T_Item* m_pPrevious = nullptr;
    T_Item* m_pNext = nullptr;
};

/// A list whose items contain their links. Adding and removing allocate nothing and take constant time.
///
/// Threads: not thread-safe; its user guards it.
///
/// Owns: nothing. An item leaves the chain before it is destroyed.
template <typename T_Item, ST_Link<T_Item> T_Item::*LINK>
class CLS_Chain
{
public:
    CLS_Chain() = default;
    CLS_Chain(const CLS_Chain&) = delete;
    CLS_Chain& operator=(const CLS_Chain&) = delete;

    /// The first item; null for none.
    T_Item* GetFirst() const { return m_pFirst; }

    /// The last item; null for none.
    T_Item* GetLast() const { return m_pLast; }

    /// The item after this one; null for none.
    static T_Item* GetNext(const T_Item& _clsItem) { return (_clsItem.*LINK).m_pNext; }

    /// The item before this one; null for none.
    static T_Item* GetPrevious(const T_Item& _clsItem) { return (_clsItem.*LINK).m_pPrevious; }

    bool IsEmpty() const { return m_pFirst == nullptr; }

    std::size_t GetSize() const { return m_uiSize; }

    /// Adds an item that is not in this chain, at the end.
    void Append(T_Item& _clsItem)
    {
        ST_Link<T_Item>& stLink = _clsItem.*LINK;
        stLink.m_pPrevious = m_pLast;
        stLink.m_pNext = nullptr;
        (m_pLast != nullptr ? (m_pLast->*LINK).m_pNext : m_pFirst) = &_clsItem;
        m_pLast = &_clsItem;
        ++m_uiSize;
    }

    /// Takes an item of this chain out.
    void Remove(T_Item& _clsItem)
    {
        ST_Link<T_Item>& stLink = _clsItem.*LINK;
        (stLink.m_pPrevious != nullptr ? (stLink.m_pPrevious->*LINK).m_pNext : m_pFirst) = stLink.m_pNext;
        (stLink.m_pNext != nullptr ? (stLink.m_pNext->*LINK).m_pPrevious : m_pLast) = stLink.m_pPrevious;
        stLink = {};
        --m_uiSize;
    }

    /// Takes the first item out; null for none.
    T_Item* TakeFirst()
    {
        T_Item* const pItem = m_pFirst;
        if (pItem != nullptr)
        {
            m_pFirst = GetNext(*pItem);
            (m_pFirst != nullptr ? (m_pFirst->*LINK).m_pPrevious : m_pLast) = nullptr;
            pItem->*LINK = {};
            --m_uiSize;
        }
        return pItem;
    }

private:
    T_Item* m_pFirst = nullptr;
    T_Item* m_pLast = nullptr;
    std::size_t m_uiSize = 0;
};
