// Poco: a ThreadPool, which has no queue, fed by a NotificationQueue. A Util::Timer runs loop tasks in its
// one thread.

#include "bench/workloads/CLS_System.h"

#include <Poco/Environment.h>
#include <Poco/NotificationQueue.h>
#include <Poco/Runnable.h>
#include <Poco/ThreadPool.h>
#include <Poco/Util/Timer.h>
#include <Poco/Util/TimerTaskAdapter.h>

namespace
{
constexpr int DEFAULT_THREADS = 16;

class CLS_TaskNote : public Poco::Notification
{
public:
    explicit CLS_TaskNote(const std::function<void()>& _funTask) : m_funTask(_funTask) {}

    const std::function<void()> m_funTask;
};

class CLS_PocoLoop : public Poco::Util::TimerTask
{
public:
    explicit CLS_PocoLoop(const std::function<void()>& _funTask) : m_funTask(_funTask) {}
    void run() override { m_funTask(); }

private:
    const std::function<void()> m_funTask;
};

class CLS_Poco : public CLS_System, private Poco::Runnable
{
public:
    explicit CLS_Poco(int _iThreads) : m_clsPool(2, _iThreads)
    {
        for (int i = 0; i < _iThreads; ++i)
        {
            m_clsPool.start(*this);
        }
    }

    ~CLS_Poco() override
    {
        for (int i = 0; i < m_clsPool.capacity(); ++i)
        {
            Enqueue(nullptr);
        }
        m_clsPool.joinAll();
    }

    unsigned GetThreadLimit() const override { return static_cast<unsigned>(m_clsPool.capacity()); }

    void Submit(const std::function<void()>& _funTask, void* /*_pOwner*/) override { Enqueue(_funTask); }

    bool HasRemoval() const override { return true; }
    void Remove(void* /*_pOwner*/) override { m_clsQueue.clear(); }

    bool HasLoops() const override { return true; }
    void AddLoop(const std::function<void()>& _funTask, int _iInterval) override
    {
        if (!m_pTimer)
        {
            m_pTimer = std::make_unique<Poco::Util::Timer>();
        }
        m_pTimer->schedule(new CLS_PocoLoop(_funTask), 0, _iInterval);
    }
    void RemoveLoops() override { m_pTimer.reset(); }

private:
    void Enqueue(const std::function<void()>& _funTask)
    {
        m_clsQueue.enqueueNotification(new CLS_TaskNote(_funTask));
    }

    /// Runs tasks until it takes an empty one.
    void run() override
    {
        for (bool bGoOn = true; bGoOn;)
        {
            const Poco::AutoPtr<Poco::Notification> pNote(m_clsQueue.waitDequeueNotification());
            const auto& funTask = static_cast<const CLS_TaskNote&>(*pNote).m_funTask;
            bGoOn = static_cast<bool>(funTask);
            if (bGoOn)
            {
                funTask();
            }
        }
    }

    Poco::NotificationQueue m_clsQueue;
    Poco::ThreadPool m_clsPool;
    std::unique_ptr<Poco::Util::Timer> m_pTimer;
};

std::string DescribeVersion()
{
    const Poco::UInt32 uiVersion = Poco::Environment::libraryVersion();
    return std::to_string(uiVersion >> 24) + "." + std::to_string((uiVersion >> 16) & 0xff) + "." +
           std::to_string((uiVersion >> 8) & 0xff);
}
} // namespace

const char* System::GetName()
{
    return "Poco";
}

std::string System::Describe()
{
    return "Poco " + DescribeVersion() + ", ThreadPool fed by a NotificationQueue";
}

bool System::HasThreadSetting()
{
    return true;
}

std::unique_ptr<CLS_System> System::Make(const ST_Setup& _stSetup)
{
    return std::make_unique<CLS_Poco>(_stSetup.m_uiThreads == 0 ? DEFAULT_THREADS
                                                                : static_cast<int>(_stSetup.m_uiThreads));
}
