#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <new>

/// A lock or a similar object in Darwin's layout: a signature, which is its state, and memory.
///
/// The memory contains the Linux object, if that fits. Darwin's static initialisers set the memory to zeros,
/// and these are a Linux object of the usual kind.
template <std::size_t SIZE>
struct ST_Inside
{
    std::atomic<long> m_iSignature;
    alignas(8) std::array<char, SIZE> m_arrMemory;

    template <typename T_Object>
    T_Object* As()
    {
        static_assert(sizeof(T_Object) <= SIZE, "the Linux object must fit");
        return reinterpret_cast<T_Object*>(m_arrMemory.data());
    }
};

/// The signatures of objects. Those for static initialisers are Darwin's. Those for objects that a call
/// initialised are this program's own.
enum n_Signature : long
{
    SIGNATURE_MUTEX = 0x32AAABA7,
    SIGNATURE_CONDITION = 0x3CB0B1BB,
    SIGNATURE_RWLOCK = 0x2DA8B3B4,
    SIGNATURE_ONCE = 0x30B1BCBA,
    SIGNATURE_MUTEX_READY = 0x4D555458,
    SIGNATURE_CONDITION_READY = 0x434F4E44,
    SIGNATURE_BEING_MADE = 0x4D555459,
    SIGNATURE_ATTRIBUTES = 0x4D545841,
    SIGNATURE_NONE = 0, ///< never initialised, or destroyed
};

using Mutex = ST_Inside<56>;
using MutexAttributes = ST_Inside<8>;
using Condition = ST_Inside<40>;
using RwLock = ST_Inside<192>;
using Once = ST_Inside<8>;
static_assert(sizeof(Mutex) == 64 && sizeof(MutexAttributes) == 16 && sizeof(Condition) == 48 &&
              sizeof(RwLock) == 200 && sizeof(Once) == 16);
