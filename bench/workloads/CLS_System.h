#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>

/// How to set up a system.
struct ST_Setup
{
    unsigned m_uiThreads = 0; ///< 0: the default
    std::string m_strLibrary; ///< the pool library to open, for systems that open one
};

/// A system under measurement, which runs tasks in the background.
///
/// Waits: the destructor ends the system. Its tasks must have run, and its loop tasks must be removed.
class CLS_System
{
public:
    CLS_System() = default;
    virtual ~CLS_System() = default;
    CLS_System(const CLS_System&) = delete;
    CLS_System& operator=(const CLS_System&) = delete;

    /// The limit of a system that starts a thread for each task and keeps none.
    static constexpr unsigned NO_LIMIT = std::numeric_limits<unsigned>::max();

    /// The most tasks that can run at once.
    virtual unsigned GetThreadLimit() const = 0;

    /// Runs _funTask once for _pOwner, which systems without owners ignore.
    ///
    /// Threads: any.
    virtual void Submit(const std::function<void()>& _funTask, void* _pOwner) = 0;

    /// Whether the system offers Remove.
    virtual bool HasRemoval() const { return false; }
    /// Cancels the queued tasks of _pOwner; a system without owners cancels all queued tasks.
    ///
    /// Waits: for running tasks, if the system's own removal does.
    virtual void Remove(void* /*_pOwner*/) {}

    /// Whether the system offers AddLoop and RemoveLoops.
    virtual bool HasLoops() const { return false; }
    /// Runs _funTask at once, and again _iInterval milliseconds after the end of each run.
    virtual void AddLoop(const std::function<void()>& /*_funTask*/, int /*_iInterval*/) {}
    /// Ends all loop tasks. None runs after the return.
    virtual void RemoveLoops() {}

    /// How often the system slept 100 ms because no worker was free; nothing if it cannot tell.
    virtual std::optional<std::uint64_t> GetRetries() const { return std::nullopt; }
};

/// Each program defines these functions for its system.
namespace System
{
/// The name in results.
const char* GetName();
/// The version and the part of the system that runs the tasks.
std::string Describe();

/// Whether ST_Setup::m_uiThreads has an effect.
bool HasThreadSetting();

std::unique_ptr<CLS_System> Make(const ST_Setup& _stSetup);
} // namespace System
