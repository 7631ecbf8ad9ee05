#pragma once

#include <atomic>
#include <chrono>

/// The progress of the work on a folder.
struct ST_FolderCounts
{
    int m_iFound = 0;       ///< pictures in the folder
    int m_iMade = 0;        ///< how many of these are done, including broken ones
    int m_iBroken = 0;      ///< how many of these have no thumbnail
    double m_dSeconds = 0;  ///< since the beginning
    bool m_bListed = false; ///< the folder was read

    bool IsComplete() const { return m_bListed && m_iMade == m_iFound; }
};

/// Counts the progress of the work on a folder. Tasks share it, so it may outlive the window.
///
/// Threads: any.
class CLS_FolderProgress
{
public:
    void SetFound(int _iFound)
    {
        m_iFound = _iFound;
        m_bListed = true;
    }

    void AddMade(bool _bBroken)
    {
        m_iBroken += _bBroken ? 1 : 0;
        ++m_iMade;
    }

    /// Returns the counts. They match each other once the work is complete.
    ST_FolderCounts GetCounts() const
    {
        ST_FolderCounts stCounts;
        stCounts.m_bListed = m_bListed;
        stCounts.m_iFound = m_iFound;
        stCounts.m_iMade = m_iMade;
        stCounts.m_iBroken = m_iBroken;
        stCounts.m_dSeconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - m_tpStart).count();
        return stCounts;
    }

private:
    const std::chrono::steady_clock::time_point m_tpStart = std::chrono::steady_clock::now();
    std::atomic<bool> m_bListed{false};
    std::atomic<int> m_iFound{0};
    std::atomic<int> m_iMade{0};
    std::atomic<int> m_iBroken{0};
};
