#include "verify/schedules/core/Fiber.h"

#include <cxxabi.h>
#include <new>
#include <sys/mman.h>

CLS_Fiber::~CLS_Fiber()
{
    if (m_pStack != nullptr)
    {
        munmap(m_pStack, GUARD_SIZE + STACK_SIZE);
    }
}

CLS_Fiber::ST_Exceptions& CLS_Fiber::GetExceptions()
{
    return *reinterpret_cast<ST_Exceptions*>(abi::__cxa_get_globals());
}

void CLS_Fiber::Start(Body _funBody)
{
    if (m_pStack == nullptr)
    {
        void* const pStack =
            mmap(nullptr, GUARD_SIZE + STACK_SIZE, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (pStack == MAP_FAILED)
        {
            throw std::bad_alloc();
        }
        char* const pUsable = static_cast<char*>(pStack) + GUARD_SIZE;
        if (mprotect(pUsable, STACK_SIZE, PROT_READ | PROT_WRITE) != 0)
        {
            munmap(pStack, GUARD_SIZE + STACK_SIZE);
            throw std::bad_alloc();
        }
        m_pStack = static_cast<char*>(pStack);
    }
    getcontext(&m_stContext);
    m_stContext.uc_stack.ss_sp = m_pStack + GUARD_SIZE;
    m_stContext.uc_stack.ss_size = STACK_SIZE;
    m_stContext.uc_link = nullptr;
    makecontext(&m_stContext, _funBody, 0);
    m_stExceptions = {};
    m_bFresh = true;
}

bool CLS_Fiber::FindOnStack(const void* _pPlace, std::size_t& _uiDepth) const
{
    if (m_pStack == nullptr)
    {
        return false;
    }
    const char* const pEnd = m_pStack + GUARD_SIZE + STACK_SIZE;
    _uiDepth = static_cast<std::size_t>(pEnd - static_cast<const char*>(_pPlace));
    return _uiDepth <= STACK_SIZE;
}

void CLS_Fiber::SwitchFrom(CLS_Fiber& _clsFrom)
{
    _clsFrom.m_stExceptions = GetExceptions();
    GetExceptions() = m_stExceptions;
    // A jump takes a twentieth of the time of swapcontext, which asks the system for the signal mask.
    if (_setjmp(_clsFrom.m_stPlace) == 0)
    {
        if (m_bFresh)
        {
            m_bFresh = false;
            setcontext(&m_stContext);
        }
        _longjmp(m_stPlace, 1);
    }
}
