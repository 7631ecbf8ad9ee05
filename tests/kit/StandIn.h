#pragma once

#include <dlfcn.h>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

/// Lets a stand-in for the pool library note its calls, and keeps it loaded. One at a time.
class CLS_StandIn
{
public:
    explicit CLS_StandIn(const std::string& _strPath)
        : m_pLibrary(dlopen(_strPath.c_str(), RTLD_NOW | RTLD_LOCAL))
    {
        using NoteCalls = void (*)(std::vector<std::string>*);
        const auto funNoteCalls =
            m_pLibrary == nullptr ? nullptr : reinterpret_cast<NoteCalls>(dlsym(m_pLibrary, "NoteCalls"));
        if (funNoteCalls == nullptr)
        {
            ADD_FAILURE() << "no stand-in " << _strPath;
            return;
        }
        GetCalls().clear();
        funNoteCalls(&GetCalls());
    }

    /// How the pool adds a loop task: the callable, the interval, and the place for the id, which stays empty
    /// when the task is not taken.
    using AddLoopTask = std::function<void(const std::function<void()>&, int, std::string&)>;

    /// Sets how the pool adds loop tasks. With an empty function, as at the beginning, it refuses them.
    void SetAddLoopTask(const AddLoopTask& _funAdd) const
    {
        const auto funSet =
            reinterpret_cast<void (*)(const AddLoopTask&)>(dlsym(m_pLibrary, "SetAddLoopTask"));
        ASSERT_NE(nullptr, funSet);
        funSet(_funAdd);
    }

    ~CLS_StandIn()
    {
        if (m_pLibrary != nullptr)
        {
            SetAddLoopTask(nullptr);
            dlclose(m_pLibrary);
        }
    }

    CLS_StandIn(const CLS_StandIn&) = delete;
    CLS_StandIn& operator=(const CLS_StandIn&) = delete;

    /// The calls of the stand-ins, oldest first. They are never destroyed: a library is unloaded late.
    static std::vector<std::string>& GetCalls()
    {
        static std::vector<std::string>& s_vecCalls = *new std::vector<std::string>;
        return s_vecCalls;
    }

    /// Whether the library with this path is loaded.
    static bool IsLoaded(const std::string& _strPath)
    {
        void* const pLibrary = dlopen(_strPath.c_str(), RTLD_NOW | RTLD_NOLOAD);
        if (pLibrary != nullptr)
        {
            dlclose(pLibrary);
        }
        return pLibrary != nullptr;
    }

private:
    void* m_pLibrary;
};
