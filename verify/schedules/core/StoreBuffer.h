#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>

/// The stores of one thread that other threads do not see yet, oldest first.
class CLS_StoreBuffer
{
public:
    bool IsEmpty() const { return m_deqStores.empty(); }

    /// Adds a store. _uiSize is 1, 2, 4 or 8.
    void Add(void* _pPlace, std::uint64_t _uiValue, std::size_t _uiSize);
    /// Finds the last value that the thread stored at this place. False if there is none.
    bool Find(const void* _pPlace, std::uint64_t& _uiValue) const;
    /// Writes the oldest store to memory.
    void ShowOldest();
    /// Writes all stores to memory, oldest first.
    void ShowAll();
    void Clear() { m_deqStores.clear(); }

private:
    struct ST_Store
    {
        void* m_pPlace;
        std::uint64_t m_uiValue;
        std::size_t m_uiSize;
    };
    std::deque<ST_Store> m_deqStores;
};
