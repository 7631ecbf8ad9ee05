#pragma once

#include "QuenHost/PoolCall.h"
#include "QuenHost/ST_PoolFunctions.h"

#include <dlfcn.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>

/// The pool library, opened at run time, with its pool started.
///
/// Give it to a CLS_PoolScope. The library stays loaded until the scope unloads it or the process ends.
/// Destroying this object neither ends the pool nor closes the library. It can be moved; a moved-from object
/// has no functions.
///
/// Threads: open it on one thread, before others use the pool. Opening makes the pool's first call, which
/// must not race another. Read it on any thread.
class CLS_PoolLibrary
{
public:
    /// Opens the library, finds its functions and starts the pool.
    ///
    /// The system searches for a path without a slash in its library folders.
    ///
    /// Waits: until the file is loaded and three threads are started.
    ///
    /// Fails: the result is empty, nothing stays open, and _strError names the file and the reason, for the
    /// user. On success, _strError is empty. Throws only std::bad_alloc.
    static std::optional<CLS_PoolLibrary> Open(const std::string& _strPath, std::string& _strError)
    {
        CLS_PoolLibrary clsLibrary;
        const std::optional<std::string> strError = clsLibrary.Load(_strPath);
        _strError = strError.value_or("");
        return strError ? std::nullopt : std::optional<CLS_PoolLibrary>(std::move(clsLibrary));
    }

#ifdef __cpp_exceptions
    /// Does the same, but throws std::runtime_error with that text.
    explicit CLS_PoolLibrary(const std::string& _strPath)
    {
        if (const std::optional<std::string> strError = Load(_strPath))
        {
            throw std::runtime_error(*strError);
        }
    }
#endif

    /// Takes the library that the program is linked with, and starts the pool.
    ///
    /// Only for programs that link ZelTaskPool::ZelTaskPool.
    ///
    /// Fails: with what the pool throws if it cannot start.
    static CLS_PoolLibrary OpenLinked()
    {
        CLS_PoolLibrary clsLibrary;
        clsLibrary.m_stFunctions = {&::AddTmpTask, &::RemoveTmpTask, &::AddLoopTask, &::RemoveTask,
                                    &::KillTask,   &::KillTaskAll,   &::UnInit};
        clsLibrary.m_stFunctions.m_funRemoveTmpTask(nullptr, "first use");
        return clsLibrary;
    }

    /// The number of the pool's workers. Empty if the library does not export it, and after OpenLinked or a
    /// move.
    ///
    /// Do not call it after the end of the pool.
    ///
    /// Waits: a few steps for one of the pool's locks.
    std::optional<int> GetWorkers() const
    {
        if (m_pLibrary == nullptr)
        {
            return std::nullopt;
        }
        // A static member and a member function. All compilers of these platforms give them these names.
        void** const pInstance =
            static_cast<void**>(dlsym(m_pLibrary, "_ZN16CLS_QuenTaskPool11m_pInstanceE"));
        const auto funCount =
            reinterpret_cast<int (*)(void*)>(dlsym(m_pLibrary, "_ZN16CLS_QuenTaskPool16GetTaskThreadNumEv"));
        return pInstance != nullptr && *pInstance != nullptr && funCount != nullptr
                   ? std::optional<int>(funCount(*pInstance))
                   : std::nullopt;
    }

    /// Neither ends the pool nor closes the library.
    ~CLS_PoolLibrary() = default;

    CLS_PoolLibrary(const CLS_PoolLibrary&) = delete;
    CLS_PoolLibrary& operator=(const CLS_PoolLibrary&) = delete;

    /// Takes over the open library; _clsOther has none then.
    CLS_PoolLibrary(CLS_PoolLibrary&& _clsOther) noexcept
        : m_pLibrary(std::exchange(_clsOther.m_pLibrary, nullptr)),
          m_stFunctions(std::exchange(_clsOther.m_stFunctions, {}))
    {
    }

    /// The library that this object had stays loaded.
    CLS_PoolLibrary& operator=(CLS_PoolLibrary&& _clsOther) noexcept
    {
        m_pLibrary = std::exchange(_clsOther.m_pLibrary, nullptr);
        m_stFunctions = std::exchange(_clsOther.m_stFunctions, {});
        return *this;
    }

    /// The seven functions; none is null, unless this object was moved from.
    const ST_PoolFunctions& GetFunctions() const
    {
        return m_stFunctions;
    }

    /// The library's usual file name on this platform.
    static const char* GetUsualName()
    {
#ifdef __APPLE__
        return "libZelTaskPool.dylib";
#else
        return "libZelTaskPool.so";
#endif
    }

private:
    /// Only the scope closes the library, after the end of the pool. Before that, the pool's threads use it.
    friend class CLS_PoolScope;

    CLS_PoolLibrary() = default;

    /// Opens the library and starts the pool. Returns the error for the user, if there is one.
    std::optional<std::string> Load(const std::string& _strPath)
    {
        m_pLibrary = dlopen(_strPath.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (m_pLibrary == nullptr)
        {
            return "cannot open the pool library " + _strPath + ": " + TakeLoaderError();
        }
        std::optional<std::string> strError = LookUpFunctions();
        if (!strError)
        {
            strError = StartPool();
        }
        if (!strError)
        {
            return std::nullopt;
        }
        Close();
        return "the pool library " + _strPath + " " + *strError;
    }

    /// Looks up the functions. Returns an error about the first that is missing, if there is one.
    std::optional<std::string> LookUpFunctions()
    {
        std::optional<std::string> strError;
        const auto funLookUp = [&](const char* _szName, auto& _funResult)
        {
            using Function = std::decay_t<decltype(_funResult)>;
            _funResult = strError ? nullptr : reinterpret_cast<Function>(dlsym(m_pLibrary, _szName));
            if (!strError && _funResult == nullptr)
            {
                strError = std::string("lacks the function ") + _szName + ": " + TakeLoaderError();
            }
        };
        funLookUp("AddTmpTask", m_stFunctions.m_funAddTmpTask);
        funLookUp("RemoveTmpTask", m_stFunctions.m_funRemoveTmpTask);
        funLookUp("AddLoopTask", m_stFunctions.m_funAddLoopTask);
        funLookUp("RemoveTask", m_stFunctions.m_funRemoveTask);
        funLookUp("KillTask", m_stFunctions.m_funKillTask);
        funLookUp("KillTaskAll", m_stFunctions.m_funKillTaskAll);
        funLookUp("UnInit", m_stFunctions.m_funUnInit);
        return strError;
    }

    /// Starts the pool. Any call builds it; this one does nothing else. Returns the error, if there is one.
    std::optional<std::string> StartPool() const
    {
        std::optional<std::string> strError =
            PoolCall::Guard([this] { m_stFunctions.m_funRemoveTmpTask(nullptr, "first use"); });
        if (strError)
        {
            strError->insert(0, "cannot start its pool: ");
        }
        return strError;
    }

    void Close()
    {
        if (m_pLibrary != nullptr)
        {
            dlclose(m_pLibrary);
        }
        m_pLibrary = nullptr;
        m_stFunctions = {};
    }

    static std::string TakeLoaderError()
    {
        // The loader keeps its last error per thread.
        const char* const szText = dlerror(); // NOLINT(concurrency-mt-unsafe)
        return szText != nullptr ? szText : "the loader gives no reason";
    }

    void* m_pLibrary = nullptr; ///< the loader's handle
    ST_PoolFunctions m_stFunctions;
};
