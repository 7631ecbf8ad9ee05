#include "tests/support/WorkerView.h"

namespace WorkerView
{
std::atomic<bool>& GetRunFlag(CLS_TaskThread& _clsWorker)
{
    return _clsWorker.m_bRun;
}

CLS_Mutex& GetJobLock(CLS_TaskThread& _clsWorker)
{
    return _clsWorker.m_mtxFunction;
}

Job& GetJob(CLS_TaskThread& _clsWorker)
{
    return _clsWorker.m_funFunction;
}

std::condition_variable& GetJobSignal(CLS_TaskThread& _clsWorker)
{
    return _clsWorker.m_cvFunction;
}

std::unique_ptr<std::thread>& GetThread(CLS_TaskThread& _clsWorker)
{
    return _clsWorker.m_pThread;
}

std::atomic<std::int32_t>& GetOrderWord(CLS_TaskThread& _clsWorker)
{
    return _clsWorker.m_iOrderId;
}

std::atomic<std::chrono::steady_clock::time_point>& GetLastActive(CLS_TaskThread& _clsWorker)
{
    return _clsWorker.m_tpLastActive;
}

bool HasBacklog(const CLS_TaskThread& _clsWorker)
{
    return _clsWorker.m_bBacklog;
}

ClassLayout::Members ListMembers(const CLS_TaskThread& _clsWorker)
{
    return {ClassLayout::Describe("m_bRun", _clsWorker.m_bRun),
            ClassLayout::Describe("m_mtxFunction", _clsWorker.m_mtxFunction),
            ClassLayout::Describe("m_funFunction", _clsWorker.m_funFunction),
            ClassLayout::Describe("m_cvFunction", _clsWorker.m_cvFunction),
            ClassLayout::Describe("m_pThread", _clsWorker.m_pThread),
            ClassLayout::Describe("m_iOrderId", _clsWorker.m_iOrderId),
            ClassLayout::Describe("m_tpLastActive", _clsWorker.m_tpLastActive),
            ClassLayout::Describe("m_clsRunGate", _clsWorker.m_clsRunGate)};
}

const CLS_RunGate& GetRunGate(const CLS_TaskThread& _clsWorker)
{
    return _clsWorker.m_clsRunGate;
}

bool RunPass(CLS_TaskThread& _clsWorker, std::int32_t& _iShownId)
{
    return _clsWorker.RunNextJob(_iShownId);
}

void RequestEnd(CLS_TaskThread& _clsWorker)
{
    _clsWorker.RequestEnd();
}
} // namespace WorkerView
