#include "tests/schedule/core/Fiber.h"

#include <cxxabi.h>
#include <new>
#include <sys/mman.h>

CLS_Fiber::~CLS_Fiber()
{
    if (m_pStack != nullptr)
    {
        munmap(m_pStack, STACK_SIZE);
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
        m_pStack = mmap(nullptr, STACK_SIZE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (m_pStack == MAP_FAILED)
        {
            m_pStack = nullptr;
            throw std::bad_alloc();
        }
    }
    getcontext(&m_stContext);
    m_stContext.uc_stack.ss_sp = m_pStack;
    m_stContext.uc_stack.ss_size = STACK_SIZE;
    m_stContext.uc_link = nullptr;
    makecontext(&m_stContext, _funBody, 0);
    m_stExceptions = {};
    m_bFresh = true;
}

void CLS_Fiber::SwitchFrom(CLS_Fiber& _clsFrom)
{
    _clsFrom.m_stExceptions = GetExceptions();
    GetExceptions() = m_stExceptions;
    // Jumps take a twentieth of a full change of context, which asks the system for its signal mask.
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
