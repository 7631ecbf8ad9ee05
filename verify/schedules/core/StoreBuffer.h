#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>

/// Stores of one thread that the others do not see yet, oldest first.
class CLS_StoreBuffer
{
public:
    bool IsEmpty() const { return m_deqStores.empty(); }

    /// _uiSize: 1, 2, 4 or 8.
    void Add(void* _pPlace, std::uint64_t _uiValue, std::size_t _uiSize);
    /// The latest value that the thread stored there itself; false when there is none.
    bool Find(const void* _pPlace, std::uint64_t& _uiValue) const;
    /// Writes the oldest one to memory.
    void ShowOldest();
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
