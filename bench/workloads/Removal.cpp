// W5: how long it takes to remove an owner with one running task and many queued ones.

#include "bench/support/Clocks.h"
#include "bench/workloads/Workloads.h"

#include <thread>

namespace
{
constexpr std::chrono::milliseconds RUN_LENGTH{50};

/// Tasks of another owner that keep all threads but one busy until End.
class CLS_Blockers
{
public:
    explicit CLS_Blockers(CLS_System& _clsSystem)
        : m_uiCount(_clsSystem.GetThreadLimit() - 1), m_clsStarted(m_uiCount), m_clsDone(m_uiCount)
    {
        for (std::size_t i = 0; i < m_uiCount; ++i)
        {
            const auto funTask = [this]
            {
                m_clsStarted.CountDown();
                m_clsOpen.Wait();
                m_clsDone.CountDown();
            };
            _clsSystem.Submit(funTask, this);
        }
        if (m_uiCount > 0)
        {
            m_clsStarted.Wait();
        }
    }

    void End()
    {
        m_clsOpen.CountDown();
        if (m_uiCount > 0)
        {
            m_clsDone.Wait();
        }
    }

private:
    const std::size_t m_uiCount;
    CLS_Countdown m_clsStarted;
    CLS_Countdown m_clsOpen{1};
    CLS_Countdown m_clsDone;
};

Results Measure(CLS_System& _clsSystem, std::size_t _uiQueued)
{
    if (!_clsSystem.HasRemoval())
    {
        return {{"", 0, {}, "queued tasks cannot be removed"}};
    }
    CLS_Blockers clsBlockers(_clsSystem);
    CLS_Countdown clsStarted(1);
    CLS_Countdown clsRemoving(1);
    CLS_Countdown clsEnded(1);
    const auto funRunning = [&clsStarted, &clsRemoving, &clsEnded]
    {
        clsStarted.CountDown();
        clsRemoving.Wait();
        std::this_thread::sleep_for(RUN_LENGTH);
        clsEnded.CountDown();
    };
    _clsSystem.Submit(funRunning, &_clsSystem);
    clsStarted.Wait();
    std::atomic<int> iRan{0};
    for (std::size_t i = 0; i < _uiQueued; ++i)
    {
        _clsSystem.Submit([&iRan] { ++iRan; }, &_clsSystem);
    }

    const Clocks::TimePoint tpStart = Clocks::Now();
    clsRemoving.CountDown();
    _clsSystem.Remove(&_clsSystem);
    const double dCall = Clocks::ToMilliseconds(Clocks::Now() - tpStart);
    clsEnded.Wait();
    const double dGone = Clocks::ToMilliseconds(Clocks::Now() - tpStart);
    clsBlockers.End();
    return {{"", 0, {{"gone_ms", dGone}, {"call_ms", dCall}, {"ran", static_cast<double>(iRan)}}}};
}
} // namespace

void Workloads::AddRemoval(Cases& _vecCases, bool _bQuick)
{
    const std::size_t uiQueued = _bQuick ? 100 : 10000;
    _vecCases.push_back({"W5", [uiQueued](CLS_System& _clsSystem) { return Measure(_clsSystem, uiQueued); }});
}
