#include "tvxcore/threads/RecursiveMutex.h"

#include "threads/internal/FutexPrimitives.h"
#include "threads/internal/RecordPool.h"

namespace tvxcore::threads {

struct RecursiveMutex::Record {
  void* link = nullptr;  // the pool's, while the record is free
  internal::FutexRecursiveMutex mutex;
};

RecursiveMutex::RecursiveMutex()
    : record_(internal::RecordPool<Record>::Instance().Take(
          [](void* memory) { return new (memory) Record; })) {}

// A recycled record keeps its mutex as it is: released and ready.
RecursiveMutex::~RecursiveMutex() { internal::RecordPool<Record>::Instance().Give(record_); }

// The capability `this` is the record's mutex under another name, which the
// analysis cannot see; these three are the whole of that translation.
void RecursiveMutex::Lock(char const*) const TVX_NO_THREAD_SAFETY_ANALYSIS {
  record_->mutex.Lock();
}

bool RecursiveMutex::TryLock(char const*) const TVX_NO_THREAD_SAFETY_ANALYSIS {
  return record_->mutex.TryLock();
}

void RecursiveMutex::Unlock() const TVX_NO_THREAD_SAFETY_ANALYSIS { record_->mutex.Unlock(); }

}  // namespace tvxcore::threads
