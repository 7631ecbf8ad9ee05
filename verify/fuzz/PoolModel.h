#pragma once

#include "verify/rules/TaskRules.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class CLS_PoolModel;

/// What a callable does when it runs, besides being counted.
enum n_Deed : int
{
    DEED_NOTHING,
    DEED_THROW,
    DEED_THROW_INTEGER,
    DEED_SLEEP,
    DEED_SUBMIT,
    DEED_KILL_LOOP,
    DEED_COUNT
};

/// One callable that was handed to the pool, and its expected state.
struct ST_Probe
{
    const std::size_t m_iNumber; ///< quoted in the task's call information
    const std::size_t m_iOwner;
    const bool m_bLoop;
    const bool m_bByTask; ///< submitted by a task, at a time that the model does not know
    const n_Deed m_iDeed;

    std::atomic<int> m_iQueued{1};
    std::atomic<int> m_iStarted{0};
    std::atomic<int> m_iRunning{0};
    std::atomic<bool> m_bRequeued{false};  ///< queued by hand: may overlap itself; no removal waits for it
    std::atomic<bool> m_bDisowned{false};  ///< removed from its owner by hand
    std::atomic<bool> m_bExcused{false};   ///< stopped, removed, or dropped with its pool: it need not run
    std::atomic<bool> m_bForbidden{false}; ///< its removal has returned: it must not start
};

/// Everything that was handed to the pool. Thread-safe, because tasks submit tasks.
class CLS_PoolModel
{
public:
    static constexpr std::size_t OWNERS = 3;

    /// The object that tasks of the owner belong to.
    void* GetOwner(std::size_t _iOwner) { return &m_arrOwners.at(_iOwner); }

    /// Makes the probe of a new callable. Submit the callable with MakeCallInfo(probe).
    std::shared_ptr<ST_Probe> AddProbe(std::size_t _iOwner, bool _bLoop, bool _bByTask, n_Deed _iDeed);
    static std::string MakeCallInfo(const ST_Probe& _stProbe);
    std::function<void()> MakeCallable(const std::shared_ptr<ST_Probe>& _pProbe);

    /// The probe of the registered task with this id; null if there is none.
    std::shared_ptr<ST_Probe> FindProbe(const std::string& _strTaskId);

    void AddLoopId(const std::string& _strTaskId);
    std::vector<std::string> GetLoopIds();

    /// The probes for which _funWanted holds.
    std::vector<std::shared_ptr<ST_Probe>> GetProbes(const std::function<bool(const ST_Probe&)>& _funWanted);

    /// While it exists, no task calls the pool. A run that outlasts the pool would find none.
    class CLS_Rest
    {
    public:
        explicit CLS_Rest(CLS_PoolModel& _clsModel) : m_clsModel(_clsModel) { m_clsModel.m_bRest = true; }
        ~CLS_Rest() { m_clsModel.m_bRest = false; }
        CLS_Rest(const CLS_Rest&) = delete;
        CLS_Rest& operator=(const CLS_Rest&) = delete;

    private:
        CLS_PoolModel& m_clsModel;
    };

    /// The probe as the shared rules see it. The interval is unknown: the input may change it at any moment.
    static TaskRules::ST_TaskState GetState(const ST_Probe& _stProbe);

    /// The number of existing callables of all models, copies included.
    static int GetLiveCallables();

private:
    class CLS_Callable;

    void Run(ST_Probe& _stProbe);
    void DoDeed(const ST_Probe& _stProbe);
    void SubmitTask(const ST_Probe& _stProbe);
    void KillLoopTask(const ST_Probe& _stProbe);

    std::array<char, OWNERS> m_arrOwners{};
    std::atomic<bool> m_bRest{false};
    std::mutex m_mtxProbes; ///< guards everything below
    std::vector<std::shared_ptr<ST_Probe>> m_vecProbes;
    std::vector<std::string> m_vecLoopIds;
};
