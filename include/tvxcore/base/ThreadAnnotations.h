// tvxcore/base/ThreadAnnotations.h: lock contracts that the compiler checks.
//
// Clang's thread-safety analysis (-Wthread-safety) reads these attributes and
// reports an access to a guarded member without its lock, a function called
// without the lock it requires, or a lock leaked out of a scope. Other
// compilers see nothing. The library's own lock types are annotated, so code
// of a host that guards its data with them can be checked the same way.
//
//   threads::RecursiveMutex mutex_;
//   std::uint64_t held_ TVX_GUARDED_BY(mutex_);
//   void Grow() TVX_REQUIRES(mutex_);
#pragma once

#if defined(__clang__)
#define TVX_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define TVX_THREAD_ANNOTATION(x)
#endif

// A type that acts as a lock ("mutex" in the analysis' messages).
#define TVX_CAPABILITY(name) TVX_THREAD_ANNOTATION(capability(name))
// An RAII type that holds a capability for its lifetime.
#define TVX_SCOPED_CAPABILITY TVX_THREAD_ANNOTATION(scoped_lockable)

// A member read or written only with the given lock held.
#define TVX_GUARDED_BY(lock) TVX_THREAD_ANNOTATION(guarded_by(lock))
// A pointer member whose pointee is read or written only with the lock held.
#define TVX_PT_GUARDED_BY(lock) TVX_THREAD_ANNOTATION(pt_guarded_by(lock))

// The caller holds the lock(s) exclusively / at least shared.
#define TVX_REQUIRES(...) TVX_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define TVX_REQUIRES_SHARED(...) TVX_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))

// The function takes / gives back the lock(s); with no argument, `this`.
#define TVX_ACQUIRE(...) TVX_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define TVX_ACQUIRE_SHARED(...) TVX_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define TVX_RELEASE(...) TVX_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define TVX_RELEASE_SHARED(...) TVX_THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
#define TVX_RELEASE_GENERIC(...) TVX_THREAD_ANNOTATION(release_generic_capability(__VA_ARGS__))
// The function takes the lock when it returns `result`.
#define TVX_TRY_ACQUIRE(...) TVX_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define TVX_TRY_ACQUIRE_SHARED(...) \
  TVX_THREAD_ANNOTATION(try_acquire_shared_capability(__VA_ARGS__))

// The caller must not hold the lock(s): the function takes them itself.
#define TVX_EXCLUDES(...) TVX_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
// The function checks at run time that the lock is held.
#define TVX_ASSERT_CAPABILITY(x) TVX_THREAD_ANNOTATION(assert_capability(x))
// The function returns a reference to the given lock.
#define TVX_RETURN_CAPABILITY(x) TVX_THREAD_ANNOTATION(lock_returned(x))

// Turns the analysis off for one function whose locking it cannot follow
// (a lock handed between functions, a lock-free protocol); say why beside it.
#define TVX_NO_THREAD_SAFETY_ANALYSIS TVX_THREAD_ANNOTATION(no_thread_safety_analysis)

// Inlined even where the optimiser would not: the fast paths of the locks
// and of the allocator, whose cost is a handful of instructions.
#if defined(__GNUC__)
#define TVX_ALWAYS_INLINE inline __attribute__((always_inline))
#define TVX_NOINLINE __attribute__((noinline))
#else
#define TVX_ALWAYS_INLINE inline
#define TVX_NOINLINE
#endif
