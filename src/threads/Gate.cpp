#include "tvxcore/threads/Gate.h"

#include <atomic>
#include <cstdint>

#include "threads/internal/FutexPrimitives.h"
#include "threads/internal/RecordPool.h"

namespace tvxcore::threads {

namespace {
enum class GateState : std::int32_t {
  kClosed,
  kOpen,
  kClosing,  // only inside Close(), until the event is reset
};
}  // namespace

struct Gate::Record {
  void* link = nullptr;  // the pool's, while the record is free
  internal::FutexManualResetEvent event;
  std::atomic<GateState> state{GateState::kClosed};
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
  GateState expected = GateState::kClosed;
  if (record_->state.compare_exchange_strong(expected, GateState::kOpen, std::memory_order_seq_cst))
    record_->event.Set();
}

void Gate::Close() {
  GateState expected = GateState::kOpen;
  if (!record_->state.compare_exchange_strong(expected, GateState::kClosing,
                                              std::memory_order_seq_cst))
    return;
  record_->event.Reset();
  record_->state.store(GateState::kClosed, std::memory_order_seq_cst);
}

bool Gate::PassThrough(int milliseconds) const {
  if (record_->state.load(std::memory_order_seq_cst) == GateState::kOpen) return true;
  return record_->event.Wait(milliseconds < 0 ? -1 : milliseconds);
}

}  // namespace tvxcore::threads
