#include "verify/schedules/core/StoreBuffer.h"

#include <cstring>

void CLS_StoreBuffer::Add(void* _pPlace, std::uint64_t _uiValue, std::size_t _uiSize)
{
    m_deqStores.push_back({_pPlace, _uiValue, _uiSize});
}

bool CLS_StoreBuffer::Find(const void* _pPlace, std::uint64_t& _uiValue) const
{
    for (auto itStore = m_deqStores.rbegin(); itStore != m_deqStores.rend(); ++itStore)
    {
        if (itStore->m_pPlace == _pPlace)
        {
            _uiValue = itStore->m_uiValue;
            return true;
        }
    }
    return false;
}

void CLS_StoreBuffer::ShowAll()
{
    while (!IsEmpty())
    {
        ShowOldest();
    }
}

void CLS_StoreBuffer::ShowOldest()
{
    const ST_Store& stStore = m_deqStores.front();
    // All supported machines are little-endian.
    std::memcpy(stStore.m_pPlace, &stStore.m_uiValue, stStore.m_uiSize);
    m_deqStores.pop_front();
}
