#include "tests/machrun/ExitHandlers.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <mutex>
#include <optional>
#include <unistd.h>
#include <utility>

namespace
{
struct ST_Handler
{
    ExitHandlers::Handler m_funHandler;
    void* m_pArgument;
    const void* m_pImage;
};

/// Never destroyed: threads run until the process has ended.
struct ST_Handlers
{
    std::mutex m_mtxHandlers;
    std::vector<ST_Handler> m_vecHandlers; ///< guarded by m_mtxHandlers
};

ST_Handlers& GetHandlers()
{
    static ST_Handlers& s_stHandlers = *new ST_Handlers;
    return s_stHandlers;
}

using ThreadHandlers = std::vector<std::pair<ExitHandlers::Handler, void*>>;
thread_local ThreadHandlers* t_pHandlers = nullptr; ///< a pointer: an object would be destroyed too early

/// Takes the last handler for which _funIsMeant holds from the list.
std::optional<ST_Handler> TakeLast(const std::function<bool(const ST_Handler&)>& _funIsMeant)
{
    ST_Handlers& stAll = GetHandlers();
    const std::lock_guard<std::mutex> lock(stAll.m_mtxHandlers);
    const auto itLast = std::find_if(stAll.m_vecHandlers.rbegin(), stAll.m_vecHandlers.rend(), _funIsMeant);
    if (itLast == stAll.m_vecHandlers.rend())
    {
        return std::nullopt;
    }
    const ST_Handler stLast = *itLast;
    stAll.m_vecHandlers.erase(std::next(itLast).base());
    return stLast;
}

void Run(const std::function<bool(const ST_Handler&)>& _funIsMeant)
{
    while (const std::optional<ST_Handler> stHandler = TakeLast(_funIsMeant))
    {
        stHandler->m_funHandler(stHandler->m_pArgument);
    }
}
} // namespace

namespace ExitHandlers
{
void Add(Handler _funHandler, void* _pArgument, const void* _pImage)
{
    ST_Handlers& stAll = GetHandlers();
    const std::lock_guard<std::mutex> lock(stAll.m_mtxHandlers);
    stAll.m_vecHandlers.push_back({_funHandler, _pArgument, _pImage});
}

void AddForThread(Handler _funHandler, void* _pObject)
{
    if (t_pHandlers == nullptr)
    {
        t_pHandlers = new ThreadHandlers;
    }
    t_pHandlers->emplace_back(_funHandler, _pObject);
}

void RunForThread()
{
    while (t_pHandlers != nullptr && !t_pHandlers->empty())
    {
        const auto [funHandler, pObject] = t_pHandlers->back();
        t_pHandlers->pop_back();
        funHandler(pObject);
    }
    delete std::exchange(t_pHandlers, nullptr);
}

void RunOf(const CLS_Image& _clsImage)
{
    Run([&_clsImage](const ST_Handler& _stHandler) { return _clsImage.Contains(_stHandler.m_pImage); });
}

void EndProcess(int _iStatus)
{
    RunForThread();
    Run([](const ST_Handler&) { return true; });
    std::fflush(nullptr);
    _exit(_iStatus);
}
} // namespace ExitHandlers
