#pragma once

// Deliveries to the host's thread. Included by CLS_PoolHub.h.

#include "QuenHost/Core/CLS_PoolHub.h"
#include "QuenHost/Core/CLS_Ticket.h"

inline CLS_Ticket::~CLS_Ticket()
{
    m_pHub->DropDelivery(*this, nullptr);
}

inline void CLS_Ticket::Deliver()
{
    m_pHub->RunDelivery(*this);
}

inline bool CLS_PoolHub::Post(std::unique_ptr<CLS_QueuedTask>&& _pTask, const F_HostPost& _funPost)
{
    const auto pTicket = std::make_shared<CLS_Ticket>(shared_from_this());
    std::function<void()> funDeliver = [pTicket] { pTicket->Deliver(); };
    CLS_RemovedTasks clsRefused(GetTrace());
    {
        const Lock lock(m_mtxHub);
        _pTask->m_uiNumber = ++m_uiNumbers;
        _pTask->m_pTicket = pTicket.get();
        if (!Accepts(*_pTask))
        {
            clsRefused.Add(*_pTask.release());
            return false;
        }
        pTicket->m_pTask = _pTask.release();
        pTicket->m_pTask->m_pGroup->m_chnPosted.Append(*pTicket->m_pTask);
    }
    const std::exception_ptr pException = PoolCall::Catch([&] { _funPost(std::move(funDeliver)); });
    if (pException)
    {
        DropDelivery(*pTicket, pException);
    }
    return !pException;
}

/// Delivers, on the host's thread.
inline void CLS_PoolHub::RunDelivery(CLS_Ticket& _clsTicket)
{
    const auto funDeliver = [this](CLS_QueuedTask& _clsTask, ST_Run& _stRun)
    { Execute(_clsTask, _stRun, "deliver", DescribeFlow(_clsTask.m_uiNumber, "in")); };
    EndDelivery(_clsTicket, funDeliver);
}

/// Reports a delivery that the host's thread will not run.
inline void CLS_PoolHub::DropDelivery(CLS_Ticket& _clsTicket, const std::exception_ptr& _pException) noexcept
{
    const auto funReport = [&](const CLS_QueuedTask& _clsTask, ST_Run& _stRun)
    {
        _stRun.m_bFailed = true;
        Report(*_clsTask.m_pGroup, n_FailureKind::NotDelivered, _clsTask.m_strCallInfo, _pException);
    };
    EndDelivery(_clsTicket, funReport);
}

/// Takes the delivery, unless it was taken, and calls _funEnd as a run of its owner. Removals wait for that.
template <typename T_End>
void CLS_PoolHub::EndDelivery(CLS_Ticket& _clsTicket, T_End _funEnd)
{
    Lock lock(m_mtxHub);
    const std::unique_ptr<CLS_QueuedTask> pTask(TakePosted(_clsTicket));
    if (!pTask)
    {
        return;
    }
    const ST_RunThread stThread;
    ST_Run stRun{*pTask, stThread, Clock::now()};
    stRun.m_bDelivery = true;
    BeginRun(stRun);
    lock.unlock();
    _funEnd(*pTask, stRun);
    pTask->DestroyCallable();
    lock.lock();
    EndRun(stRun);
    lock.unlock();
}
