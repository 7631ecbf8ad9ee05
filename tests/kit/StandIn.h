#pragma once

#include <dlfcn.h>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

/// Makes a stand-in for the pool library record its calls, and keeps it loaded. Only one may exist at a time.
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

    /// Adds a loop task for the pool. The parameters are the callable, the interval and the id. The id stays
    /// empty if the task is refused.
    using AddLoopTask = std::function<void(const std::function<void()>&, int, std::string&)>;

    /// Sets the function that adds loop tasks. If it is empty, as it is initially, the pool refuses them.
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

    /// The calls of the stand-ins, oldest first. Never destroyed, because a library may be unloaded late.
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
