// The owner maps: which owner submitted which one-shot task.

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"
#include "QuenPlugins/ZelTaskPool/ReserveEntry.h"

namespace
{
/// The id's place in the list, or the list's end. Searches outward from _itNear.
std::list<std::string>::iterator FindNear(std::list<std::string>& _lstTaskIds,
                                          std::list<std::string>::iterator _itNear,
                                          const std::string& _strTaskId)
{
    auto itForward = _itNear;
    auto itBackward = _itNear;
    while (itForward != _lstTaskIds.end() || itBackward != _lstTaskIds.begin())
    {
        if (itForward != _lstTaskIds.end() && *itForward++ == _strTaskId)
        {
            return std::prev(itForward);
        }
        if (itBackward != _lstTaskIds.begin() && *--itBackward == _strTaskId)
        {
            return itBackward;
        }
    }
    return _lstTaskIds.end();
}
} // namespace

void CLS_QuenTaskPool::AddOwnedTask(std::string _strTaskId, void* _pObj)
{
    auto clsOwner = ReserveEntry<decltype(m_mapTmpTaskOwner)>(_strTaskId, _pObj);
    std::list<std::string> lstTaskId;
    lstTaskId.push_back(std::move(_strTaskId));
    const CLS_LockGuard lock(m_mtxTmpTasks);
    auto itTasks = m_mapTmpTasks.find(_pObj);
    if (itTasks == m_mapTmpTasks.end())
    {
        // The cursor first: if there is no memory for the list, no cursor may be left behind.
        auto clsCursor =
            ReserveEntry<decltype(m_mapTmpTaskCursors)>(_pObj, std::list<std::string>::iterator());
        itTasks = m_mapTmpTasks.try_emplace(_pObj).first;
        clsCursor.mapped() = itTasks->second.end();
        m_mapTmpTaskCursors.insert(std::move(clsCursor));
    }
    itTasks->second.splice(itTasks->second.end(), lstTaskId);
    m_mapTmpTaskOwner.insert(std::move(clsOwner)).position->second = _pObj;
}

void CLS_QuenTaskPool::RemoveTmpTask(const std::string& _strTaskId)
{
    // What is dropped is freed after the lock is released.
    decltype(m_mapTmpTaskOwner)::node_type clsOwner;
    decltype(m_mapTmpTasks)::node_type clsTasks;
    decltype(m_mapTmpTaskCursors)::node_type clsCursor;
    std::list<std::string> lstDropped;
    const CLS_LockGuard lock(m_mtxTmpTasks);
    clsOwner = m_mapTmpTaskOwner.extract(_strTaskId);
    if (clsOwner.empty())
    {
        return;
    }
    const auto itTasks = m_mapTmpTasks.find(clsOwner.mapped());
    if (itTasks == m_mapTmpTasks.end())
    {
        return;
    }
    std::list<std::string>& lstTaskIds = itTasks->second;
    auto& itCursor = m_mapTmpTaskCursors.try_emplace(itTasks->first, lstTaskIds.begin()).first->second;
    const auto itTaskId = FindNear(lstTaskIds, itCursor, _strTaskId);
    if (itTaskId != lstTaskIds.end())
    {
        itCursor = std::next(itTaskId);
        lstDropped.splice(lstDropped.begin(), lstTaskIds, itTaskId);
    }
    if (lstTaskIds.empty())
    {
        clsCursor = m_mapTmpTaskCursors.extract(itTasks->first);
        clsTasks = m_mapTmpTasks.extract(itTasks);
    }
}

std::list<std::string> CLS_QuenTaskPool::TakeOwnedTasks(void* _pObj)
{
    const CLS_LockGuard lock(m_mtxTmpTasks);
    m_mapTmpTaskCursors.erase(_pObj);
    auto clsEntry = m_mapTmpTasks.extract(_pObj);
    if (clsEntry.empty())
    {
        return {};
    }
    for (const std::string& strTaskId : clsEntry.mapped())
    {
        m_mapTmpTaskOwner.erase(strTaskId);
    }
    return std::move(clsEntry.mapped());
}
