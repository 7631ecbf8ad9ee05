#pragma once

#include <memory>
#include <utility>

class CLS_PoolHub;
class CLS_QueuedTask;

/// The host thread's reference to a delivery that was posted to it.
///
/// Threads: any.
///
/// Owns: nothing. A removal may take the delivery at any time.
class CLS_Ticket
{
public:
    explicit CLS_Ticket(std::shared_ptr<CLS_PoolHub> _pHub) : m_pHub(std::move(_pHub)) {}

    /// Reports a delivery that the host has dropped as a failure.
    ~CLS_Ticket();

    CLS_Ticket(const CLS_Ticket&) = delete;
    CLS_Ticket& operator=(const CLS_Ticket&) = delete;

    /// Delivers once, unless the owner's tasks have been removed.
    void Deliver();

    CLS_QueuedTask* m_pTask = nullptr; ///< null after delivery or removal; guarded by the hub's mutex

private:
    const std::shared_ptr<CLS_PoolHub> m_pHub;
};
