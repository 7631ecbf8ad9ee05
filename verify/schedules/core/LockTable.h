#pragma once

#include <map>
#include <vector>

/// Which threads hold which lock. Knows only the locks that are held.
class CLS_LockTable
{
public:
    bool IsFree(const void* _pLock) const { return m_mapLocks.count(_pLock) == 0; }
    /// Whether one more reader is let in.
    bool IsOpen(const void* _pLock) const;

    void Take(const void* _pLock, int _iThread) { m_mapLocks[_pLock].m_iHolder = _iThread; }
    void TakeShared(const void* _pLock, int _iThread) { m_mapLocks[_pLock].m_vecReaders.push_back(_iThread); }
    /// False when the thread does not hold it.
    bool Give(const void* _pLock, int _iThread);

    /// A held lock from _pBegin up to _pEnd; null when there is none.
    const void* FindHeld(const void* _pBegin, const void* _pEnd) const;

    /// The thread that holds it, or its readers.
    std::vector<int> GetHolders(const void* _pLock) const;

    void Clear() { m_mapLocks.clear(); }

private:
    struct ST_Lock
    {
        int m_iHolder = -1;
        std::vector<int> m_vecReaders; ///< as often as each of them took it
    };
    std::map<const void*, ST_Lock> m_mapLocks;
};
