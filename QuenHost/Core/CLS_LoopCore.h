#pragma once

#include "QuenHost/Core/CLS_QueuedTask.h"
#include "QuenHost/Core/CLS_TaskGroup.h"

#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <string>

/// A task that the kit has added to the pool. It is a loop task of the pool, so that it can be removed.
struct ST_PoolRecord
{
    std::string m_strTaskId;     ///< "" for none; written while it is added, constant from then on
    std::uint64_t m_uiEpoch = 0; ///< of a carrier: the hub's epoch when it was requested
    bool m_bBusy = false;        ///< of a carrier: runs the host's code; guarded by the hub's mutex
    bool m_bArrived = false;     ///< its first run has begun
    std::chrono::steady_clock::time_point m_tpFinished;
    /// Its entry in the lists of the hub, made ahead of time, so that finishing allocates nothing.
    std::list<std::shared_ptr<ST_PoolRecord>> m_lstPlace{nullptr};
    std::list<std::shared_ptr<ST_PoolRecord>>::iterator m_itPlace = m_lstPlace.begin();
    bool m_bEntered = false;  ///< it is, or was, in a list of the hub; guarded by the hub's mutex
    bool m_bFinished = false; ///< it is, or was, in the list of records to be removed; guarded likewise
};

/// The hub's part of a CLS_LoopTask.
///
/// A run in progress keeps it alive, even after the CLS_LoopTask.
///
/// Threads: the hub's mutex guards all but what is constant.
///
/// Owns: the callable.
class CLS_LoopCore
{
public:
    CLS_LoopCore(std::shared_ptr<CLS_TaskGroup> _pGroup, std::unique_ptr<CLS_QueuedTask> _pTask,
                 std::chrono::milliseconds _msInterval)
        : m_pGroup(std::move(_pGroup)), m_msInterval(_msInterval), m_pTask(std::move(_pTask))
    {
    }

    CLS_LoopCore(const CLS_LoopCore&) = delete;
    CLS_LoopCore& operator=(const CLS_LoopCore&) = delete;

    const std::shared_ptr<CLS_TaskGroup> m_pGroup;
    const std::chrono::milliseconds m_msInterval;
    std::shared_ptr<ST_PoolRecord> m_pRecord = std::make_shared<ST_PoolRecord>();
    std::unique_ptr<CLS_QueuedTask> m_pTask;       ///< null once removed
    std::chrono::steady_clock::time_point m_tpDue; ///< the next run, unless one is in progress
    bool m_bClosed = false;                        ///< no run starts
    bool m_bLeft = false;                          ///< the run in progress destroys the callable
    ST_Link<CLS_LoopCore> m_stHubLink;             ///< among the loop tasks of the hub
};
