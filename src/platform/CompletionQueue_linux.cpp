#include "platform/CompletionQueue.h"

#include <chrono>
#include <new>
#include <thread>

#include "platform/Sync.h"

namespace tvxcore::platform {
namespace {

constexpr std::size_t kRingMask = CompletionQueue::kRingCapacity - 1;
// Rounds a taker spins on the count before it sleeps in the kernel: a packet
// that arrives within them costs no system call on either side.
constexpr int kSpinRounds = 64;

inline void CpuRelax() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#endif
}

}  // namespace

CompletionQueue::CompletionQueue() : ring_(new Cell[kRingCapacity]) {
  for (std::size_t i = 0; i < kRingCapacity; ++i) {
    ring_[i].sequence.store(i, std::memory_order_relaxed);
    ring_[i].packet = nullptr;
  }
}

CompletionQueue::~CompletionQueue() = default;

bool CompletionQueue::TryPushRing(void* packet) noexcept {
  std::size_t position = enqueuePosition_.load(std::memory_order_relaxed);
  for (;;) {
    Cell& cell = ring_[position & kRingMask];
    const std::size_t sequence = cell.sequence.load(std::memory_order_acquire);
    const auto difference =
        static_cast<std::ptrdiff_t>(sequence) - static_cast<std::ptrdiff_t>(position);
    if (difference == 0) {
      if (enqueuePosition_.compare_exchange_weak(position, position + 1,
                                                 std::memory_order_relaxed)) {
        cell.packet = packet;
        cell.sequence.store(position + 1, std::memory_order_release);
        return true;
      }
    } else if (difference < 0) {
      return false;  // full
    } else {
      position = enqueuePosition_.load(std::memory_order_relaxed);
    }
  }
}

bool CompletionQueue::TryPopRing(void*& packet) noexcept {
  std::size_t position = dequeuePosition_.load(std::memory_order_relaxed);
  for (;;) {
    Cell& cell = ring_[position & kRingMask];
    const std::size_t sequence = cell.sequence.load(std::memory_order_acquire);
    const auto difference =
        static_cast<std::ptrdiff_t>(sequence) - static_cast<std::ptrdiff_t>(position + 1);
    if (difference == 0) {
      if (dequeuePosition_.compare_exchange_weak(position, position + 1,
                                                 std::memory_order_relaxed)) {
        packet = cell.packet;
        cell.sequence.store(position + kRingCapacity, std::memory_order_release);
        return true;
      }
    } else if (difference < 0) {
      return false;  // empty, or the oldest slot is still being written
    } else {
      position = dequeuePosition_.load(std::memory_order_relaxed);
    }
  }
}

bool CompletionQueue::Post(void* packet) noexcept {
  if (overflowActive_.load(std::memory_order_acquire) || !TryPushRing(packet)) {
    std::lock_guard<std::mutex> lock(overflowMutex_);
    try {
      overflow_.push_back(packet);
    } catch (const std::bad_alloc&) {
      return false;
    }
    overflowActive_.store(true, std::memory_order_release);
  }
  // The packet is in place before it is counted, so a taker that claims the
  // count finds it (or a racing post's packet) without waiting long.
  available_.fetch_add(1, std::memory_order_seq_cst);
  if (sleepers_.load(std::memory_order_seq_cst) != 0) FutexWake(&available_, 1);
  return true;
}

bool CompletionQueue::TryAcquireToken() noexcept {
  std::uint32_t seen = available_.load(std::memory_order_relaxed);
  while (seen != 0) {
    if (available_.compare_exchange_weak(seen, seen - 1, std::memory_order_acquire,
                                         std::memory_order_relaxed))
      return true;
  }
  return false;
}

bool CompletionQueue::AcquireToken(int timeoutMilliseconds) noexcept {
  for (int round = 0; round < kSpinRounds; ++round) {
    if (TryAcquireToken()) return true;
    if (timeoutMilliseconds == 0) return false;
    CpuRelax();
  }
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline =
      timeoutMilliseconds > 0 ? Clock::now() + std::chrono::milliseconds(timeoutMilliseconds)
                              : Clock::time_point::max();
  for (;;) {
    int wait = -1;
    if (timeoutMilliseconds > 0) {
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
      if (left <= 0) return TryAcquireToken();
      wait = static_cast<int>(left);
    }
    // Counted as a sleeper before the count is read again: a post that adds
    // to the count after this read sees the sleeper and wakes one.
    sleepers_.fetch_add(1, std::memory_order_seq_cst);
    if (available_.load(std::memory_order_seq_cst) == 0) FutexWait(&available_, 0, wait);
    sleepers_.fetch_sub(1, std::memory_order_relaxed);
    if (TryAcquireToken()) return true;
  }
}

void* CompletionQueue::TakeReserved() noexcept {
  // The claimed count guarantees one packet for this taker: in the ring, in
  // the overflow, or a moment away in a slot a poster is still filling.
  for (unsigned round = 0;; ++round) {
    void* packet = nullptr;
    if (TryPopRing(packet)) return packet;
    if (overflowActive_.load(std::memory_order_acquire)) {
      std::lock_guard<std::mutex> lock(overflowMutex_);
      if (!overflow_.empty()) {
        packet = overflow_.front();
        overflow_.pop_front();
        if (overflow_.empty()) overflowActive_.store(false, std::memory_order_release);
        return packet;
      }
    }
    if (round < 64)
      CpuRelax();
    else
      std::this_thread::yield();
  }
}

bool CompletionQueue::Take(void*& packet, int timeoutMilliseconds) noexcept {
  packet = nullptr;
  if (!AcquireToken(timeoutMilliseconds)) return false;
  packet = TakeReserved();
  return true;
}

}  // namespace tvxcore::platform
