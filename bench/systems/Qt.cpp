// Qt: QThreadPool, and a QTimer for each loop task in a thread with an event loop.

#include "bench/workloads/CLS_System.h"

#include <QCoreApplication>
#include <QThread>
#include <QThreadPool>
#include <QTimer>
#include <atomic>
#include <vector>

namespace
{
/// The timers and their thread. The pool runs the tasks; the end of a run starts the timer again.
class CLS_Timers
{
public:
    explicit CLS_Timers(QThreadPool& _clsPool) : m_clsPool(_clsPool) { m_clsThread.start(); }

    ~CLS_Timers()
    {
        m_bEnding = true;
        // Each stop waits for the calls that the timers' thread has begun.
        for (QTimer* const pTimer : m_vecTimers)
        {
            QMetaObject::invokeMethod(pTimer, "stop", Qt::BlockingQueuedConnection);
        }
        m_clsPool.waitForDone();
        for (QTimer* const pTimer : m_vecTimers)
        {
            pTimer->deleteLater();
        }
        m_clsThread.quit();
        m_clsThread.wait();
    }

    void Add(const std::function<void()>& _funTask, int _iInterval)
    {
        auto* const pTimer = new QTimer;
        pTimer->setSingleShot(true);
        pTimer->setTimerType(Qt::PreciseTimer);
        pTimer->setInterval(_iInterval);
        QObject::connect(pTimer, &QTimer::timeout, [this, pTimer, _funTask] { StartRun(pTimer, _funTask); });
        pTimer->moveToThread(&m_clsThread);
        m_vecTimers.push_back(pTimer);
        StartRun(pTimer, _funTask);
    }

private:
    void StartRun(QTimer* _pTimer, const std::function<void()>& _funTask)
    {
        if (!m_bEnding)
        {
            m_clsPool.start(
                [_pTimer, _funTask]
                {
                    _funTask();
                    QMetaObject::invokeMethod(_pTimer, "start", Qt::QueuedConnection);
                });
        }
    }

    QThreadPool& m_clsPool;
    QThread m_clsThread;
    std::atomic<bool> m_bEnding{false};
    std::vector<QTimer*> m_vecTimers; ///< their thread destroys them
};

class CLS_Qt : public CLS_System
{
public:
    explicit CLS_Qt(unsigned _uiThreads)
    {
        if (_uiThreads != 0)
        {
            m_clsPool.setMaxThreadCount(static_cast<int>(_uiThreads));
        }
    }

    unsigned GetThreadLimit() const override { return static_cast<unsigned>(m_clsPool.maxThreadCount()); }

    void Submit(const std::function<void()>& _funTask, void* /*_pOwner*/) override
    {
        m_clsPool.start(_funTask);
    }

    bool HasRemoval() const override { return true; }
    void Remove(void* /*_pOwner*/) override { m_clsPool.clear(); }

    bool HasLoops() const override { return true; }
    void AddLoop(const std::function<void()>& _funTask, int _iInterval) override
    {
        if (!m_pTimers)
        {
            m_pTimers = std::make_unique<CLS_Timers>(m_clsPool);
        }
        m_pTimers->Add(_funTask, _iInterval);
    }
    void RemoveLoops() override { m_pTimers.reset(); }

private:
    QThreadPool m_clsPool;
    std::unique_ptr<CLS_Timers> m_pTimers;
};
} // namespace

const char* System::GetName()
{
    return "Qt";
}

std::string System::Describe()
{
    return std::string("Qt ") + qVersion() + ", QThreadPool";
}

bool System::HasThreadSetting()
{
    return true;
}

std::unique_ptr<CLS_System> System::Make(const ST_Setup& _stSetup)
{
    // Event loops need an application. It lives until the process ends.
    static int s_iArguments = 0;
    static QCoreApplication s_clsApplication(s_iArguments, nullptr);
    return std::make_unique<CLS_Qt>(_stSetup.m_uiThreads);
}
