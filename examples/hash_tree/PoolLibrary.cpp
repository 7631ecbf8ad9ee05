#include "examples/hash_tree/PoolLibrary.h"

#include <dlfcn.h>
#include <stdexcept>

namespace
{
std::string LastLoaderError()
{
    // The loader keeps its last error per thread.
    const char* pText = dlerror(); // NOLINT(concurrency-mt-unsafe)
    return pText != nullptr ? pText : "the loader gives no reason";
}

void* OpenLibrary(const std::string& _strPath)
{
    void* pLibrary = dlopen(_strPath.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (pLibrary == nullptr)
    {
        throw std::runtime_error("cannot open the pool library " + _strPath + ": " + LastLoaderError());
    }
    return pLibrary;
}

template <typename T_Function>
void LookUp(void* _pLibrary, const std::string& _strPath, const char* _pName, T_Function& _funResult)
{
    _funResult = reinterpret_cast<T_Function>(dlsym(_pLibrary, _pName));
    if (_funResult == nullptr)
    {
        throw std::runtime_error("the pool library " + _strPath + " lacks the function " + _pName + ": " +
                                 LastLoaderError());
    }
}
} // namespace

CLS_PoolLibrary::CLS_PoolLibrary(const std::string& _strPath)
{
    void* pLibrary = OpenLibrary(_strPath);
    LookUp(pLibrary, _strPath, "AddTmpTask", m_funAddTmpTask);
    LookUp(pLibrary, _strPath, "RemoveTmpTask", m_funRemoveTmpTask);
    LookUp(pLibrary, _strPath, "AddLoopTask", m_funAddLoopTask);
    LookUp(pLibrary, _strPath, "RemoveTask", m_funRemoveTask);
    LookUp(pLibrary, _strPath, "KillTask", m_funKillTask);
    LookUp(pLibrary, _strPath, "KillTaskAll", m_funKillTaskAll);
    LookUp(pLibrary, _strPath, "UnInit", m_funUnInit);
}

const char* CLS_PoolLibrary::UsualName()
{
#ifdef __APPLE__
    return "libZelTaskPool.dylib";
#else
    return "libZelTaskPool.so";
#endif
}
