#include "verify/schedules/core/LockTable.h"

#include <algorithm>

bool CLS_LockTable::IsOpen(const void* _pLock) const
{
    const auto itLock = m_mapLocks.find(_pLock);
    return itLock == m_mapLocks.end() || itLock->second.m_iHolder < 0;
}

bool CLS_LockTable::Give(const void* _pLock, int _iThread)
{
    const auto itLock = m_mapLocks.find(_pLock);
    if (itLock == m_mapLocks.end())
    {
        return false;
    }
    ST_Lock& stLock = itLock->second;
    const auto itReader = std::find(stLock.m_vecReaders.begin(), stLock.m_vecReaders.end(), _iThread);
    if (itReader != stLock.m_vecReaders.end())
    {
        stLock.m_vecReaders.erase(itReader);
    }
    else if (stLock.m_iHolder != _iThread)
    {
        return false;
    }
    if (stLock.m_vecReaders.empty())
    {
        m_mapLocks.erase(itLock);
    }
    return true;
}

const void* CLS_LockTable::FindHeld(const void* _pBegin, const void* _pEnd) const
{
    const auto itLock = m_mapLocks.lower_bound(_pBegin);
    return itLock != m_mapLocks.end() && itLock->first < _pEnd ? itLock->first : nullptr;
}

std::vector<int> CLS_LockTable::GetHolders(const void* _pLock) const
{
    const auto itLock = m_mapLocks.find(_pLock);
    if (itLock == m_mapLocks.end())
    {
        return {};
    }
    const ST_Lock& stLock = itLock->second;
    return stLock.m_iHolder < 0 ? stLock.m_vecReaders : std::vector<int>{stLock.m_iHolder};
}
