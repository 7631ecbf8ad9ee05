// oneTBB: tasks of task groups, one for each owner, in an arena.

#include "bench/workloads/CLS_System.h"

#include <map>
#include <mutex>
#include <optional>
#include <tbb/global_control.h>
#include <tbb/task_arena.h>
#include <tbb/task_group.h>
#include <tbb/version.h>

namespace
{
class CLS_Tbb : public CLS_System
{
public:
    explicit CLS_Tbb(unsigned _uiThreads)
    {
        if (_uiThreads != 0)
        {
            m_clsLimit.emplace(tbb::global_control::max_allowed_parallelism, _uiThreads + 1);
            // No thread joins, so no slot waits for one.
            m_clsArena.initialize(static_cast<int>(_uiThreads), 0);
        }
        else
        {
            m_clsArena.initialize();
        }
    }

    ~CLS_Tbb() override
    {
        for (auto& [pOwner, clsGroup] : m_mapGroups)
        {
            clsGroup.wait();
        }
    }

    unsigned GetThreadLimit() const override
    {
        // By default, one slot of the arena waits for a thread that joins.
        return static_cast<unsigned>(m_clsArena.max_concurrency()) - (m_clsLimit ? 0 : 1);
    }

    void Submit(const std::function<void()>& _funTask, void* _pOwner) override
    {
        m_clsArena.enqueue(GetGroup(_pOwner).defer(_funTask));
    }

    bool HasRemoval() const override { return true; }
    void Remove(void* _pOwner) override
    {
        tbb::task_group& clsGroup = GetGroup(_pOwner);
        clsGroup.cancel();
        clsGroup.wait();
    }

private:
    tbb::task_group& GetGroup(void* _pOwner)
    {
        const std::lock_guard<std::mutex> lock(m_mtxGroups);
        return m_mapGroups[_pOwner];
    }

    std::optional<tbb::global_control> m_clsLimit;
    tbb::task_arena m_clsArena;
    std::mutex m_mtxGroups; ///< guards m_mapGroups
    std::map<void*, tbb::task_group> m_mapGroups;
};
} // namespace

const char* System::GetName()
{
    return "oneTBB";
}

std::string System::Describe()
{
    return "oneTBB " TBB_VERSION_STRING
           ", task_arena with task_group; by default, one slot waits for a thread that joins";
}

bool System::HasThreadSetting()
{
    return true;
}

std::unique_ptr<CLS_System> System::Make(const ST_Setup& _stSetup)
{
    return std::make_unique<CLS_Tbb>(_stSetup.m_uiThreads);
}
