#include "verify/stress/Model.h"

#include "verify/rules/PoolRules.h"

#include <cstdio>
#include <cstdlib>
#include <iterator>

namespace
{
const std::string CALL_INFO = "stress ";

std::string Describe(const ST_Entry& _stEntry)
{
    const char* const szKind = _stEntry.m_iKind == KIND_TMP    ? "one-shot"
                               : _stEntry.m_iKind == KIND_LOOP ? "loop"
                                                               : "held";
    const auto funFlag = [](const char* _szName, bool _bSet) { return _bSet ? std::string(_szName) : ""; };
    return std::string(szKind) + " task " + std::to_string(_stEntry.m_iNumber) + ": queued " +
           std::to_string(_stEntry.m_iQueued) + ", runs " + std::to_string(_stEntry.m_iRuns) + ", copies " +
           std::to_string(*_stEntry.m_pCopies) + funFlag(", accepted", _stEntry.m_bAccepted) +
           funFlag(", doomed", _stEntry.m_bDoomed) + funFlag(", ended", _stEntry.m_bEnded) +
           funFlag(", overran", _stEntry.m_bOverran) + funFlag(", running", _stEntry.m_bRunning) +
           funFlag(", forgotten", _stEntry.m_bForgotten);
}
} // namespace

void CLS_Model::Break(const std::string& _strWhat) const
{
    std::fflush(stdout);
    std::fprintf(stderr, "stress failed with seed %llu after %lld operations: %s\n",
                 static_cast<unsigned long long>(m_uiSeed),
                 static_cast<long long>(m_stCounts.m_iOperations.load()), _strWhat.c_str());
    std::fflush(stderr);
    std::_Exit(1);
}

void CLS_Model::Break(const std::string& _strWhat, const ST_Entry& _stEntry) const
{
    Break(_strWhat + ", " + Describe(_stEntry));
}

void CLS_Model::RequireUnbroken(const char* _szBroken, const ST_Entry& _stEntry) const
{
    if (_szBroken != nullptr)
    {
        Break(std::string("a task ") + _szBroken, _stEntry);
    }
}

TaskRules::ST_TaskState CLS_Model::GetState(const ST_Entry& _stEntry)
{
    TaskRules::ST_TaskState stTask;
    stTask.m_bLoop = _stEntry.m_iKind == KIND_LOOP;
    stTask.m_iQueued = _stEntry.m_iQueued;
    stTask.m_iBegun = _stEntry.m_iRuns;
    stTask.m_iRunning = _stEntry.m_bRunning ? 1 : 0;
    stTask.m_nsLastEnd = _stEntry.m_tpLastEnd.load().time_since_epoch();
    stTask.m_nsInterval = std::chrono::milliseconds(_stEntry.m_iInterval);
    stTask.m_bRemoved = _stEntry.m_bEnded;
    stTask.m_bOverran = _stEntry.m_bOverran;
    return stTask;
}

Entry CLS_Model::MakeEntry(n_TaskKind _iKind, int _iInterval)
{
    auto pEntry = std::make_shared<ST_Entry>(++m_iLastNumber, _iKind, _iInterval);
    const std::lock_guard<std::mutex> lock(m_mtxEntries);
    m_mapEntries[pEntry->m_iNumber] = pEntry;
    return pEntry;
}

std::vector<Entry> CLS_Model::GetEntries()
{
    std::vector<Entry> vecEntries;
    const std::lock_guard<std::mutex> lock(m_mtxEntries);
    for (const auto& [iNumber, pEntry] : m_mapEntries)
    {
        vecEntries.push_back(pEntry);
    }
    return vecEntries;
}

void CLS_Model::NoteAccepted(ST_Entry& _stEntry)
{
    ++m_stCounts.m_iTasks;
    _stEntry.m_bAccepted = true;
}

void CLS_Model::BeginRun(ST_Entry& _stEntry)
{
    // Notes the run before it checks for a removal. NoteEnded does both in the opposite order.
    const int iRunning = _stEntry.m_bRunning.exchange(true) ? 1 : 0;
    const int iBegun = _stEntry.m_iRuns++;
    TaskRules::ST_TaskState stTask = GetState(_stEntry);
    stTask.m_iRunning = iRunning;
    stTask.m_iBegun = iBegun;
    ++(stTask.m_bLoop ? m_stCounts.m_iLoopRuns : m_stCounts.m_iRuns);
    RequireUnbroken(TaskRules::CheckBegin(stTask, std::chrono::steady_clock::now().time_since_epoch()),
                    _stEntry);
}

void CLS_Model::EndRun(ST_Entry& _stEntry)
{
    _stEntry.m_tpLastEnd = std::chrono::steady_clock::now();
    _stEntry.m_bRunning = false;
}

void CLS_Model::NoteEnded(ST_Entry& _stEntry) const
{
    _stEntry.m_bEnded = true;
    RequireUnbroken(TaskRules::CheckRemoved(GetState(_stEntry)), _stEntry);
}

void CLS_Model::NoteOverrun(const std::string& _strRecord)
{
    ++m_stCounts.m_iOverruns;
    const std::string strBefore = "[callinfo] : [" + CALL_INFO;
    const std::size_t uiFound = _strRecord.find(strBefore);
    if (uiFound == std::string::npos)
    {
        Break("the log record of a timed-out wait names no task: " + _strRecord);
    }
    const long iNumber = std::atol(_strRecord.c_str() + uiFound + strBefore.size());
    const std::lock_guard<std::mutex> lock(m_mtxEntries);
    const auto itEntry = m_mapEntries.find(iNumber);
    if (itEntry != m_mapEntries.end())
    {
        itEntry->second->m_bOverran = true;
    }
}

void CLS_Model::NoteWorkers(int _iWorkers)
{
    if (const char* const szBroken =
            PoolRules::CheckWorkerCount(static_cast<std::size_t>(_iWorkers), MOST_WORKERS - 1))
    {
        Break(szBroken);
    }
    int iMost = m_stCounts.m_iMostWorkers;
    while (iMost < _iWorkers && !m_stCounts.m_iMostWorkers.compare_exchange_weak(iMost, _iWorkers))
    {
    }
}

std::string CLS_Model::MakeCallInfo(const ST_Entry& _stEntry)
{
    return CALL_INFO + std::to_string(_stEntry.m_iNumber);
}
