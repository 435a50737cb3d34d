// Process-wide lock-free pools of lock and gate records. A record is made
// once, recycled through its pool for the rest of the process, and freed by
// an exit handler that the pool registers when it is first used. Records come
// from the 16-byte aligned C heap, as the stack requires of its elements.
#pragma once

#include <cstdlib>
#include <new>

#include "platform/Memory.h"
#include "threads/internal/LockFreeStack.h"

namespace tvxcore::threads::internal {

// `Record` starts with a pointer-sized link that the pool uses while the
// record is free; the rest of the record keeps its state across reuse.
template <typename Record>
class RecordPool {
 public:
  static_assert(sizeof(Record) >= 16, "pooled records hold a link and at least 8 more bytes");

  // One pool per record type, set up thread-safely on first use.
  static RecordPool& Instance() {
    static RecordPool pool;
    return pool;
  }

  // A recycled record, or a new one built by `make(memory)` when the pool is
  // empty. Only the pop touches shared state on a warm pool.
  template <typename Make>
  Record* Take(Make make) {
    if (void* recycled = free_.Pop()) return static_cast<Record*>(recycled);
    // From the C heap, not the small-block allocator: the allocator is built
    // on the library's locks, so the locks sit below it.
    void* memory = platform::AlignedAllocate(sizeof(Record));
    if (memory == nullptr) throw std::bad_alloc();
    return make(memory);
  }

  void Give(Record* record) noexcept { free_.Push(record); }

 private:
  RecordPool() { std::atexit(&ReleaseAll); }

  static void ReleaseAll() {
    RecordPool& pool = Instance();
    while (void* memory = pool.free_.Pop()) {
      Record* record = static_cast<Record*>(memory);
      record->~Record();
      platform::AlignedFree(memory);
    }
  }

  LockFreeStack free_;
};

}  // namespace tvxcore::threads::internal
