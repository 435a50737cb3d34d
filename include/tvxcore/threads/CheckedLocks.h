// tvxcore/threads/CheckedLocks.h: boost::mutex and boost::recursive_mutex with
// lock contracts that clang checks (tvxcore/base/ThreadAnnotations.h).
//
// The library guards plain data with these instead of the bare Boost types,
// so that every member it guards can say so:
//
//   threads::BoostMutex mutex_;
//   std::map<Key, Value> cache_ TVX_GUARDED_BY(mutex_);
//   ...
//   threads::CheckedLock lock(mutex_);   // cache_ may be used in this scope
#pragma once

#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>
#include <boost/thread/recursive_mutex.hpp>

#include "tvxcore/base/ThreadAnnotations.h"

namespace tvxcore::threads {

template <typename Native>
class CheckedLock;

// A Boost mutex whose Lock/Unlock the analysis follows. It behaves exactly as
// `Native` does (boost::mutex is not reentrant, boost::recursive_mutex is);
// the analysis treats both as plain locks, so a scope that locks a recursive
// one twice is reported and must be split into functions. Not copyable.
template <typename Native>
class TVX_CAPABILITY("mutex") CheckedMutex {
 public:
  CheckedMutex() = default;
  CheckedMutex(const CheckedMutex&) = delete;
  CheckedMutex& operator=(const CheckedMutex&) = delete;

  void Lock() TVX_ACQUIRE() { native_.lock(); }
  bool TryLock() TVX_TRY_ACQUIRE(true) { return native_.try_lock(); }
  void Unlock() TVX_RELEASE() { native_.unlock(); }

 private:
  friend class CheckedLock<Native>;
  Native native_;
};

using BoostMutex = CheckedMutex<boost::mutex>;
using BoostRecursiveMutex = CheckedMutex<boost::recursive_mutex>;

// Holds a CheckedMutex for the lifetime of a scope.
template <typename Native>
class TVX_SCOPED_CAPABILITY CheckedLock {
 public:
  explicit CheckedLock(CheckedMutex<Native>& mutex) TVX_ACQUIRE(mutex) : lock_(mutex.native_) {}
  ~CheckedLock() TVX_RELEASE() {}
  CheckedLock(const CheckedLock&) = delete;
  CheckedLock& operator=(const CheckedLock&) = delete;

  // Gives the mutex up while it waits on `condition` (a
  // boost::condition_variable for a BoostMutex) and holds it again on
  // return, as condition.wait(lock) does. To the analysis the mutex stays
  // held: what the caller reads after the wait it reads under the mutex.
  template <typename Condition>
  void Wait(Condition& condition) {
    condition.wait(lock_);
  }

 private:
  boost::unique_lock<Native> lock_;
};

template <typename Native>
CheckedLock(CheckedMutex<Native>&) -> CheckedLock<Native>;

}  // namespace tvxcore::threads
