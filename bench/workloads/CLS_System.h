#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>

/// How a system is to be set up.
struct ST_Setup
{
    unsigned m_uiThreads = 0; ///< 0: as it comes
    std::string m_strLibrary; ///< the pool library to open, where one is opened
};

/// What is measured: something that runs tasks in the background. The destructor ends it, once its tasks have
/// run and its loop tasks are removed.
class CLS_System
{
public:
    CLS_System() = default;
    virtual ~CLS_System() = default;
    CLS_System(const CLS_System&) = delete;
    CLS_System& operator=(const CLS_System&) = delete;

    /// Of a system that starts a thread for each task, and keeps none.
    static constexpr unsigned NO_LIMIT = std::numeric_limits<unsigned>::max();

    /// The most tasks that run at once.
    virtual unsigned GetThreadLimit() const = 0;

    /// Runs _funTask once, on behalf of _pOwner, which counts where a system knows owners. Any thread.
    virtual void Submit(const std::function<void()>& _funTask, void* _pOwner) = 0;

    /// Whether Remove works.
    virtual bool OffersRemoval() const { return false; }
    /// Cancels what was submitted for _pOwner, or for anybody where a system knows no owners, and does not
    /// run yet. A system that waits for what is running does so.
    virtual void Remove(void* /*_pOwner*/) {}

    /// Whether AddLoop and RemoveLoops work.
    virtual bool OffersLoops() const { return false; }
    /// Runs _funTask at once, and again _iInterval milliseconds after its last run ended.
    virtual void AddLoop(const std::function<void()>& /*_funTask*/, int /*_iInterval*/) {}
    /// Ends all loop tasks; none runs any more afterwards.
    virtual void RemoveLoops() {}

    /// How often the system slept 100 ms for want of a thread, where that can be told.
    virtual std::optional<std::uint64_t> GetRetries() const { return std::nullopt; }
};

/// What each program defines for its system.
namespace System
{
/// The name in results, version and default configuration.
const char* GetName();
std::string Describe();

/// Whether a number of threads can be asked for.
bool TakesThreads();

std::unique_ptr<CLS_System> Make(const ST_Setup& _stSetup);
} // namespace System
