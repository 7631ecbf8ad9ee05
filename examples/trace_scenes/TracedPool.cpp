#include "examples/trace_scenes/TracedPool.h"

#include <atomic>
#include <cstdint>
#include <utility>

namespace
{
std::uint64_t TakeTaskNumber()
{
    static std::atomic<std::uint64_t> s_uiTasks{0};
    return ++s_uiTasks;
}

/// Traces a one-shot task. The copies of its callable share this object.
class CLS_TracedTask
{
public:
    CLS_TracedTask(std::shared_ptr<CLS_TraceFile> _pTrace, std::function<void()> _funTask,
                   std::string _strName)
        : m_pTrace(std::move(_pTrace)), m_funTask(std::move(_funTask)), m_strName(std::move(_strName)),
          m_strTask(std::to_string(TakeTaskNumber())), m_strCancelled(R"(,"s":"t")" + DescribeTask())
    {
    }

    ~CLS_TracedTask()
    {
        if (!m_bStarted)
        {
            m_pTrace->Add('i', "cancel", m_strName, m_strCancelled);
        }
    }

    CLS_TracedTask(const CLS_TracedTask&) = delete;
    CLS_TracedTask& operator=(const CLS_TracedTask&) = delete;

    /// Returns the members of the submission's event, where an arrow starts.
    std::string DescribeSubmission() const { return DescribeFlow("out") + DescribeTask(); }

    void Run()
    {
        m_bStarted = true;
        const CLS_TraceSpan clsSpan(m_pTrace, "run", m_strName, DescribeFlow("in") + DescribeTask());
        m_funTask();
    }

private:
    std::string DescribeTask() const { return R"(,"args":{"task":)" + m_strTask + "}"; }

    std::string DescribeFlow(const char* _szDirection) const
    {
        return R"(,"bind_id":")" + m_strTask + R"(","flow_)" + _szDirection + R"(":true)";
    }

    const std::shared_ptr<CLS_TraceFile> m_pTrace;
    const std::function<void()> m_funTask;
    const std::string m_strName;
    const std::string m_strTask; ///< the task's number
    const std::string m_strCancelled;
    bool m_bStarted = false; ///< written by the run; read when no copy is left
};
} // namespace

CLS_TracedPool::CLS_TracedPool(const ST_PoolFunctions& _stFunctions, std::shared_ptr<CLS_TraceFile> _pTrace)
    : m_stFunctions(_stFunctions), m_pTrace(std::move(_pTrace))
{
}

bool CLS_TracedPool::AddTmpTask(const std::function<void()>& _funTask, void* _pObj,
                                const std::string& _strCallInfo) const
{
    const auto pTask = std::make_shared<CLS_TracedTask>(m_pTrace, _funTask, _strCallInfo);
    const CLS_TraceSpan clsSpan(m_pTrace, "submit", _strCallInfo, pTask->DescribeSubmission());
    return m_stFunctions.m_funAddTmpTask([pTask] { pTask->Run(); }, _pObj, _strCallInfo);
}

void CLS_TracedPool::RemoveTmpTask(void* _pObj, const std::string& _strCallInfo) const
{
    const CLS_TraceSpan clsSpan(m_pTrace, "remove", _strCallInfo);
    m_stFunctions.m_funRemoveTmpTask(_pObj, _strCallInfo);
}
