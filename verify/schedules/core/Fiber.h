#pragma once

#include <csetjmp>
#include <cstddef>
#include <ucontext.h>

/// A flow of control with a stack of its own. All of them share one thread of the system, so that switching
/// takes nanoseconds and what runs is decided by the program alone.
///
/// Nothing is unwound when a fiber is left for good: what its frames own is lost.
class CLS_Fiber
{
public:
    using Body = void (*)();

    /// The flow that makes it: a place to come back to.
    CLS_Fiber() = default;
    ~CLS_Fiber();
    CLS_Fiber(const CLS_Fiber&) = delete;
    CLS_Fiber& operator=(const CLS_Fiber&) = delete;

    /// From the next switch to it on, this fiber runs _funBody, which must not return. Its stack is kept from
    /// one body to the next.
    void Start(Body _funBody);

    /// Leaves the calling flow, which _clsFrom stands for, and goes on with this one. Returns when somebody
    /// switches back.
    void SwitchFrom(CLS_Fiber& _clsFrom);

    /// Whether the place is on the fiber's stack, and how far from its beginning.
    bool FindOnStack(const void* _pPlace, std::size_t& _uiDepth) const;

private:
    static constexpr std::size_t STACK_SIZE = std::size_t{256} * 1024;
    /// Below it, for a stack that runs over; pages of any size fit in.
    static constexpr std::size_t GUARD_SIZE = std::size_t{64} * 1024;

    /// What the C++ run time keeps for a thread about its exceptions; as in its ABI.
    struct ST_Exceptions
    {
        void* m_pCaught = nullptr;
        unsigned m_uiUncaught = 0;
    };
    static ST_Exceptions& GetExceptions();

    char* m_pStack = nullptr; ///< with the guard
    bool m_bFresh = false;    ///< started, and not yet switched to
    ucontext_t m_stContext{};
    jmp_buf m_stPlace{};
    ST_Exceptions m_stExceptions;
};
