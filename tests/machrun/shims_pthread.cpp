// machrun: Darwin pthreads and low-level locks on glibc.
// The Linux object lives inside the Darwin one (behind its 8-byte signature)
// wherever it fits; all-zero Linux objects are valid default-initialised ones,
// which is what Darwin's static initialisers leave behind the signature.
#include "darwin.h"
#include "loader.h"

#include <atomic>
#include <climits>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace machrun
{
namespace
{

constexpr int D_EINVAL = 22;

template <size_t N>
struct Opaque
{
    long sig;
    alignas(8) char data[N];
    std::atomic<long>& signature() { return *reinterpret_cast<std::atomic<long>*>(&sig); }
    template <class T>
    T* as()
    {
        static_assert(sizeof(T) <= N, "the Linux object must fit");
        return reinterpret_cast<T*>(data);
    }
};
using DMutex = Opaque<56>;
using DCond = Opaque<40>;
using DRwlock = Opaque<192>;
using DOnce = Opaque<8>;
using DAttr = Opaque<56>;
using DMutexAttr = Opaque<8>;
using DCondAttr = Opaque<8>;
using DRwlockAttr = Opaque<16>;
static_assert(sizeof(DMutex) == 64 && sizeof(DCond) == 48 && sizeof(DRwlock) == 200 && sizeof(DOnce) == 16,
              "");

enum : long
{
    MUTEX_STATIC = 0x32AAABA7,
    MUTEX_STATIC_ERRORCHECK = 0x32AAABA1,
    MUTEX_STATIC_RECURSIVE = 0x32AAABA2,
    MUTEX_STATIC_FIRSTFIT = 0x32AAABA3,
    MUTEX_READY = 0x4D555458,
    MUTEX_BUSY = 0x4D555459, // being set up by another thread
    COND_STATIC = 0x3CB0B1BB,
    COND_READY = 0x434F4E44,
    RWLOCK_STATIC = 0x2DA8B3B4,
    RWLOCK_READY = 0x52574C4B,
    ONCE_STATIC = 0x30B1BCBA,
    ATTR_READY = 0x54484441,
    MUTEXATTR_READY = 0x4D545841,
    CONDATTR_READY = 0x434E4441,
    RWLOCKATTR_READY = 0x52574C41,
};

// ---- mutex ------------------------------------------------------------------

int kindFromDarwin(int kind)
{
    switch (kind)
    {
    case 1:
        return PTHREAD_MUTEX_ERRORCHECK;
    case 2:
        return PTHREAD_MUTEX_RECURSIVE;
    default:
        return PTHREAD_MUTEX_NORMAL;
    }
}

void initKind(pthread_mutex_t* mutex, int kind)
{
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, kind);
    pthread_mutex_init(mutex, &attr);
    pthread_mutexattr_destroy(&attr);
}

// The usable Linux mutex, or null when the object was never initialised (or was destroyed).
pthread_mutex_t* native(DMutex* m)
{
    for (;;)
    {
        long sig = m->signature().load(std::memory_order_acquire);
        switch (sig)
        {
        case MUTEX_READY:
        case MUTEX_STATIC:
        case MUTEX_STATIC_FIRSTFIT:
            return m->as<pthread_mutex_t>();
        case MUTEX_STATIC_ERRORCHECK:
        case MUTEX_STATIC_RECURSIVE:
        {
            long expected = sig;
            if (m->signature().compare_exchange_strong(expected, MUTEX_BUSY))
            {
                initKind(m->as<pthread_mutex_t>(),
                         sig == MUTEX_STATIC_RECURSIVE ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_ERRORCHECK);
                m->signature().store(MUTEX_READY, std::memory_order_release);
            }
            break;
        }
        case MUTEX_BUSY:
            sched_yield();
            break;
        default:
            return nullptr;
        }
    }
}

int d_pthread_mutex_init(DMutex* m, DMutexAttr* attr)
{
    std::memset(m, 0, sizeof *m);
    int result = 0;
    if (attr)
    {
        if (attr->sig != MUTEXATTR_READY)
            return D_EINVAL;
        result = pthread_mutex_init(m->as<pthread_mutex_t>(), attr->as<pthread_mutexattr_t>());
    }
    else
    {
        result = pthread_mutex_init(m->as<pthread_mutex_t>(), nullptr);
    }
    m->signature().store(MUTEX_READY, std::memory_order_release);
    return errnoToDarwin(result);
}
int d_pthread_mutex_destroy(DMutex* m)
{
    pthread_mutex_t* n = native(m);
    if (!n)
        return D_EINVAL;
    int result = pthread_mutex_destroy(n);
    if (result == 0)
        m->sig = 0;
    return errnoToDarwin(result);
}
int d_pthread_mutex_lock(DMutex* m)
{
    pthread_mutex_t* n = native(m);
    return n ? errnoToDarwin(pthread_mutex_lock(n)) : D_EINVAL;
}
int d_pthread_mutex_trylock(DMutex* m)
{
    pthread_mutex_t* n = native(m);
    return n ? errnoToDarwin(pthread_mutex_trylock(n)) : D_EINVAL;
}
int d_pthread_mutex_unlock(DMutex* m)
{
    pthread_mutex_t* n = native(m);
    return n ? errnoToDarwin(pthread_mutex_unlock(n)) : D_EINVAL;
}
int d_pthread_mutexattr_init(DMutexAttr* a)
{
    std::memset(a, 0, sizeof *a);
    a->sig = MUTEXATTR_READY;
    return pthread_mutexattr_init(a->as<pthread_mutexattr_t>());
}
int d_pthread_mutexattr_destroy(DMutexAttr* a)
{
    a->sig = 0;
    return 0;
}
int d_pthread_mutexattr_settype(DMutexAttr* a, int kind)
{
    if (a->sig != MUTEXATTR_READY || kind < 0 || kind > 2)
        return D_EINVAL;
    return pthread_mutexattr_settype(a->as<pthread_mutexattr_t>(), kindFromDarwin(kind));
}
int d_pthread_mutexattr_gettype(DMutexAttr* a, int* kind)
{
    int k = 0;
    pthread_mutexattr_gettype(a->as<pthread_mutexattr_t>(), &k);
    *kind = k == PTHREAD_MUTEX_ERRORCHECK ? 1 : k == PTHREAD_MUTEX_RECURSIVE ? 2 : 0;
    return 0;
}
int d_pthread_mutexattr_ok(DMutexAttr*, int)
{
    return 0;
}

// ---- condition variable -------------------------------------------------------
// glibc's object needs 48 bytes where 40 are free: it is allocated on first use.

pthread_cond_t* native(DCond* c)
{
    for (;;)
    {
        long sig = c->signature().load(std::memory_order_acquire);
        if (sig == COND_READY)
            return *c->as<pthread_cond_t*>();
        if (sig == MUTEX_BUSY)
        {
            sched_yield();
            continue;
        }
        if (sig != COND_STATIC)
            return nullptr;
        if (c->signature().compare_exchange_strong(sig, MUTEX_BUSY))
        {
            auto n = new pthread_cond_t;
            pthread_cond_init(n, nullptr);
            *c->as<pthread_cond_t*>() = n;
            c->signature().store(COND_READY, std::memory_order_release);
        }
    }
}
int d_pthread_cond_init(DCond* c, DCondAttr*)
{
    std::memset(c, 0, sizeof *c);
    c->sig = COND_STATIC;
    return native(c) ? 0 : D_EINVAL;
}
int d_pthread_cond_destroy(DCond* c)
{
    if (c->sig == COND_STATIC)
    {
        c->sig = 0;
        return 0;
    }
    pthread_cond_t* n = native(c);
    if (!n)
        return D_EINVAL;
    int result = pthread_cond_destroy(n);
    delete n;
    c->sig = 0;
    return errnoToDarwin(result);
}
int d_pthread_cond_signal(DCond* c)
{
    pthread_cond_t* n = native(c);
    return n ? errnoToDarwin(pthread_cond_signal(n)) : D_EINVAL;
}
int d_pthread_cond_broadcast(DCond* c)
{
    pthread_cond_t* n = native(c);
    return n ? errnoToDarwin(pthread_cond_broadcast(n)) : D_EINVAL;
}
int d_pthread_cond_wait(DCond* c, DMutex* m)
{
    pthread_cond_t* n = native(c);
    pthread_mutex_t* nm = native(m);
    return n && nm ? errnoToDarwin(pthread_cond_wait(n, nm)) : D_EINVAL;
}
int d_pthread_cond_timedwait(DCond* c, DMutex* m, const timespec* until)
{
    pthread_cond_t* n = native(c);
    pthread_mutex_t* nm = native(m);
    return n && nm ? errnoToDarwin(pthread_cond_timedwait(n, nm, until)) : D_EINVAL;
}
int d_pthread_cond_timedwait_relative_np(DCond* c, DMutex* m, const timespec* span)
{
    pthread_cond_t* n = native(c);
    pthread_mutex_t* nm = native(m);
    if (!n || !nm)
        return D_EINVAL;
    timespec until;
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += span->tv_sec;
    until.tv_nsec += span->tv_nsec;
    if (until.tv_nsec >= 1000000000)
    {
        until.tv_nsec -= 1000000000;
        ++until.tv_sec;
    }
    return errnoToDarwin(pthread_cond_clockwait(n, nm, CLOCK_MONOTONIC, &until));
}
int d_pthread_condattr_init(DCondAttr* a)
{
    std::memset(a, 0, sizeof *a);
    a->sig = CONDATTR_READY;
    return 0;
}
int d_pthread_condattr_destroy(DCondAttr* a)
{
    a->sig = 0;
    return 0;
}

// ---- read/write lock ------------------------------------------------------------

pthread_rwlock_t* native(DRwlock* l)
{
    return l->sig == RWLOCK_STATIC || l->sig == RWLOCK_READY ? l->as<pthread_rwlock_t>() : nullptr;
}
int d_pthread_rwlock_init(DRwlock* l, DRwlockAttr*)
{
    std::memset(l, 0, sizeof *l);
    l->sig = RWLOCK_READY;
    return errnoToDarwin(pthread_rwlock_init(l->as<pthread_rwlock_t>(), nullptr));
}
int d_pthread_rwlock_destroy(DRwlock* l)
{
    pthread_rwlock_t* n = native(l);
    if (!n)
        return D_EINVAL;
    int result = pthread_rwlock_destroy(n);
    l->sig = 0;
    return errnoToDarwin(result);
}
template <int (*F)(pthread_rwlock_t*) noexcept>
int rwlockCall(DRwlock* l)
{
    pthread_rwlock_t* n = native(l);
    return n ? errnoToDarwin(F(n)) : D_EINVAL;
}
int d_pthread_rwlockattr_init(DRwlockAttr* a)
{
    std::memset(a, 0, sizeof *a);
    a->sig = RWLOCKATTR_READY;
    return 0;
}
int d_pthread_rwlockattr_destroy(DRwlockAttr* a)
{
    a->sig = 0;
    return 0;
}

// ---- once, keys -------------------------------------------------------------------

int d_pthread_once(DOnce* once, void (*fn)())
{
    return once->sig == ONCE_STATIC ? errnoToDarwin(pthread_once(once->as<pthread_once_t>(), fn)) : D_EINVAL;
}

constexpr unsigned long KEY_BASE = 256; // Darwin's own keys lie below: a program never sees key 0
int d_pthread_key_create(unsigned long* key, void (*destructor)(void*))
{
    pthread_key_t k;
    int result = pthread_key_create(&k, destructor);
    if (result == 0)
        *key = k + KEY_BASE;
    return errnoToDarwin(result);
}
int d_pthread_key_delete(unsigned long key)
{
    return errnoToDarwin(pthread_key_delete(static_cast<pthread_key_t>(key - KEY_BASE)));
}
void* d_pthread_getspecific(unsigned long key)
{
    return pthread_getspecific(static_cast<pthread_key_t>(key - KEY_BASE));
}
int d_pthread_setspecific(unsigned long key, const void* value)
{
    return errnoToDarwin(pthread_setspecific(static_cast<pthread_key_t>(key - KEY_BASE), value));
}

// ---- threads ------------------------------------------------------------------------

constexpr size_t SECONDARY_STACK = 512 * 1024; // what macOS gives a secondary thread

struct Start
{
    void* (*fn)(void*);
    void* arg;
};
void* threadStart(void* p)
{
    Start start = *static_cast<Start*>(p);
    delete static_cast<Start*>(p);
    void* result = start.fn(start.arg);
    runTlvAtExit();
    return result;
}

int d_pthread_create(pthread_t* thread, DAttr* attr, void* (*fn)(void*), void* arg)
{
    pthread_attr_t local;
    pthread_attr_init(&local);
    if (attr)
    {
        if (attr->sig != ATTR_READY)
            return D_EINVAL;
        auto given = attr->as<pthread_attr_t>();
        int state;
        size_t size;
        pthread_attr_getdetachstate(given, &state);
        pthread_attr_setdetachstate(&local, state);
        pthread_attr_getstacksize(given, &size);
        pthread_attr_setstacksize(&local, size);
    }
    else if (g_options.smallStacks)
    {
        pthread_attr_setstacksize(&local, SECONDARY_STACK);
    }
    auto start = new Start{fn, arg};
    int result = pthread_create(thread, &local, threadStart, start);
    pthread_attr_destroy(&local);
    if (result != 0)
        delete start;
    return errnoToDarwin(result);
}
[[noreturn]] void d_pthread_exit(void* value)
{
    runTlvAtExit();
    pthread_exit(value);
}
int d_pthread_attr_init(DAttr* a)
{
    std::memset(a, 0, sizeof *a);
    a->sig = ATTR_READY;
    pthread_attr_init(a->as<pthread_attr_t>());
    pthread_attr_setstacksize(a->as<pthread_attr_t>(), SECONDARY_STACK);
    return 0;
}
int d_pthread_attr_destroy(DAttr* a)
{
    if (a->sig != ATTR_READY)
        return D_EINVAL;
    a->sig = 0;
    return errnoToDarwin(pthread_attr_destroy(a->as<pthread_attr_t>()));
}
int d_pthread_attr_setdetachstate(DAttr* a, int state)
{
    if (state != 1 && state != 2)
        return D_EINVAL;
    return pthread_attr_setdetachstate(a->as<pthread_attr_t>(),
                                       state == 2 ? PTHREAD_CREATE_DETACHED : PTHREAD_CREATE_JOINABLE);
}
int d_pthread_attr_getdetachstate(DAttr* a, int* state)
{
    int s;
    pthread_attr_getdetachstate(a->as<pthread_attr_t>(), &s);
    *state = s == PTHREAD_CREATE_DETACHED ? 2 : 1;
    return 0;
}
int d_pthread_attr_setstacksize(DAttr* a, size_t size)
{
    return errnoToDarwin(pthread_attr_setstacksize(a->as<pthread_attr_t>(), size));
}
int d_pthread_attr_getstacksize(DAttr* a, size_t* size)
{
    return errnoToDarwin(pthread_attr_getstacksize(a->as<pthread_attr_t>(), size));
}
int d_pthread_setname_np(const char* name)
{
    char text[16];
    std::strncpy(text, name ? name : "", sizeof text - 1);
    text[15] = 0;
    return errnoToDarwin(pthread_setname_np(pthread_self(), text));
}
int d_pthread_getname_np(pthread_t thread, char* name, size_t size)
{
    char text[16];
    int result = pthread_getname_np(thread, text, sizeof text);
    if (result == 0 && size)
    {
        std::strncpy(name, text, size - 1);
        name[size - 1] = 0;
    }
    return errnoToDarwin(result);
}
int d_pthread_threadid_np(pthread_t, uint64_t* id)
{
    *id = static_cast<uint64_t>(syscall(SYS_gettid));
    return 0;
}
unsigned d_pthread_mach_thread_np(pthread_t thread)
{
    // any number that is stable and unique per thread will do
    return static_cast<unsigned>(static_cast<uint64_t>(thread) >> 6) | 1;
}
int d_pthread_main_np()
{
    return syscall(SYS_gettid) == getpid();
}
void d_pthread_yield_np()
{
    sched_yield();
}
void* d_pthread_get_stackaddr_np(pthread_t thread)
{
    pthread_attr_t attr;
    void* low = nullptr;
    size_t size = 0;
    pthread_getattr_np(thread, &attr);
    pthread_attr_getstack(&attr, &low, &size);
    pthread_attr_destroy(&attr);
    return static_cast<char*>(low) + size; // Darwin names the high end
}
size_t d_pthread_get_stacksize_np(pthread_t thread)
{
    pthread_attr_t attr;
    void* low = nullptr;
    size_t size = 0;
    pthread_getattr_np(thread, &attr);
    pthread_attr_getstack(&attr, &low, &size);
    pthread_attr_destroy(&attr);
    return size;
}
struct DSchedParam
{
    int priority;
    char opaque[4];
};
int d_pthread_getschedparam(pthread_t, int* policy, DSchedParam* param)
{
    *policy = 1; // SCHED_OTHER
    param->priority = 31;
    return 0;
}
int d_pthread_setschedparam(pthread_t, int, const DSchedParam*)
{
    return 0;
}
int d_pthread_set_qos_class_self_np(unsigned, int)
{
    return 0;
}
int d_pthread_kill(pthread_t thread, int signal)
{
    return errnoToDarwin(pthread_kill(thread, signalFromDarwin(signal)));
}

// ---- os_unfair_lock, ulock ------------------------------------------------------------

struct Bucket
{
    std::mutex mutex;
    std::condition_variable wake;
};
Bucket g_buckets[64];
Bucket& bucketOf(const void* address)
{
    return g_buckets[(reinterpret_cast<uintptr_t>(address) >> 3) % 64];
}

void d_os_unfair_lock_lock(std::atomic<uint32_t>* lock)
{
    uint32_t zero = 0;
    if (lock->compare_exchange_strong(zero, 1, std::memory_order_acquire))
        return;
    Bucket& bucket = bucketOf(lock);
    std::unique_lock<std::mutex> guard(bucket.mutex);
    while (lock->exchange(2, std::memory_order_acquire) != 0)
        bucket.wake.wait(guard);
}
bool d_os_unfair_lock_trylock(std::atomic<uint32_t>* lock)
{
    uint32_t zero = 0;
    return lock->compare_exchange_strong(zero, 1, std::memory_order_acquire);
}
void d_os_unfair_lock_unlock(std::atomic<uint32_t>* lock)
{
    if (lock->exchange(0, std::memory_order_release) == 2)
    {
        Bucket& bucket = bucketOf(lock);
        std::lock_guard<std::mutex> guard(bucket.mutex);
        bucket.wake.notify_all();
    }
}
void d_os_unfair_lock_assert(std::atomic<uint32_t>*) {}

enum : uint32_t
{
    UL_COMPARE_AND_WAIT64 = 5,
    ULF_NO_ERRNO = 0x01000000
};

int ulockError(uint32_t operation, int error)
{
    if (operation & ULF_NO_ERRNO)
        return -error;
    *darwinErrno() = error;
    return -1;
}

int ulockWait(uint32_t operation, void* address, uint64_t value, uint64_t nanoseconds)
{
    Bucket& bucket = bucketOf(address);
    std::unique_lock<std::mutex> guard(bucket.mutex);
    uint64_t now = (operation & 0xff) >= UL_COMPARE_AND_WAIT64
                       ? static_cast<std::atomic<uint64_t>*>(address)->load()
                       : static_cast<std::atomic<uint32_t>*>(address)->load();
    if (now != ((operation & 0xff) >= UL_COMPARE_AND_WAIT64 ? value : static_cast<uint32_t>(value)))
        return 0;
    if (!nanoseconds)
    {
        bucket.wake.wait(guard);
        return 0;
    }
    if (bucket.wake.wait_for(guard, std::chrono::nanoseconds(nanoseconds)) == std::cv_status::timeout)
        return ulockError(operation, 60);
    return 0;
}
int d___ulock_wait(uint32_t operation, void* address, uint64_t value, uint32_t microseconds)
{
    return ulockWait(operation, address, value, uint64_t(microseconds) * 1000);
}
int d___ulock_wait2(uint32_t operation, void* address, uint64_t value, uint64_t nanoseconds, uint64_t)
{
    return ulockWait(operation, address, value, nanoseconds);
}
int d___ulock_wake(uint32_t, void* address, uint64_t)
{
    Bucket& bucket = bucketOf(address);
    std::lock_guard<std::mutex> guard(bucket.mutex);
    bucket.wake.notify_all(); // waking too many is allowed: waiters test again
    return 0;
}

const ShimEntry entries[] = {
    SHIM(pthread_mutex_init),
    SHIM(pthread_mutex_destroy),
    SHIM(pthread_mutex_lock),
    SHIM(pthread_mutex_trylock),
    SHIM(pthread_mutex_unlock),
    SHIM(pthread_mutexattr_init),
    SHIM(pthread_mutexattr_destroy),
    SHIM(pthread_mutexattr_settype),
    SHIM(pthread_mutexattr_gettype),
    SHIM_AS("_pthread_mutexattr_setpolicy_np", d_pthread_mutexattr_ok),
    SHIM_AS("_pthread_mutexattr_setprotocol", d_pthread_mutexattr_ok),
    SHIM(pthread_cond_init),
    SHIM(pthread_cond_destroy),
    SHIM(pthread_cond_signal),
    SHIM(pthread_cond_broadcast),
    SHIM(pthread_cond_wait),
    SHIM(pthread_cond_timedwait),
    SHIM(pthread_cond_timedwait_relative_np),
    SHIM(pthread_condattr_init),
    SHIM(pthread_condattr_destroy),
    SHIM(pthread_rwlock_init),
    SHIM(pthread_rwlock_destroy),
    SHIM_AS("_pthread_rwlock_rdlock", rwlockCall<pthread_rwlock_rdlock>),
    SHIM_AS("_pthread_rwlock_wrlock", rwlockCall<pthread_rwlock_wrlock>),
    SHIM_AS("_pthread_rwlock_tryrdlock", rwlockCall<pthread_rwlock_tryrdlock>),
    SHIM_AS("_pthread_rwlock_trywrlock", rwlockCall<pthread_rwlock_trywrlock>),
    SHIM_AS("_pthread_rwlock_unlock", rwlockCall<pthread_rwlock_unlock>),
    SHIM(pthread_rwlockattr_init),
    SHIM(pthread_rwlockattr_destroy),
    SHIM(pthread_once),
    SHIM(pthread_key_create),
    SHIM(pthread_key_delete),
    SHIM(pthread_getspecific),
    SHIM(pthread_setspecific),
    SHIM(pthread_create),
    SHIM(pthread_exit),
    SHIM_RESULT(pthread_join),
    SHIM_RESULT(pthread_detach),
    SHIM_AS("_pthread_self", ::pthread_self),
    SHIM_AS("_pthread_equal", ::pthread_equal),
    SHIM(pthread_attr_init),
    SHIM(pthread_attr_destroy),
    SHIM(pthread_attr_setdetachstate),
    SHIM(pthread_attr_getdetachstate),
    SHIM(pthread_attr_setstacksize),
    SHIM(pthread_attr_getstacksize),
    SHIM(pthread_setname_np),
    SHIM(pthread_getname_np),
    SHIM(pthread_threadid_np),
    SHIM(pthread_mach_thread_np),
    SHIM(pthread_main_np),
    SHIM(pthread_yield_np),
    SHIM(pthread_get_stackaddr_np),
    SHIM(pthread_get_stacksize_np),
    SHIM(pthread_getschedparam),
    SHIM(pthread_setschedparam),
    SHIM(pthread_set_qos_class_self_np),
    SHIM(pthread_kill),
    SHIM_RESULT(pthread_atfork),
    SHIM(os_unfair_lock_lock),
    SHIM(os_unfair_lock_trylock),
    SHIM(os_unfair_lock_unlock),
    SHIM_AS("_os_unfair_lock_assert_owner", d_os_unfair_lock_assert),
    SHIM_AS("_os_unfair_lock_assert_not_owner", d_os_unfair_lock_assert),
    SHIM(__ulock_wait),
    SHIM(__ulock_wait2),
    SHIM(__ulock_wake),
};

} // namespace

ShimTable pthreadShims()
{
    return {entries, sizeof entries / sizeof *entries};
}

} // namespace machrun
