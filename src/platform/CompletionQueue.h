// A blocking first-in, first-out queue of pointers that any number of threads
// post to and wait on: the one kernel-backed object a worker pool sleeps on.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>

namespace tvxcore::platform {

// Contract:
// - Packets come out in the order they went in (first in, first out). Posts
//   from different threads that race each other have no order among them.
// - Each Post() makes one packet available and wakes at most one sleeping
//   taker, never all of them.
// - A null packet is allowed: it wakes a taker and carries no work.
// - Post() never blocks and may be called from any thread, including a thread
//   that also takes. While fewer than kRingCapacity packets wait, it takes no
//   lock: one compare-and-swap on a ring slot and one atomic add on the
//   count, plus a futex wake when a taker sleeps. Beyond that the packets wait
//   in an overflow list under a mutex, so nothing is ever refused or lost for
//   want of room; the ring is used again once the overflow has drained.
// - Take() waits up to a time-out in milliseconds (negative: no limit, 0: only
//   looks) and hands out each packet to exactly one taker.
// - Packets still queued at destruction are the owner's: the queue neither
//   frees nor reports them (DrainForDestruction() hands them back first).
class CompletionQueue {
 public:
  static constexpr std::size_t kRingCapacity = 1u << 16;

  CompletionQueue();
  ~CompletionQueue();
  CompletionQueue(const CompletionQueue&) = delete;
  CompletionQueue& operator=(const CompletionQueue&) = delete;

  // Appends `packet`. False only when the overflow list could not grow (out
  // of memory); the packet is not queued then.
  bool Post(void* packet) noexcept;

  // True with the oldest packet (possibly null) in `packet`; false when the
  // time ran out, with `packet` null.
  bool Take(void*& packet, int timeoutMilliseconds) noexcept;

  // Takes every packet queued now without waiting and calls `discard` on
  // each; for an owner that frees what nobody will take any more.
  template <typename Discard>
  void DrainForDestruction(Discard discard) {
    void* packet = nullptr;
    while (Take(packet, 0)) discard(packet);
  }

 private:
  struct Cell {
    std::atomic<std::size_t> sequence;
    void* packet;
  };

  bool TryPushRing(void* packet) noexcept;
  bool TryPopRing(void*& packet) noexcept;
  bool AcquireToken(int timeoutMilliseconds) noexcept;
  bool TryAcquireToken() noexcept;
  void* TakeReserved() noexcept;

  // Ring of bounded multi-producer multi-consumer cells: each cell's sequence
  // says whose turn it is (producer at position p sees p, consumer sees p+1).
  std::unique_ptr<Cell[]> ring_;
  alignas(64) std::atomic<std::size_t> enqueuePosition_{0};
  alignas(64) std::atomic<std::size_t> dequeuePosition_{0};
  // Packets posted and not yet claimed by a taker; takers sleep on this word.
  alignas(64) std::atomic<std::uint32_t> available_{0};
  std::atomic<std::uint32_t> sleepers_{0};
  // Set while the overflow holds packets: posts then go there, behind them.
  alignas(64) std::atomic<bool> overflowActive_{false};
  std::mutex overflowMutex_;
  std::deque<void*> overflow_;  // guarded by overflowMutex_
};

}  // namespace tvxcore::platform
