#include "examples/trace_scenes/Scenes.h"

#include "QuenHost/CLS_LoopTask.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace
{
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

/// Submits tasks of one owner that only sleep.
class CLS_Sleepers
{
public:
    CLS_Sleepers(const CLS_TracedPool& _clsPool, std::string _strName)
        : m_clsPool(_clsPool), m_strName(std::move(_strName))
    {
    }

    ~CLS_Sleepers() { Remove(); }

    CLS_Sleepers(const CLS_Sleepers&) = delete;
    CLS_Sleepers& operator=(const CLS_Sleepers&) = delete;

    /// Adds tasks that sleep this long.
    void Add(int _iTasks, milliseconds _msRun)
    {
        Submit(_iTasks, [_msRun] { std::this_thread::sleep_for(_msRun); });
    }

    /// Adds tasks that sleep until the flag is set.
    void AddUntil(int _iTasks, const std::atomic<bool>& _bEnd)
    {
        Submit(_iTasks, [&_bEnd] { WaitUntil([&_bEnd] { return _bEnd.load(); }); });
    }

    void WaitForStart() const
    {
        WaitUntil([this] { return m_iStarted == m_iAdded; });
    }

    void WaitForEnd() const
    {
        WaitUntil([this] { return m_iEnded == m_iAdded; });
    }

    void Remove() { m_clsPool.RemoveTmpTask(this, m_strName); }

private:
    template <typename T_Condition>
    static void WaitUntil(T_Condition _funCondition)
    {
        while (!_funCondition())
        {
            std::this_thread::sleep_for(milliseconds(1));
        }
    }

    void Submit(int _iTasks, const std::function<void()>& _funSleep)
    {
        const auto funTask = [this, _funSleep]
        {
            ++m_iStarted;
            _funSleep();
            ++m_iEnded;
        };
        for (int i = 0; i < _iTasks; ++i)
        {
            m_iAdded += m_clsPool.AddTmpTask(funTask, this, m_strName) ? 1 : 0;
        }
    }

    const CLS_TracedPool& m_clsPool;
    const std::string m_strName;
    int m_iAdded = 0;
    std::atomic<int> m_iStarted{0};
    std::atomic<int> m_iEnded{0};
};

/// Runs three waves of work, each larger than the one before. A little work follows, then none until the
/// watchdog has retired every worker.
void GrowAndRetire(const CLS_PoolScope& /*_clsScope*/, const CLS_TracedPool& _clsPool)
{
    const auto tpStart = steady_clock::now();
    CLS_Sleepers clsWaves(_clsPool, "wave");
    CLS_Sleepers clsLittle(_clsPool, "now and then");
    for (const int iTasks : {6, 14, 24})
    {
        clsWaves.Add(iTasks, seconds(8));
        std::this_thread::sleep_for(seconds(10));
    }
    // The watchdog polls every three minutes, and retires workers that were idle for five.
    while (steady_clock::now() < tpStart + seconds(225))
    {
        clsLittle.Add(1, seconds(2));
        std::this_thread::sleep_for(seconds(10));
    }
    std::this_thread::sleep_until(tpStart + seconds(3 * 180 + 10));
}

/// Runs 300 blocking tasks at once, twice.
void Burst(const CLS_PoolScope& /*_clsScope*/, const CLS_TracedPool& _clsPool)
{
    CLS_Sleepers clsBurst(_clsPool, "burst");
    for (int i = 0; i < 2; ++i)
    {
        clsBurst.Add(300, milliseconds(100));
        clsBurst.WaitForEnd();
        std::this_thread::sleep_for(milliseconds(100));
    }
}

/// Lets two owners share the few workers that are free, and removes one of them while both have running and
/// waiting tasks.
void Cancel(const CLS_PoolScope& /*_clsScope*/, const CLS_TracedPool& _clsPool)
{
    constexpr int FREE_WORKERS = 12;
    std::atomic<bool> bOthersEnd{false};
    CLS_Sleepers clsOthers(_clsPool, "others");
    clsOthers.AddUntil(301 - FREE_WORKERS, bOthersEnd);
    clsOthers.WaitForStart();

    CLS_Sleepers clsRemoved(_clsPool, "removed");
    CLS_Sleepers clsStaying(_clsPool, "staying");
    for (int i = 0; i < 20; ++i)
    {
        clsRemoved.Add(1, milliseconds(250));
        clsStaying.Add(1, milliseconds(250));
    }
    std::this_thread::sleep_for(milliseconds(450));
    clsRemoved.Remove();
    clsStaying.WaitForEnd();
    bOthersEnd = true;
    clsOthers.WaitForEnd();
}

/// Repeats loop tasks with different intervals. A run takes 1 to 11 ms, so it ends at any moment between two
/// polls of the loop scheduler.
void Loops(const CLS_PoolScope& _clsScope, const CLS_TracedPool& /*_clsPool*/)
{
    std::vector<CLS_LoopTask> vecLoops;
    for (const int iInterval : {0, 25, 50, 100})
    {
        const auto funSleep = [clsRandom = std::minstd_rand(static_cast<unsigned>(iInterval) + 1)]() mutable
        { std::this_thread::sleep_for(std::chrono::microseconds(1000 + clsRandom() % 10000)); };
        vecLoops.emplace_back(_clsScope, funSleep, iInterval, "every " + std::to_string(iInterval) + " ms");
    }
    std::this_thread::sleep_for(seconds(10));
}
} // namespace

const std::map<std::string, F_Scene>& GetScenes()
{
    static const std::map<std::string, F_Scene> s_mapScenes{
        {"burst", &Burst}, {"cancel", &Cancel}, {"loops", &Loops}, {"workers", &GrowAndRetire}};
    return s_mapScenes;
}
