// The functions that code compiled with -fsanitize=thread calls at every access to memory. The program is not
// linked with that sanitizer, so these functions take its place. An atomic access is a step. Any other access
// is only checked for memory that was freed.

#include "verify/schedules/core/Memory.h"
#include "verify/schedules/core/Scheduler.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace
{
/// The compiler's numbers for the memory orders, which are those of the language.
constexpr int SEQUENTIAL = static_cast<int>(std::memory_order_seq_cst);

CLS_Scheduler* Reach(n_Step _iStep, const volatile void* _pPlace)
{
    CLS_Scheduler* const pScheduler = CLS_Scheduler::GetActive();
    if (pScheduler != nullptr)
    {
        pScheduler->Reach(_iStep, const_cast<const void*>(_pPlace));
    }
    return pScheduler;
}

template <typename T_Word>
T_Word Load(const volatile T_Word* _pWord)
{
    if (CLS_Scheduler* const pScheduler = Reach(STEP_LOAD, _pWord))
    {
        std::uint64_t uiOwn = 0;
        if (pScheduler->GetStores().Find(const_cast<const T_Word*>(_pWord), uiOwn))
        {
            return static_cast<T_Word>(uiOwn);
        }
    }
    return *_pWord;
}

template <typename T_Word>
void Store(volatile T_Word* _pWord, T_Word _iValue, int _iOrder)
{
    if (CLS_Scheduler* const pScheduler = Reach(STEP_STORE, _pWord))
    {
        if (pScheduler->HasLateStores() && _iOrder < SEQUENTIAL)
        {
            const CLS_Scheduler::CLS_Inside clsInside;
            pScheduler->GetStores().Add(const_cast<T_Word*>(_pWord),
                                        static_cast<std::make_unsigned_t<T_Word>>(_iValue), sizeof(T_Word));
            return;
        }
        pScheduler->ShowStores();
    }
    *_pWord = _iValue;
}

void ReachChange(const volatile void* _pPlace)
{
    if (CLS_Scheduler* const pScheduler = Reach(STEP_CHANGE, _pPlace))
    {
        pScheduler->ShowStores();
    }
}

/// Replaces the word by what the function makes of it. Returns the word before.
template <typename T_Word, typename T_Change>
T_Word Change(volatile T_Word* _pWord, T_Change _funChange)
{
    ReachChange(_pWord);
    const T_Word iBefore = *_pWord;
    *_pWord = static_cast<T_Word>(_funChange(iBefore));
    return iBefore;
}

template <typename T_Word>
T_Word Exchange(volatile T_Word* _pWord, T_Word _iValue)
{
    return Change(_pWord, [=](T_Word) { return _iValue; });
}

template <typename T_Word>
T_Word Add(volatile T_Word* _pWord, T_Word _iValue)
{
    using Unsigned = std::make_unsigned_t<T_Word>;
    return Change(_pWord, [=](T_Word _iBefore)
                  { return static_cast<Unsigned>(_iBefore) + static_cast<Unsigned>(_iValue); });
}

template <typename T_Word>
int CompareExchange(volatile T_Word* _pWord, T_Word* _pExpected, T_Word _iValue)
{
    ReachChange(_pWord);
    const T_Word iBefore = *_pWord;
    if (iBefore == *_pExpected)
    {
        *_pWord = _iValue;
        return 1;
    }
    *_pExpected = iBefore;
    return 0;
}

void Touch(const void* _pPlace, const char* _szAccess)
{
    Memory::CheckAccess(_pPlace, _szAccess);
}

/// Checks only both ends of the accessed memory. That is enough, because blocks are freed as a whole.
void TouchRange(const void* _pBegin, std::size_t _uiSize, const char* _szAccess)
{
    if (_uiSize > 0)
    {
        Touch(_pBegin, _szAccess);
        Touch(static_cast<const char*>(_pBegin) + _uiSize - 1, _szAccess);
    }
}
} // namespace

extern "C"
{
    void __tsan_init() {}
    void __tsan_func_entry(void*) {}
    void __tsan_func_exit() {}

    void __tsan_read1(void* _pPlace)
    {
        Touch(_pPlace, "read");
    }
    void __tsan_write1(void* _pPlace)
    {
        Touch(_pPlace, "written");
    }
    void __tsan_read2(void* _pPlace)
    {
        Touch(_pPlace, "read");
    }
    void __tsan_write2(void* _pPlace)
    {
        Touch(_pPlace, "written");
    }
    void __tsan_unaligned_read2(void* _pPlace)
    {
        Touch(_pPlace, "read");
    }
    void __tsan_unaligned_write2(void* _pPlace)
    {
        Touch(_pPlace, "written");
    }
    void __tsan_read4(void* _pPlace)
    {
        Touch(_pPlace, "read");
    }
    void __tsan_write4(void* _pPlace)
    {
        Touch(_pPlace, "written");
    }
    void __tsan_unaligned_read4(void* _pPlace)
    {
        Touch(_pPlace, "read");
    }
    void __tsan_unaligned_write4(void* _pPlace)
    {
        Touch(_pPlace, "written");
    }
    void __tsan_read8(void* _pPlace)
    {
        Touch(_pPlace, "read");
    }
    void __tsan_write8(void* _pPlace)
    {
        Touch(_pPlace, "written");
    }
    void __tsan_unaligned_read8(void* _pPlace)
    {
        Touch(_pPlace, "read");
    }
    void __tsan_unaligned_write8(void* _pPlace)
    {
        Touch(_pPlace, "written");
    }
    void __tsan_read16(void* _pPlace)
    {
        Touch(_pPlace, "read");
    }
    void __tsan_write16(void* _pPlace)
    {
        Touch(_pPlace, "written");
    }
    void __tsan_unaligned_read16(void* _pPlace)
    {
        Touch(_pPlace, "read");
    }
    void __tsan_unaligned_write16(void* _pPlace)
    {
        Touch(_pPlace, "written");
    }
    void __tsan_read_range(void* _pPlace, std::size_t _uiSize)
    {
        TouchRange(_pPlace, _uiSize, "read");
    }
    void __tsan_write_range(void* _pPlace, std::size_t _uiSize)
    {
        TouchRange(_pPlace, _uiSize, "written");
    }
    void __tsan_vptr_read(void** _pPlace)
    {
        Touch(_pPlace, "read");
    }
    void __tsan_vptr_update(void** _pPlace, void*)
    {
        Touch(_pPlace, "written");
    }

    std::int8_t __tsan_atomic8_load(const volatile std::int8_t* _pWord, int)
    {
        return Load(_pWord);
    }
    void __tsan_atomic8_store(volatile std::int8_t* _pWord, std::int8_t _iValue, int _iOrder)
    {
        Store(_pWord, _iValue, _iOrder);
    }
    std::int8_t __tsan_atomic8_exchange(volatile std::int8_t* _pWord, std::int8_t _iValue, int)
    {
        return Exchange(_pWord, _iValue);
    }
    std::int8_t __tsan_atomic8_fetch_add(volatile std::int8_t* _pWord, std::int8_t _iValue, int)
    {
        return Add(_pWord, _iValue);
    }
    std::int8_t __tsan_atomic8_fetch_sub(volatile std::int8_t* _pWord, std::int8_t _iValue, int)
    {
        return Add(_pWord, static_cast<std::int8_t>(-_iValue));
    }
    int __tsan_atomic8_compare_exchange_strong(volatile std::int8_t* _pWord, std::int8_t* _pExpected,
                                               std::int8_t _iValue, int, int)
    {
        return CompareExchange(_pWord, _pExpected, _iValue);
    }
    int __tsan_atomic8_compare_exchange_weak(volatile std::int8_t* _pWord, std::int8_t* _pExpected,
                                             std::int8_t _iValue, int, int)
    {
        return CompareExchange(_pWord, _pExpected, _iValue);
    }
    std::int8_t __tsan_atomic8_compare_exchange_val(volatile std::int8_t* _pWord, std::int8_t _iExpected,
                                                    std::int8_t _iValue, int, int)
    {
        CompareExchange(_pWord, &_iExpected, _iValue);
        return _iExpected;
    }

    std::int16_t __tsan_atomic16_load(const volatile std::int16_t* _pWord, int)
    {
        return Load(_pWord);
    }
    void __tsan_atomic16_store(volatile std::int16_t* _pWord, std::int16_t _iValue, int _iOrder)
    {
        Store(_pWord, _iValue, _iOrder);
    }
    std::int16_t __tsan_atomic16_exchange(volatile std::int16_t* _pWord, std::int16_t _iValue, int)
    {
        return Exchange(_pWord, _iValue);
    }
    std::int16_t __tsan_atomic16_fetch_add(volatile std::int16_t* _pWord, std::int16_t _iValue, int)
    {
        return Add(_pWord, _iValue);
    }
    std::int16_t __tsan_atomic16_fetch_sub(volatile std::int16_t* _pWord, std::int16_t _iValue, int)
    {
        return Add(_pWord, static_cast<std::int16_t>(-_iValue));
    }
    int __tsan_atomic16_compare_exchange_strong(volatile std::int16_t* _pWord, std::int16_t* _pExpected,
                                                std::int16_t _iValue, int, int)
    {
        return CompareExchange(_pWord, _pExpected, _iValue);
    }
    int __tsan_atomic16_compare_exchange_weak(volatile std::int16_t* _pWord, std::int16_t* _pExpected,
                                              std::int16_t _iValue, int, int)
    {
        return CompareExchange(_pWord, _pExpected, _iValue);
    }
    std::int16_t __tsan_atomic16_compare_exchange_val(volatile std::int16_t* _pWord, std::int16_t _iExpected,
                                                      std::int16_t _iValue, int, int)
    {
        CompareExchange(_pWord, &_iExpected, _iValue);
        return _iExpected;
    }

    std::int32_t __tsan_atomic32_load(const volatile std::int32_t* _pWord, int)
    {
        return Load(_pWord);
    }
    void __tsan_atomic32_store(volatile std::int32_t* _pWord, std::int32_t _iValue, int _iOrder)
    {
        Store(_pWord, _iValue, _iOrder);
    }
    std::int32_t __tsan_atomic32_exchange(volatile std::int32_t* _pWord, std::int32_t _iValue, int)
    {
        return Exchange(_pWord, _iValue);
    }
    std::int32_t __tsan_atomic32_fetch_add(volatile std::int32_t* _pWord, std::int32_t _iValue, int)
    {
        return Add(_pWord, _iValue);
    }
    std::int32_t __tsan_atomic32_fetch_sub(volatile std::int32_t* _pWord, std::int32_t _iValue, int)
    {
        return Add(_pWord, static_cast<std::int32_t>(-_iValue));
    }
    std::int32_t __tsan_atomic32_fetch_or(volatile std::int32_t* _pWord, std::int32_t _iBits, int)
    {
        return Change(_pWord, [=](std::int32_t _iBefore) { return _iBefore | _iBits; });
    }
    std::int32_t __tsan_atomic32_fetch_and(volatile std::int32_t* _pWord, std::int32_t _iBits, int)
    {
        return Change(_pWord, [=](std::int32_t _iBefore) { return _iBefore & _iBits; });
    }
    int __tsan_atomic32_compare_exchange_strong(volatile std::int32_t* _pWord, std::int32_t* _pExpected,
                                                std::int32_t _iValue, int, int)
    {
        return CompareExchange(_pWord, _pExpected, _iValue);
    }
    int __tsan_atomic32_compare_exchange_weak(volatile std::int32_t* _pWord, std::int32_t* _pExpected,
                                              std::int32_t _iValue, int, int)
    {
        return CompareExchange(_pWord, _pExpected, _iValue);
    }
    std::int32_t __tsan_atomic32_compare_exchange_val(volatile std::int32_t* _pWord, std::int32_t _iExpected,
                                                      std::int32_t _iValue, int, int)
    {
        CompareExchange(_pWord, &_iExpected, _iValue);
        return _iExpected;
    }

    std::int64_t __tsan_atomic64_load(const volatile std::int64_t* _pWord, int)
    {
        return Load(_pWord);
    }
    void __tsan_atomic64_store(volatile std::int64_t* _pWord, std::int64_t _iValue, int _iOrder)
    {
        Store(_pWord, _iValue, _iOrder);
    }
    std::int64_t __tsan_atomic64_exchange(volatile std::int64_t* _pWord, std::int64_t _iValue, int)
    {
        return Exchange(_pWord, _iValue);
    }
    std::int64_t __tsan_atomic64_fetch_add(volatile std::int64_t* _pWord, std::int64_t _iValue, int)
    {
        return Add(_pWord, _iValue);
    }
    std::int64_t __tsan_atomic64_fetch_sub(volatile std::int64_t* _pWord, std::int64_t _iValue, int)
    {
        return Add(_pWord, static_cast<std::int64_t>(-_iValue));
    }
    int __tsan_atomic64_compare_exchange_strong(volatile std::int64_t* _pWord, std::int64_t* _pExpected,
                                                std::int64_t _iValue, int, int)
    {
        return CompareExchange(_pWord, _pExpected, _iValue);
    }
    int __tsan_atomic64_compare_exchange_weak(volatile std::int64_t* _pWord, std::int64_t* _pExpected,
                                              std::int64_t _iValue, int, int)
    {
        return CompareExchange(_pWord, _pExpected, _iValue);
    }
    std::int64_t __tsan_atomic64_compare_exchange_val(volatile std::int64_t* _pWord, std::int64_t _iExpected,
                                                      std::int64_t _iValue, int, int)
    {
        CompareExchange(_pWord, &_iExpected, _iValue);
        return _iExpected;
    }

    // Some compilers call these for blocks of memory.
    void* __tsan_memcpy(void* _pTo, const void* _pFrom, std::size_t _uiSize)
    {
        TouchRange(_pFrom, _uiSize, "read");
        TouchRange(_pTo, _uiSize, "written");
        return std::memcpy(_pTo, _pFrom, _uiSize);
    }
    void* __tsan_memmove(void* _pTo, const void* _pFrom, std::size_t _uiSize)
    {
        TouchRange(_pFrom, _uiSize, "read");
        TouchRange(_pTo, _uiSize, "written");
        return std::memmove(_pTo, _pFrom, _uiSize);
    }
    void* __tsan_memset(void* _pTo, int _iByte, std::size_t _uiSize)
    {
        TouchRange(_pTo, _uiSize, "written");
        return std::memset(_pTo, _iByte, _uiSize);
    }

    void __tsan_atomic_thread_fence(int)
    {
        if (CLS_Scheduler* const pScheduler = Reach(STEP_FENCE, nullptr))
        {
            pScheduler->ShowStores();
        }
    }
    void __tsan_atomic_signal_fence(int) {}
}
