#include "QuenPlugins/ZelTaskPool/TaskPoolExports.h"

#include "QuenPlugins/ZelTaskPool/CLS_QuenTaskPool.h"

bool AddTmpTask(const std::function<void()>& _funTask, void* _pObj, const std::string& _strCallInfo)
{
    return CLS_QuenTaskPool::GetInstance()->AddTmpTask(_funTask, _pObj, _strCallInfo);
}

void RemoveTmpTask(void* _pObj, const std::string& _strCallInfo)
{
    CLS_QuenTaskPool::GetInstance()->RemoveTmpTask(_pObj, _strCallInfo);
}

void AddLoopTask(const std::function<void()>& _funTask, int _iInterval, std::string& _strTaskId,
                 const std::string& _strCallInfo)
{
    CLS_QuenTaskPool::GetInstance()->AddLoopTask(_funTask, _iInterval, _strTaskId, _strCallInfo);
}

void RemoveTask(const std::string& _strTaskId, const std::string& _strCallInfo)
{
    CLS_QuenTaskPool::GetInstance()->RemoveTask(_strTaskId, _strCallInfo);
}

void KillTask(const std::string& _strTaskId, const std::string& _strCallInfo)
{
    CLS_QuenTaskPool::GetInstance()->RemoveTask(_strTaskId, _strCallInfo);
}

void KillTaskAll()
{
    CLS_QuenTaskPool::GetInstance()->KillTaskAll();
}

void UnInit()
{
    CLS_QuenTaskPool::GetInstance()->UnInit();
}
