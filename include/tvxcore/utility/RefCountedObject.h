// tvxcore/utility/RefCountedObject.h: an intrusive, atomic reference count.
//
// Classes held by boost::intrusive_ptr derive from RefCountedObject; the last
// release deletes the object through its virtual destructor, so a class with
// its own operator delete (SmallBlockAllocator::Allocated) gets its block back.
#pragma once

#include <atomic>
#include <cstdint>

#include "tvxcore/Export.h"

namespace tvxcore::utility {

// The count starts at zero; boost::intrusive_ptr raises it. An object that
// lives on the stack or as a member is never counted and never deleted. The
// count is atomic, so pointers to one object may be copied and released on any
// thread; the object itself is not made thread-safe by this base.
class TVXCORE_EXPORT RefCountedObject {
 public:
  RefCountedObject() noexcept = default;
  // A copy is a new object: its count starts at zero.
  RefCountedObject(const RefCountedObject&) noexcept {}
  RefCountedObject& operator=(const RefCountedObject&) noexcept { return *this; }
  virtual ~RefCountedObject() = default;

  std::int32_t GetRefCount() const noexcept { return count_.load(std::memory_order_acquire); }

  friend void intrusive_ptr_add_ref(const RefCountedObject* object) noexcept {
    object->count_.fetch_add(1, std::memory_order_relaxed);
  }
  friend void intrusive_ptr_release(const RefCountedObject* object) noexcept {
    if (object->count_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete object;
  }

 private:
  mutable std::atomic<std::int32_t> count_{0};
};

}  // namespace tvxcore::utility
