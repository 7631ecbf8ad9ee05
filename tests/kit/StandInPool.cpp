// A library that exports the pool's names without a pool, for tests of code that opens it. It records its
// calls, and when it is unloaded.

#include "QuenPlugins/ZelTaskPool/TaskPoolExports.h"

#include <mutex>
#include <stdexcept>
#include <vector>

namespace
{
std::mutex g_mtxCalls; ///< guards what g_pCalls points to
std::vector<std::string>* g_pCalls = nullptr;

void Note(const std::string& _strCall)
{
    const std::lock_guard<std::mutex> lock(g_mtxCalls);
    if (g_pCalls != nullptr)
    {
        g_pCalls->push_back(_strCall);
    }
}

std::function<void(const std::function<void()>&, int, std::string&)> g_funAddLoop;

class CLS_UnloadNote
{
public:
    CLS_UnloadNote() = default;
    ~CLS_UnloadNote() { Note("unloaded"); }
    CLS_UnloadNote(const CLS_UnloadNote&) = delete;
    CLS_UnloadNote& operator=(const CLS_UnloadNote&) = delete;
};

const CLS_UnloadNote g_clsUnloadNote;
} // namespace

extern "C"
{
    /// Sets the list that records the calls; null for none.
    void NoteCalls(std::vector<std::string>* _pCalls)
    {
        g_pCalls = _pCalls;
    }

    /// Sets the function that adds loop tasks. If it is empty, they are refused.
    void SetAddLoopTask(const std::function<void(const std::function<void()>&, int, std::string&)>& _funAdd)
    {
        g_funAddLoop = _funAdd;
    }

    bool AddTmpTask(const std::function<void()>& /*_funTask*/, void* /*_pObj*/,
                    const std::string& _strCallInfo)
    {
        Note("AddTmpTask " + _strCallInfo);
        return false;
    }

    void RemoveTmpTask(void* _pObj, const std::string& _strCallInfo)
    {
#ifdef ZEL_TEST_UNSTARTABLE
        throw std::runtime_error("no thread available");
#endif
        Note(std::string("RemoveTmpTask ") + (_pObj == nullptr ? "without an owner, " : "") + _strCallInfo);
    }

    void AddLoopTask(const std::function<void()>& _funTask, int _iInterval, std::string& _strTaskId,
                     const std::string& _strCallInfo)
    {
        Note("AddLoopTask " + _strCallInfo);
        if (g_funAddLoop)
        {
            g_funAddLoop(_funTask, _iInterval, _strTaskId);
        }
    }

    void RemoveTask(const std::string& /*_strTaskId*/, const std::string& _strCallInfo)
    {
        Note("RemoveTask " + _strCallInfo);
    }

    void KillTask(const std::string& /*_strTaskId*/, const std::string& _strCallInfo)
    {
        Note("KillTask " + _strCallInfo);
    }

    void KillTaskAll()
    {
        Note("KillTaskAll");
#ifdef ZEL_TEST_UNENDABLE
        throw std::runtime_error("no thread available");
#endif
    }

#ifndef ZEL_TEST_WITHOUT_UN_INIT
    void UnInit()
    {
        Note("UnInit");
    }
#endif
}
