#pragma once

#include "QuenPlugins/ZelTaskPool/TaskPoolExports.h"

#include <cstdlib>
#include <dlfcn.h>
#include <iostream>
#include <string>

/// The pool library, opened by its path, and its functions, looked up by their names.
///
/// The product's header is included only for the types. The library is not linked. If the library or a
/// function is missing, the process ends with status 3.
class CLS_HostLibrary
{
public:
    explicit CLS_HostLibrary(const std::string& _strPath) : m_pLibrary(dlopen(_strPath.c_str(), RTLD_NOW))
    {
        if (m_pLibrary == nullptr)
        {
            std::cerr << "no library: " << dlerror() << "\n";
            std::exit(3);
        }
        LookUp(m_pAddTmpTask, "AddTmpTask");
        LookUp(m_pRemoveTmpTask, "RemoveTmpTask");
        LookUp(m_pAddLoopTask, "AddLoopTask");
        LookUp(m_pRemoveTask, "RemoveTask");
        LookUp(m_pKillTask, "KillTask");
        LookUp(m_pKillTaskAll, "KillTaskAll");
        LookUp(m_pUnInit, "UnInit");
    }

    /// Closes the library. The functions must not be called afterwards.
    void Close() { dlclose(m_pLibrary); }

    decltype(&AddTmpTask) m_pAddTmpTask = nullptr;
    decltype(&RemoveTmpTask) m_pRemoveTmpTask = nullptr;
    decltype(&AddLoopTask) m_pAddLoopTask = nullptr;
    decltype(&RemoveTask) m_pRemoveTask = nullptr;
    decltype(&KillTask) m_pKillTask = nullptr;
    decltype(&KillTaskAll) m_pKillTaskAll = nullptr;
    decltype(&UnInit) m_pUnInit = nullptr;

private:
    template <typename T_Function>
    void LookUp(T_Function& _pFunction, const char* _szName)
    {
        _pFunction = reinterpret_cast<T_Function>(dlsym(m_pLibrary, _szName));
        if (_pFunction == nullptr)
        {
            std::cerr << "no function " << _szName << "\n";
            std::exit(3);
        }
    }

    void* m_pLibrary;
};
