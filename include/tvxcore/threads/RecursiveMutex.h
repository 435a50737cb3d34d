// tvxcore/threads/RecursiveMutex.h: the library's reentrant mutex.
//
// A RecursiveMutex is one pointer to a lock record taken from a process-wide
// lock-free pool, so constructing one on a warm path costs a single pop and
// never calls into the kernel.
#pragma once

#include "tvxcore/Export.h"
#include "tvxcore/base/ThreadAnnotations.h"

namespace tvxcore::threads {

// Reentrant mutual exclusion. The thread that holds the mutex may lock it
// again; every Lock() and every successful TryLock() is paired with one
// Unlock() on the same thread.
//
// All operations are const: locking does not change the value of the object,
// so a const RecursiveMutex (for example a member used from a const method)
// can be locked.
//
// The record goes back to the pool on destruction and may then belong to
// another RecursiveMutex; locking a destroyed mutex is undefined. Not
// copyable. Construction does not report failure: running out of memory
// surfaces as the allocator's std::bad_alloc.
//
// To clang's thread-safety analysis it is a plain lock: members may be
// TVX_GUARDED_BY it, and a scope that locks it twice is reported (reentry
// across function calls is not seen and stays allowed).
class TVXCORE_EXPORT TVX_CAPABILITY("mutex") RecursiveMutex {
 public:
  RecursiveMutex();
  ~RecursiveMutex();
  RecursiveMutex(const RecursiveMutex&) = delete;
  RecursiveMutex& operator=(const RecursiveMutex&) = delete;

  // Blocks until the calling thread holds the mutex. `label` names the caller
  // for a reader in a debugger; it is neither stored nor read and may be null.
  void Lock(char const* label = nullptr) const TVX_ACQUIRE();

  // Takes the mutex if that needs no waiting (always so for the thread that
  // already holds it) and returns true; otherwise returns false at once.
  bool TryLock(char const* label = nullptr) const TVX_TRY_ACQUIRE(true);

  void Unlock() const TVX_RELEASE();

 private:
  struct Record;
  Record* record_;
};

// Holds a RecursiveMutex for the lifetime of a scope.
class TVX_SCOPED_CAPABILITY RecursiveMutexLock {
 public:
  explicit RecursiveMutexLock(const RecursiveMutex& mutex, char const* label = nullptr)
      TVX_ACQUIRE(mutex)
      : mutex_(mutex) {
    mutex_.Lock(label);
  }
  ~RecursiveMutexLock() TVX_RELEASE() { mutex_.Unlock(); }
  RecursiveMutexLock(const RecursiveMutexLock&) = delete;
  RecursiveMutexLock& operator=(const RecursiveMutexLock&) = delete;

 private:
  const RecursiveMutex& mutex_;
};

}  // namespace tvxcore::threads
