// The recycler's pool: one list of buffers, oldest first, behind one
// recursive lock, and the retry ladder that ends at the host's purge.
#include "tvxcore/utility/MemoryRecycler.h"

#include <atomic>
#include <list>
#include <new>

#include "base/NoDestructor.h"
#include "tvxcore/base/ThreadAnnotations.h"
#include "tvxcore/threads/RecursiveMutex.h"
#include "utility/internal/MemoryPurge.h"

namespace tvxcore::utility {
namespace internal {
namespace {
std::atomic<MemoryPurger> g_purger{nullptr};
}  // namespace

void SetMemoryPurger(MemoryPurger purger) noexcept {
  g_purger.store(purger, std::memory_order_release);
}

bool PurgeHostMemory(unsigned long long bytesWanted) {
  MemoryPurger purger = g_purger.load(std::memory_order_acquire);
  return purger != nullptr && purger(bytesWanted);
}
}  // namespace internal

namespace {

constexpr std::size_t kSmallestPooled = 8192;
constexpr std::size_t kCoarseFrom = 1048576;
constexpr std::size_t kFineStep = 4096;
constexpr std::size_t kCoarseStep = 16384;

class BadAllocation : public std::bad_alloc {
 public:
  const char* what() const noexcept override { return "bad allocation"; }
};

class IMemoryPool {
 public:
  virtual void* Get(std::size_t size) = 0;
  virtual void Recycle(void* pointer, std::size_t size) = 0;
  virtual void SetPoolLimit(std::size_t bytes) = 0;
  virtual std::size_t GetPoolLimit() = 0;
  virtual std::size_t GetCurrentPoolSize() = 0;
  virtual std::size_t PurgeBytes(std::size_t bytes) = 0;
  virtual ~IMemoryPool() = default;
};

class SimpleMemoryPool final : public IMemoryPool {
 public:
  void* Get(std::size_t size) override {
    threads::RecursiveMutexLock lock(mutex_);
    // Newest first: the buffer most likely still in the caches.
    for (auto entry = entries_.rbegin(); entry != entries_.rend(); ++entry) {
      if (entry->size != size) continue;
      void* buffer = entry->buffer;
      poolSize_ -= size;
      entries_.erase(std::next(entry).base());
      return buffer;
    }
    return nullptr;
  }

  void Recycle(void* pointer, std::size_t size) override {
    threads::RecursiveMutexLock lock(mutex_);
    try {
      entries_.push_back(Entry{size, pointer});
    } catch (const std::bad_alloc&) {
      // No memory for the entry: the buffer is freed rather than lost.
      SmallBlockAllocator::Dispose(pointer, size);
      return;
    }
    poolSize_ += size;
    TrimToLimit();
  }

  void SetPoolLimit(std::size_t bytes) override {
    threads::RecursiveMutexLock lock(mutex_);
    limit_ = bytes;
    TrimToLimit();
  }

  std::size_t GetPoolLimit() override {
    threads::RecursiveMutexLock lock(mutex_);
    return limit_;
  }

  std::size_t GetCurrentPoolSize() override {
    threads::RecursiveMutexLock lock(mutex_);
    return poolSize_;
  }

  std::size_t PurgeBytes(std::size_t bytes) override {
    threads::RecursiveMutexLock lock(mutex_);
    return Purge(bytes);
  }

 private:
  struct Entry {
    std::size_t size;
    void* buffer;
  };

  void TrimToLimit() TVX_REQUIRES(mutex_) {
    if (poolSize_ > limit_) Purge(poolSize_ - limit_);
  }

  // Oldest first; the buffer that crosses the count is freed whole.
  std::size_t Purge(std::size_t bytes) TVX_REQUIRES(mutex_) {
    if (bytes == 0) bytes = poolSize_;
    std::size_t released = 0;
    while (released < bytes && !entries_.empty()) {
      Entry entry = entries_.front();
      entries_.pop_front();
      poolSize_ -= entry.size;
      released += entry.size;
      SmallBlockAllocator::Dispose(entry.buffer, entry.size);
    }
    return released;
  }

  std::list<Entry, SmallBlockAllocator::STLAllocator<Entry>> entries_ TVX_GUARDED_BY(mutex_);
  threads::RecursiveMutex mutex_;
  std::size_t limit_ TVX_GUARDED_BY(mutex_) = MemoryRecycler::kDefaultPoolLimit;
  std::size_t poolSize_ TVX_GUARDED_BY(mutex_) = 0;
};

IMemoryPool& Pool() {
  static base::NoDestructor<SimpleMemoryPool> pool;
  return *pool;
}

std::size_t RoundUp(std::size_t size, std::size_t step) {
  if (size > static_cast<std::size_t>(-1) - (step - 1)) throw BadAllocation();
  return (size + step - 1) / step * step;
}

void* TryAllocate(std::size_t size) {
  try {
    return SmallBlockAllocator::Allocate(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace

void* MemoryRecycler::Allocate(std::size_t size, std::size_t& actualSize) {
  IMemoryPool& pool = Pool();
  if (size < kSmallestPooled) {
    actualSize = size;
  } else {
    actualSize = RoundUp(size, size < kCoarseFrom ? kFineStep : kCoarseStep);
    if (void* hit = pool.Get(actualSize)) return hit;
  }
  if (void* fresh = TryAllocate(actualSize)) return fresh;
  pool.PurgeBytes(actualSize);
  if (void* fresh = TryAllocate(actualSize)) return fresh;
  if (internal::PurgeHostMemory(actualSize)) {
    if (void* fresh = TryAllocate(actualSize)) return fresh;
  }
  throw BadAllocation();
}

void MemoryRecycler::Recycle(void* pointer, std::size_t size) {
  if (pointer == nullptr) return;
  if (size < kSmallestPooled)
    SmallBlockAllocator::Dispose(pointer, size);
  else
    Pool().Recycle(pointer, size);
}

void MemoryRecycler::SetPoolLimit(std::size_t bytes) {
  Pool().SetPoolLimit(bytes == 0 ? kDefaultPoolLimit : bytes);
}

std::size_t MemoryRecycler::GetPoolLimit() { return Pool().GetPoolLimit(); }

std::size_t MemoryRecycler::GetCurrentPoolSize() { return Pool().GetCurrentPoolSize(); }

std::size_t MemoryRecycler::PurgeBytes(std::size_t bytes) { return Pool().PurgeBytes(bytes); }

RecycledMemory::~RecycledMemory() { Free(); }

void RecycledMemory::Allocate(std::size_t size) {
  Free();
  std::size_t actual = 0;
  buffer_ = static_cast<char*>(MemoryRecycler::Allocate(size, actual));
  size_ = size;
  actualSize_ = actual;
}

void RecycledMemory::Share(const boost::shared_ptr<char>& owner, std::size_t size) {
  Free();
  owner_ = owner;
  buffer_ = owner.get();
  size_ = size;
}

void RecycledMemory::Free() {
  if (owner_)
    owner_.reset();
  else if (buffer_ != nullptr)
    MemoryRecycler::Recycle(buffer_, actualSize_);
  buffer_ = nullptr;
  size_ = 0;
  actualSize_ = 0;
}

}  // namespace tvxcore::utility
