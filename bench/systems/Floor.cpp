// The floor: the least that a pool with this one's contract can do.

#include "bench/systems/CLS_FloorPool.h"
#include "bench/workloads/CLS_System.h"

namespace
{
class CLS_Floor : public CLS_System
{
public:
    unsigned GetThreadLimit() const override { return CLS_FloorPool::MOST_WORKERS; }

    void Submit(const std::function<void()>& _funTask, void* _pOwner) override
    {
        m_clsPool.AddTask(_funTask, _pOwner);
    }

    bool HasRemoval() const override { return true; }
    void Remove(void* _pOwner) override { m_clsPool.RemoveTasks(_pOwner); }

    bool HasLoops() const override { return true; }
    void AddLoop(const std::function<void()>& _funTask, int _iInterval) override
    {
        m_clsPool.AddLoop(_funTask, std::chrono::milliseconds(_iInterval));
    }
    void RemoveLoops() override { m_clsPool.RemoveLoops(); }

private:
    CLS_FloorPool m_clsPool;
};
} // namespace

const char* System::GetName()
{
    return "floor";
}

std::string System::Describe()
{
    return "the least that a pool with this contract can do";
}

bool System::HasThreadSetting()
{
    return false;
}

std::unique_ptr<CLS_System> System::Make(const ST_Setup& /*_stSetup*/)
{
    return std::make_unique<CLS_Floor>();
}
