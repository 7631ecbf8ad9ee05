#pragma once

#include <dlfcn.h>
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

    ~CLS_StandIn()
    {
        if (m_pLibrary != nullptr)
        {
            dlclose(m_pLibrary);
        }
    }

    CLS_StandIn(const CLS_StandIn&) = delete;
    CLS_StandIn& operator=(const CLS_StandIn&) = delete;

    /// The calls of the stand-ins, oldest first. They live for ever: a library is unloaded late.
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
