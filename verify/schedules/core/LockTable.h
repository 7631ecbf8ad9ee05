#pragma once

#include <map>
#include <vector>

/// The holders of each lock. It lists only locks that are held.
class CLS_LockTable
{
public:
    bool IsFree(const void* _pLock) const { return m_mapLocks.count(_pLock) == 0; }
    /// Whether another reader may take the lock.
    bool IsOpen(const void* _pLock) const;

    void Take(const void* _pLock, int _iThread) { m_mapLocks[_pLock].m_iHolder = _iThread; }
    void TakeShared(const void* _pLock, int _iThread) { m_mapLocks[_pLock].m_vecReaders.push_back(_iThread); }
    /// Releases the lock. False if the thread does not hold it.
    bool Give(const void* _pLock, int _iThread);

    /// A held lock between _pBegin and _pEnd; null if there is none.
    const void* FindHeld(const void* _pBegin, const void* _pEnd) const;

    /// The thread that holds the lock, or its readers.
    std::vector<int> GetHolders(const void* _pLock) const;

    void Clear() { m_mapLocks.clear(); }

private:
    struct ST_Lock
    {
        int m_iHolder = -1;
        std::vector<int> m_vecReaders; ///< each one as many times as it has taken the lock
    };
    std::map<const void*, ST_Lock> m_mapLocks;
};
