#pragma once

#include "QuenHost/PoolCall.h"
#include "QuenHost/ST_PoolFunctions.h"

#include <dlfcn.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

/// The pool library, opened at run time, with its pool started.
///
/// Opening makes the pool's first call, which must not race another: do it on one thread, before others use
/// the pool; from then on they may call at once. The library stays loaded until the process ends, unless a
/// CLS_PoolScope, which this object is meant to be given to, unloads it. Destroying this object neither ends
/// the pool nor closes the library.
///
/// Moveable; a moved-from object has no functions. Reading is safe from any thread.
class CLS_PoolLibrary
{
public:
    /// Opens the library, looks the functions up and starts the pool. A path without a slash is looked for
    /// where the system looks for libraries. On failure nothing stays open, the result is empty, and
    /// _strError says, for the user, which file it was and either the loader's reason, the missing function,
    /// or why the pool could not be started; on success it is emptied. Throws nothing but std::bad_alloc.
    /// Takes as long as loading the file and starting three threads.
    static std::optional<CLS_PoolLibrary> Open(const std::string& _strPath, std::string& _strError)
    {
        CLS_PoolLibrary clsLibrary;
        _strError = clsLibrary.Load(_strPath);
        if (!_strError.empty())
        {
            return std::nullopt;
        }
        return clsLibrary;
    }

#ifdef __cpp_exceptions
    /// The same, but throws std::runtime_error with that text.
    explicit CLS_PoolLibrary(const std::string& _strPath)
    {
        const std::string strError = Load(_strPath);
        if (!strError.empty())
        {
            throw std::runtime_error(strError);
        }
    }
#endif

    /// The library that the program is linked with, with its pool started. Call it in a program that links
    /// ZelTaskPool::ZelTaskPool, and nowhere else. What a pool that cannot be started throws, passes.
    static CLS_PoolLibrary OpenLinked()
    {
        CLS_PoolLibrary clsLibrary;
        clsLibrary.m_stFunctions = {&::AddTmpTask, &::RemoveTmpTask, &::AddLoopTask, &::RemoveTask,
                                    &::KillTask,   &::KillTaskAll,   &::UnInit};
        clsLibrary.m_stFunctions.m_funRemoveTmpTask(nullptr, "first use");
        return clsLibrary;
    }

    /// How many workers the pool has; empty when the library does not tell. Not when the pool has ended.
    ///
    /// Waits: for one of the pool's locks, which is held for a few steps.
    std::optional<int> GetWorkers() const
    {
        if (m_pLibrary == nullptr)
        {
            return std::nullopt;
        }
        // Static data and a member function, by the names that every compiler of these platforms gives them.
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
    /// It alone closes, for it knows that the pool has ended: closed earlier, the pool's threads would run on
    /// in memory that is gone.
    friend class CLS_PoolScope;

    CLS_PoolLibrary() = default;

    /// "" or what went wrong.
    std::string Load(const std::string& _strPath)
    {
        m_pLibrary = dlopen(_strPath.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (m_pLibrary == nullptr)
        {
            return "cannot open the pool library " + _strPath + ": " + TakeLoaderError();
        }
        std::string strError;
        if (LookUpFunctions(strError) && StartPool(strError))
        {
            return {};
        }
        Close();
        return "the pool library " + _strPath + " " + strError;
    }

    /// Stops at the first that is missing.
    bool LookUpFunctions(std::string& _strError)
    {
        return LookUp("AddTmpTask", m_stFunctions.m_funAddTmpTask, _strError) &&
               LookUp("RemoveTmpTask", m_stFunctions.m_funRemoveTmpTask, _strError) &&
               LookUp("AddLoopTask", m_stFunctions.m_funAddLoopTask, _strError) &&
               LookUp("RemoveTask", m_stFunctions.m_funRemoveTask, _strError) &&
               LookUp("KillTask", m_stFunctions.m_funKillTask, _strError) &&
               LookUp("KillTaskAll", m_stFunctions.m_funKillTaskAll, _strError) &&
               LookUp("UnInit", m_stFunctions.m_funUnInit, _strError);
    }

    template <typename T_Function>
    bool LookUp(const char* _szName, T_Function& _funResult, std::string& _strError)
    {
        _funResult = reinterpret_cast<T_Function>(dlsym(m_pLibrary, _szName));
        if (_funResult == nullptr)
        {
            _strError = std::string("lacks the function ") + _szName + ": " + TakeLoaderError();
        }
        return _funResult != nullptr;
    }

    /// Any call builds the pool; this one does nothing else.
    bool StartPool(std::string& _strError) const
    {
        const std::optional<std::string> strReason =
            PoolCall::Guard([this] { m_stFunctions.m_funRemoveTmpTask(nullptr, "first use"); });
        if (strReason)
        {
            _strError = "cannot start its pool: " + *strReason;
        }
        return !strReason;
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
