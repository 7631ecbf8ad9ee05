// std::async with a thread per task.

#include "bench/workloads/CLS_System.h"

#include <deque>
#include <future>
#include <mutex>

namespace
{
class CLS_StdAsync : public CLS_System
{
public:
    unsigned GetThreadLimit() const override { return NO_LIMIT; }

    void Submit(const std::function<void()>& _funTask, void* /*_pOwner*/) override
    {
        std::future<void> clsFuture = std::async(std::launch::async, _funTask);
        const std::lock_guard<std::mutex> lock(m_mtxFutures);
        m_deqFutures.push_back(std::move(clsFuture));
        while (!m_deqFutures.empty() &&
               m_deqFutures.front().wait_for(std::chrono::seconds(0)) == std::future_status::ready)
        {
            m_deqFutures.pop_front();
        }
    }

private:
    std::mutex m_mtxFutures;
    std::deque<std::future<void>> m_deqFutures; ///< the destructor of each waits for its task
};
} // namespace

const char* System::GetName()
{
    return "std::async";
}

std::string System::Describe()
{
    return "the C++ library's, launched asynchronously";
}

bool System::HasThreadSetting()
{
    return false;
}

std::unique_ptr<CLS_System> System::Make(const ST_Setup& /*_stSetup*/)
{
    return std::make_unique<CLS_StdAsync>();
}
