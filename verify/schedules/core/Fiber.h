#pragma once

#include <csetjmp>
#include <cstddef>
#include <ucontext.h>

/// A flow of control with its own stack.
///
/// All fibers share one thread of the system. So a switch takes nanoseconds, and only the program decides
/// which fiber runs. A fiber that is never resumed is not unwound: the objects in its frames are lost.
class CLS_Fiber
{
public:
    using Body = void (*)();

    /// Represents the flow that creates it, so that fibers can switch back.
    CLS_Fiber() = default;
    ~CLS_Fiber();
    CLS_Fiber(const CLS_Fiber&) = delete;
    CLS_Fiber& operator=(const CLS_Fiber&) = delete;

    /// Sets the function that the fiber runs from the next switch on. It must not return. The stack is
    /// reused.
    void Start(Body _funBody);

    /// Switches from the calling flow, which is _clsFrom, to this one. Returns after a switch back.
    void SwitchFrom(CLS_Fiber& _clsFrom);

    /// Whether the place is on the fiber's stack. If so, sets its distance from the beginning.
    bool FindOnStack(const void* _pPlace, std::size_t& _uiDepth) const;

private:
    static constexpr std::size_t STACK_SIZE = std::size_t{256} * 1024;
    /// The guard below the stack, which detects overflows. A page of any supported size fits.
    static constexpr std::size_t GUARD_SIZE = std::size_t{64} * 1024;

    /// The exception state that the C++ runtime keeps for each thread, as in its ABI.
    struct ST_Exceptions
    {
        void* m_pCaught = nullptr;
        unsigned m_uiUncaught = 0;
    };
    static ST_Exceptions& GetExceptions();

    char* m_pStack = nullptr; ///< including the guard
    bool m_bFresh = false;    ///< it has a body that has not begun
    ucontext_t m_stContext{};
    jmp_buf m_stPlace{};
    ST_Exceptions m_stExceptions;
};
