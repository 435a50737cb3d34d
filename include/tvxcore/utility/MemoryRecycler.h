// tvxcore/utility/MemoryRecycler.h: large buffers kept for reuse.
//
// Buffers of 8 KiB and more that are given back go to one process-wide pool,
// up to a limit, and are handed out again on an exact size match; sizes are
// rounded up so that matches occur. A buffer from the pool costs no system
// call.
#pragma once

#include <cstddef>

#include <boost/shared_ptr.hpp>

#include "tvxcore/Export.h"
#include "tvxcore/utility/SmallBlockAllocator.h"

namespace tvxcore::utility {

// The pool's calls. All are safe from any thread; the pool's lock is held
// for each call as a whole.
class TVXCORE_EXPORT MemoryRecycler {
 public:
  MemoryRecycler() = delete;

  // The default pool limit, 50 MiB.
  static constexpr std::size_t kDefaultPoolLimit = 52428800;

  // A buffer of at least `size` bytes; `actualSize` receives its size, which
  // is what Recycle must be told. Below 8192 bytes the actual size is `size`
  // and the pool is not used; below 1 MiB it is rounded up to a multiple of
  // 4096, from there on to a multiple of 16384. When memory runs out, the
  // pool is emptied of that many bytes and the request tried again; then the
  // installed error manager's PurgeMemory is asked, and on true the request
  // is tried a last time. Throws std::bad_alloc ("bad allocation") when all
  // of that fails.
  static void* Allocate(std::size_t size, std::size_t& actualSize);
  // Gives back a buffer of Allocate with its actual size. Below 8192 bytes it
  // is freed at once; otherwise it joins the pool, and the oldest buffers
  // are freed while the pool is above its limit. Null is ignored.
  static void Recycle(void* pointer, std::size_t size);

  // 0 restores kDefaultPoolLimit. Frees the oldest buffers down to the limit.
  static void SetPoolLimit(std::size_t bytes);
  static std::size_t GetPoolLimit();
  // The bytes in the pool now.
  static std::size_t GetCurrentPoolSize();
  // Frees pooled buffers, oldest first, until at least `bytes` are freed or
  // the pool is empty (a buffer is freed whole); 0 frees all. Returns the
  // bytes freed.
  static std::size_t PurgeBytes(std::size_t bytes);
};

// An owned buffer from the recycler: given back by Free, by the next
// Allocate and by the destructor. Alternatively it may hold a buffer that a
// shared owner keeps alive, which it then only lets go of. Not synchronised;
// not copyable.
class TVXCORE_EXPORT RecycledMemory : public SmallBlockAllocator::Allocated<RecycledMemory> {
 public:
  RecycledMemory() = default;
  ~RecycledMemory();
  RecycledMemory(const RecycledMemory&) = delete;
  RecycledMemory& operator=(const RecycledMemory&) = delete;

  // Frees what is held, then holds a buffer of at least `size` bytes.
  void Allocate(std::size_t size);
  // Frees what is held, then holds `size` bytes at `owner`, which the
  // shared owner keeps alive and frees.
  void Share(const boost::shared_ptr<char>& owner, std::size_t size);
  // Gives the buffer back (or lets go of the shared owner); all empty after.
  void Free();

  // The size asked for.
  std::size_t Size() const { return size_; }
  char* Buffer() { return buffer_; }
  const char* Buffer() const { return buffer_; }

 private:
  char* buffer_ = nullptr;
  std::size_t size_ = 0;
  std::size_t actualSize_ = 0;
  boost::shared_ptr<char> owner_;
};

}  // namespace tvxcore::utility
