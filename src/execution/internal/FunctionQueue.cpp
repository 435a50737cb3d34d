#include "execution/internal/FunctionQueue.h"

#include <memory>
#include <new>
#include <utility>

namespace tvxcore::threads::internal {

FunctionQueue::FunctionQueue() : incoming_(new Chain), outgoing_(new Chain) {
  cursor_ = &outgoing_->first;
}

FunctionQueue::~FunctionQueue() TVX_NO_THREAD_SAFETY_ANALYSIS {  // no other user is left
  Free(incoming_);
  Free(outgoing_);
}

void FunctionQueue::Free(Chain* chain) {
  Chunk* chunk = chain->first.next.load(std::memory_order_acquire);
  while (chunk != nullptr) {
    Chunk* next = chunk->next.load(std::memory_order_relaxed);
    delete chunk;
    chunk = next;
  }
  delete chain;
}

void FunctionQueue::Append(boost::function<void()> const& function) {
  swapLock_.LockShared();
  try {
    Chain* chain = incoming_;
    const std::size_t index = chain->count.fetch_add(1, std::memory_order_relaxed);
    Chunk* chunk = &chain->first;
    for (std::size_t hop = index / kChunkSize; hop > 0; --hop) {
      Chunk* next = chunk->next.load(std::memory_order_acquire);
      if (next == nullptr) {
        auto made = std::make_unique<Chunk>();
        if (chunk->next.compare_exchange_strong(next, made.get(), std::memory_order_acq_rel,
                                                std::memory_order_acquire)) {
          next = made.release();
        }  // else another producer linked one first: `next` is that one, ours goes
      }
      chunk = next;
    }
    chunk->entries[index % kChunkSize] = function;
  } catch (...) {
    swapLock_.UnlockShared();
    throw;
  }
  swapLock_.UnlockShared();
}

bool FunctionQueue::Take(boost::function<void()>& function) {
  if (outgoing_->count.load(std::memory_order_acquire) == 0) {
    swapLock_.LockExclusive();
    std::swap(incoming_, outgoing_);
    swapLock_.UnlockExclusive();
    outgoingTotal_ = outgoing_->count.load(std::memory_order_acquire);
    cursor_ = &outgoing_->first;
    cursorBase_ = 0;
  }
  const std::size_t left = outgoing_->count.load(std::memory_order_acquire);
  if (left == 0) return false;
  const std::size_t index = outgoingTotal_ - left;
  while (index >= cursorBase_ + kChunkSize) {
    cursor_ = cursor_->next.load(std::memory_order_acquire);
    cursorBase_ += kChunkSize;
  }
  boost::function<void()>& entry = cursor_->entries[index % kChunkSize];
  function.swap(entry);
  entry.clear();
  outgoing_->count.fetch_sub(1, std::memory_order_release);
  return true;
}

}  // namespace tvxcore::threads::internal
