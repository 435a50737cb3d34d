// The queue of undelayed calls of an event-loop adaptor: many producers on
// any thread, one consumer, the loop's thread.
#pragma once

#include <atomic>
#include <boost/function.hpp>
#include <cstddef>

#include "tvxcore/base/ThreadAnnotations.h"
#include "tvxcore/threads/ReadWriteLock.h"

namespace tvxcore::threads::internal {

// Producers append into the incoming chain of 32-entry chunks, taking an
// index with one atomic increment and the shared side of a ReadWriteLock, so
// producers never exclude one another and take no mutex. The consumer takes
// from the outgoing chain, and only when that is exhausted swaps the two
// under the exclusive side: order is first in, first out across swaps.
// Chunks stay linked for reuse until the queue is destroyed.
class FunctionQueue {
 public:
  FunctionQueue();
  ~FunctionQueue();
  FunctionQueue(const FunctionQueue&) = delete;
  FunctionQueue& operator=(const FunctionQueue&) = delete;

  // Any thread. Throws std::bad_alloc when a new chunk cannot be made (the
  // entry's index is then lost and the consumer skips an empty entry).
  void Append(boost::function<void()> const& function);
  // The consumer's thread only. False when nothing is queued.
  bool Take(boost::function<void()>& function);

 private:
  static constexpr std::size_t kChunkSize = 32;
  struct Chunk {
    boost::function<void()> entries[kChunkSize];
    std::atomic<Chunk*> next{nullptr};
  };
  // A chain's entry count lives beside its first chunk.
  struct Chain {
    Chunk first;
    std::atomic<std::size_t> count{0};
  };

  static void Free(Chain* chain);

  Chain* incoming_ TVX_GUARDED_BY(swapLock_);
  ReadWriteLock swapLock_;
  // The consumer's side: written only by the consumer (under the exclusive
  // lock when swapping), read by it alone.
  Chain* outgoing_;
  std::size_t outgoingTotal_ = 0;
  Chunk* cursor_;  // the chunk that holds entry cursorBase_
  std::size_t cursorBase_ = 0;
};

}  // namespace tvxcore::threads::internal
