// The pool through its bare functions, opened at run time as hosts open it.

#include "QuenHost/CLS_PoolScope.h"
#include "bench/support/RetrySleeps.h"
#include "bench/workloads/CLS_System.h"

#include <stdexcept>
#include <vector>

namespace
{
const std::string CALL_INFO = "benchmark";

class CLS_Ours : public CLS_System
{
public:
    explicit CLS_Ours(const std::string& _strLibrary) : m_clsPool(CLS_PoolLibrary(_strLibrary)) {}

    unsigned GetThreadLimit() const override { return 301; }

    void Submit(const std::function<void()>& _funTask, void* _pOwner) override
    {
        if (!m_clsPool.GetFunctions().m_funAddTmpTask(_funTask, _pOwner, CALL_INFO))
        {
            throw std::runtime_error("the pool refused a task");
        }
    }

    bool HasRemoval() const override { return true; }
    void Remove(void* _pOwner) override { m_clsPool.GetFunctions().m_funRemoveTmpTask(_pOwner, CALL_INFO); }

    bool HasLoops() const override { return true; }
    void AddLoop(const std::function<void()>& _funTask, int _iInterval) override
    {
        std::string strTaskId;
        m_clsPool.GetFunctions().m_funAddLoopTask(_funTask, _iInterval, strTaskId, CALL_INFO);
        m_vecLoops.push_back(strTaskId);
    }
    void RemoveLoops() override
    {
        for (const std::string& strTaskId : m_vecLoops)
        {
            m_clsPool.GetFunctions().m_funRemoveTask(strTaskId, CALL_INFO);
        }
        m_vecLoops.clear();
    }

    std::optional<std::uint64_t> GetRetries() const override { return CountRetrySleeps(); }

private:
    const CLS_PoolScope m_clsPool;
    std::vector<std::string> m_vecLoops;
};
} // namespace

const char* System::GetName()
{
    return "ours";
}

std::string System::Describe()
{
    return "this pool";
}

bool System::HasThreadSetting()
{
    return false;
}

std::unique_ptr<CLS_System> System::Make(const ST_Setup& _stSetup)
{
    const std::string& strLibrary = _stSetup.m_strLibrary;
    return std::make_unique<CLS_Ours>(strLibrary.empty() ? CLS_PoolLibrary::GetUsualName() : strLibrary);
}
