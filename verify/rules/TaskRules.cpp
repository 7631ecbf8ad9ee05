#include "verify/rules/TaskRules.h"

const char* TaskRules::CheckBegin(const ST_TaskState& _stTask, std::chrono::nanoseconds _nsNow)
{
    if (_stTask.m_bRemoved && !_stTask.m_bOverran)
    {
        return BEGINS_REMOVED;
    }
    if (_stTask.m_iRunning > 0 && !_stTask.m_bMayOverlap)
    {
        return OVERLAPS;
    }
    if (!_stTask.m_bLoop)
    {
        return _stTask.m_iBegun < _stTask.m_iQueued ? nullptr : RUNS_TOO_OFTEN;
    }
    const bool bEarly = _stTask.m_iBegun > 0 && _nsNow - _stTask.m_nsLastEnd < _stTask.m_nsInterval;
    return bEarly ? BEGINS_EARLY : nullptr;
}

const char* TaskRules::CheckRemoved(const ST_TaskState& _stTask)
{
    return _stTask.m_iRunning > 0 && !_stTask.m_bOverran ? STILL_RUNS : nullptr;
}

bool TaskRules::HasRun(const ST_TaskState& _stTask)
{
    return _stTask.m_bLoop ? _stTask.m_iBegun >= _stTask.m_iQueued : _stTask.m_iBegun == _stTask.m_iQueued;
}
