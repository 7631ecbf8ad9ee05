#pragma once

/// \file
/// Annotations for clang's check of the lock discipline (-Wthread-safety): which lock guards what, and which
/// function needs or takes which lock. Other compilers ignore them. An argument may name something that is
/// declared later in the class.
///
/// The check sees what one function does with the locks that it names. It does not see through callables and
/// containers: it lets code call insert under a shared lock.

/// An attribute of the check; empty for compilers without it.
#if defined(__clang__)
#define ZEL_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define ZEL_THREAD_SAFETY(attribute)
#endif

/// Marks a class whose objects can be held. Diagnostics call it by the given name.
#define ZEL_CAPABILITY(name) ZEL_THREAD_SAFETY(capability(name))

/// Marks a class whose objects hold a lock from construction to destruction.
#define ZEL_SCOPED_CAPABILITY ZEL_THREAD_SAFETY(scoped_lockable)

/// Marks a member that is read only while the lock is held, and written only while it is held exclusively.
#define ZEL_GUARDED_BY(lock) ZEL_THREAD_SAFETY(guarded_by(lock))

/// The caller holds the lock.
#define ZEL_REQUIRES(lock) ZEL_THREAD_SAFETY(requires_capability(lock))
/// The caller holds the lock, at least shared.
#define ZEL_REQUIRES_SHARED(lock) ZEL_THREAD_SAFETY(requires_shared_capability(lock))

/// The function takes the locks itself; the caller holds none of them.
#define ZEL_EXCLUDES(...) ZEL_THREAD_SAFETY(locks_excluded(__VA_ARGS__))

/// Acquires the lock. Here and below: the object itself, if no lock is named.
#define ZEL_ACQUIRE(...) ZEL_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
/// Acquires the lock, shared.
#define ZEL_ACQUIRE_SHARED(...) ZEL_THREAD_SAFETY(acquire_shared_capability(__VA_ARGS__))
/// Acquires the lock if it returns its first argument.
#define ZEL_TRY_ACQUIRE(...) ZEL_THREAD_SAFETY(try_acquire_capability(__VA_ARGS__))
/// Acquires the lock, shared, if it returns its first argument.
#define ZEL_TRY_ACQUIRE_SHARED(...) ZEL_THREAD_SAFETY(try_acquire_shared_capability(__VA_ARGS__))
/// Releases a lock that is held exclusively.
#define ZEL_RELEASE(...) ZEL_THREAD_SAFETY(release_capability(__VA_ARGS__))
/// Releases a lock that is held shared.
#define ZEL_RELEASE_SHARED(...) ZEL_THREAD_SAFETY(release_shared_capability(__VA_ARGS__))
/// Releases a lock, however it is held.
#define ZEL_RELEASE_GENERIC(...) ZEL_THREAD_SAFETY(release_generic_capability(__VA_ARGS__))
