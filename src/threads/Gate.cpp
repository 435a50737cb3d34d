#include "tvxcore/threads/Gate.h"

#include <atomic>
#include <cstdint>

#include "threads/internal/FutexPrimitives.h"
#include "threads/internal/RecordPool.h"

namespace tvxcore::threads {

namespace {
constexpr std::int32_t kClosed = 0;
constexpr std::int32_t kOpen = 1;
constexpr std::int32_t kClosing = 2;  // only inside Close(), until the event is reset
}  // namespace

struct Gate::Record {
  void* link = nullptr;  // the pool's, while the record is free
  internal::FutexManualResetEvent event;
  std::atomic<std::int32_t> state{kClosed};
};

Gate::Gate(bool open)
    : record_(internal::RecordPool<Record>::Instance().Take(
          [](void* memory) { return new (memory) Record; })) {
  // A recycled record is in whatever position its last owner left it.
  if (open)
    Open();
  else
    Close();
}

Gate::~Gate() { internal::RecordPool<Record>::Instance().Give(record_); }

void Gate::Open() {
  std::int32_t expected = kClosed;
  if (record_->state.compare_exchange_strong(expected, kOpen, std::memory_order_seq_cst))
    record_->event.Set();
}

void Gate::Close() {
  std::int32_t expected = kOpen;
  if (!record_->state.compare_exchange_strong(expected, kClosing, std::memory_order_seq_cst))
    return;
  record_->event.Reset();
  record_->state.store(kClosed, std::memory_order_seq_cst);
}

bool Gate::PassThrough(int milliseconds) const {
  if (record_->state.load(std::memory_order_seq_cst) == kOpen) return true;
  return record_->event.Wait(milliseconds < 0 ? -1 : milliseconds);
}

}  // namespace tvxcore::threads
