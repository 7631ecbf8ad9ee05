#pragma once

/// \file
/// Which lock guards what, and which function needs or takes which lock, said so that clang checks it
/// (-Wthread-safety). To other compilers these say nothing. What an argument names may be declared later in
/// the class.
///
/// The check sees what one function does with the locks that it names. It does not see through callables and
/// containers: a shared lock does not keep anybody from calling insert.

/// An attribute of the check; nothing to compilers without it.
#if defined(__clang__)
#define ZEL_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define ZEL_THREAD_SAFETY(attribute)
#endif

/// A class whose objects can be held; the text is what diagnostics call it.
#define ZEL_CAPABILITY(name) ZEL_THREAD_SAFETY(capability(name))

/// A class whose objects hold something from construction to destruction.
#define ZEL_SCOPED_CAPABILITY ZEL_THREAD_SAFETY(scoped_lockable)

/// A member that is read while the lock is held, shared or exclusive, and written while it is held exclusive.
#define ZEL_GUARDED_BY(lock) ZEL_THREAD_SAFETY(guarded_by(lock))

/// A function that its caller calls with the lock held.
#define ZEL_REQUIRES(lock) ZEL_THREAD_SAFETY(requires_capability(lock))

/// A function that takes the locks itself: its caller holds none of them.
#define ZEL_EXCLUDES(...) ZEL_THREAD_SAFETY(locks_excluded(__VA_ARGS__))

/// A function that takes a lock: the object itself, here and below, when nothing is named.
#define ZEL_ACQUIRE(...) ZEL_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
/// A function that takes a lock, shared.
#define ZEL_ACQUIRE_SHARED(...) ZEL_THREAD_SAFETY(acquire_shared_capability(__VA_ARGS__))
/// A function that has taken a lock when it returns what stands first.
#define ZEL_TRY_ACQUIRE(...) ZEL_THREAD_SAFETY(try_acquire_capability(__VA_ARGS__))
/// A function that has taken a lock, shared, when it returns what stands first.
#define ZEL_TRY_ACQUIRE_SHARED(...) ZEL_THREAD_SAFETY(try_acquire_shared_capability(__VA_ARGS__))
/// A function that gives back a lock that is held exclusively.
#define ZEL_RELEASE(...) ZEL_THREAD_SAFETY(release_capability(__VA_ARGS__))
/// A function that gives back a lock that is held shared.
#define ZEL_RELEASE_SHARED(...) ZEL_THREAD_SAFETY(release_shared_capability(__VA_ARGS__))
/// A function that gives back a lock, however it is held.
#define ZEL_RELEASE_GENERIC(...) ZEL_THREAD_SAFETY(release_generic_capability(__VA_ARGS__))
