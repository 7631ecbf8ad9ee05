// The pool through the host kit.

#include "QuenHost/CLS_LoopTask.h"
#include "QuenHost/CLS_PoolScope.h"
#include "QuenHost/CLS_TaskOwner.h"
#include "bench/workloads/CLS_System.h"

#include <array>
#include <atomic>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <vector>

namespace
{
class CLS_Kit : public CLS_System
{
public:
    explicit CLS_Kit(const std::string& _strLibrary) : m_clsPool(CLS_PoolLibrary(_strLibrary)) {}

    unsigned GetThreadLimit() const override { return CLS_PoolHub::MOST_CARRIERS; }

    void Submit(const std::function<void()>& _funTask, void* _pOwner) override
    {
        if (!FindOwner(_pOwner).Submit(_funTask, "benchmark"))
        {
            throw std::runtime_error("the pool refused a task");
        }
    }

    bool HasRemoval() const override { return true; }
    void Remove(void* _pOwner) override { FindOwner(_pOwner).RemoveTasks(); }

    bool HasLoops() const override { return true; }
    void AddLoop(const std::function<void()>& _funTask, int _iInterval) override
    {
        m_vecLoops.emplace_back(m_clsPool, _funTask, _iInterval, "benchmark");
    }
    void RemoveLoops() override { m_vecLoops.clear(); }

private:
    /// The owner that stands for a pointer. A host has its owner at hand, so the search here takes no lock.
    struct ST_KitOwner
    {
        std::atomic<void*> m_pKey{nullptr};
        std::optional<CLS_TaskOwner> m_clsOwner;
    };

    CLS_TaskOwner& FindOwner(void* _pKey)
    {
        for (ST_KitOwner& stOwner : m_arrOwners)
        {
            if (stOwner.m_pKey.load(std::memory_order_acquire) == _pKey)
            {
                return *stOwner.m_clsOwner;
            }
        }
        return MakeOwner(_pKey);
    }

    CLS_TaskOwner& MakeOwner(void* _pKey)
    {
        const std::lock_guard<std::mutex> lock(m_mtxOwners);
        for (ST_KitOwner& stOwner : m_arrOwners)
        {
            if (stOwner.m_pKey.load() == nullptr)
            {
                stOwner.m_clsOwner.emplace(m_clsPool, "benchmark");
                stOwner.m_pKey.store(_pKey, std::memory_order_release);
            }
            if (stOwner.m_pKey.load() == _pKey)
            {
                return *stOwner.m_clsOwner;
            }
        }
        throw std::runtime_error("the benchmark has no room for another owner");
    }

    const CLS_PoolScope m_clsPool;
    std::mutex m_mtxOwners; ///< guards the creation of owners
    std::array<ST_KitOwner, 16> m_arrOwners;
    std::vector<CLS_LoopTask> m_vecLoops;
};
} // namespace

const char* System::GetName()
{
    return "kit";
}

std::string System::Describe()
{
    return "this pool through its host kit";
}

bool System::HasThreadSetting()
{
    return false;
}

std::unique_ptr<CLS_System> System::Make(const ST_Setup& _stSetup)
{
    const std::string& strLibrary = _stSetup.m_strLibrary;
    return std::make_unique<CLS_Kit>(strLibrary.empty() ? CLS_PoolLibrary::GetUsualName() : strLibrary);
}
