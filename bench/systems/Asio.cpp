// Boost.Asio: thread_pool, and a steady_timer for each loop task.

#include "bench/workloads/CLS_System.h"

#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>
#include <boost/version.hpp>
#include <list>
#include <thread>

namespace
{
unsigned GetDefaultThreads()
{
    return 2 * std::thread::hardware_concurrency();
}

struct ST_AsioLoop
{
    boost::asio::steady_timer m_clsTimer;
    std::function<void()> m_funTask;
    std::chrono::milliseconds m_msInterval;

    void Run(const boost::system::error_code& _clsError)
    {
        if (_clsError)
        {
            return;
        }
        m_funTask();
        m_clsTimer.expires_after(m_msInterval);
        m_clsTimer.async_wait([this](const boost::system::error_code& _clsNext) { Run(_clsNext); });
    }
};

class CLS_Asio : public CLS_System
{
public:
    explicit CLS_Asio(unsigned _uiThreads)
        : m_uiThreads(_uiThreads == 0 ? GetDefaultThreads() : _uiThreads), m_clsPool(m_uiThreads)
    {
    }

    unsigned GetThreadLimit() const override { return m_uiThreads; }

    void Submit(const std::function<void()>& _funTask, void* /*_pOwner*/) override
    {
        boost::asio::post(m_clsPool, _funTask);
    }

    bool HasLoops() const override { return true; }
    void AddLoop(const std::function<void()>& _funTask, int _iInterval) override
    {
        m_lstLoops.push_back({boost::asio::steady_timer(m_clsPool, std::chrono::seconds(0)), _funTask,
                              std::chrono::milliseconds(_iInterval)});
        ST_AsioLoop& stLoop = m_lstLoops.back();
        stLoop.m_clsTimer.async_wait([&stLoop](const boost::system::error_code& _clsError)
                                     { stLoop.Run(_clsError); });
    }
    void RemoveLoops() override
    {
        // Only a stopped pool allows this: a timer must not be touched while its handler sets it again.
        m_clsPool.stop();
        m_clsPool.join();
        m_lstLoops.clear();
    }

private:
    const unsigned m_uiThreads;
    boost::asio::thread_pool m_clsPool;
    std::list<ST_AsioLoop> m_lstLoops;
};
} // namespace

const char* System::GetName()
{
    return "Boost.Asio";
}

std::string System::Describe()
{
    return "Boost " + std::to_string(BOOST_VERSION / 100000) + "." +
           std::to_string(BOOST_VERSION / 100 % 1000) + ", thread_pool";
}

bool System::HasThreadSetting()
{
    return true;
}

std::unique_ptr<CLS_System> System::Make(const ST_Setup& _stSetup)
{
    return std::make_unique<CLS_Asio>(_stSetup.m_uiThreads);
}
