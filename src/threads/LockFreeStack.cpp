// The parts of the lock-free stack off its fast path: the choice of form for
// the process, the 16-byte form, and the end of the process on an element the
// packed form cannot hold.
#include "threads/internal/LockFreeStack.h"

#include <cstdio>
#include <cstdlib>

#include "platform/AddressSpace.h"

namespace tvxcore::threads::internal {
namespace {

using Pair = unsigned __int128 __attribute__((may_alias));

// One 16-byte compare-and-swap of {top, count}; on failure `top` and `count`
// receive the current state, read in the same instruction.
__attribute__((target("cx16"))) bool CompareExchange(std::uint64_t* state, std::uint64_t& top,
                                                     std::uint64_t& count, std::uint64_t newTop,
                                                     std::uint64_t newCount) noexcept {
  const Pair expected = (static_cast<Pair>(count) << 64) | top;
  const Pair desired = (static_cast<Pair>(newCount) << 64) | newTop;
  const Pair seen = __sync_val_compare_and_swap(reinterpret_cast<Pair*>(state), expected, desired);
  if (seen == expected) return true;
  top = static_cast<std::uint64_t>(seen);
  count = static_cast<std::uint64_t>(seen >> 64);
  return false;
}

}  // namespace

int S_stackForm = 0;

bool ChooseWideStacks() noexcept {
  // Every thread that asks first gets the same answer: the first one stored.
  int form = platform::MappingsCanReachAbove(48) ? 2 : 1;
  int unset = 0;
  if (!__atomic_compare_exchange_n(&S_stackForm, &unset, form, false, __ATOMIC_RELAXED,
                                   __ATOMIC_RELAXED)) {
    form = unset;
  }
  return form == 2;
}

void PackedStackLayout::Unfit(const void* element) noexcept {
  std::fprintf(stderr,
               "tvxcore: lock-free stack element %p is not 16-byte aligned below 2^48; "
               "stopping before the stack is corrupted\n",
               element);
  std::abort();
}

// The two halves are read one at a time; a pair torn by a concurrent change
// only makes the compare-and-swap fail, and it then hands back the real pair.
__attribute__((target("cx16"))) void WideStackLayout::Push(std::uint64_t* state,
                                                           void* element) noexcept {
  auto* link = static_cast<std::uint64_t*>(element);
  const auto node = reinterpret_cast<std::uint64_t>(element);
  std::uint64_t count = __atomic_load_n(&state[1], __ATOMIC_RELAXED);
  std::uint64_t top = __atomic_load_n(&state[0], __ATOMIC_RELAXED);
  for (;;) {
    __atomic_store_n(link, top, __ATOMIC_RELAXED);
    if (CompareExchange(state, top, count, node, count + 1)) return;
  }
}

__attribute__((target("cx16"))) void* WideStackLayout::Pop(std::uint64_t* state) noexcept {
  std::uint64_t count = __atomic_load_n(&state[1], __ATOMIC_ACQUIRE);
  std::uint64_t top = __atomic_load_n(&state[0], __ATOMIC_ACQUIRE);
  for (;;) {
    if (top == 0) return nullptr;
    const std::uint64_t next = PackedStackLayout::ReadLink(top);
    if (CompareExchange(state, top, count, next, count + 1)) return reinterpret_cast<void*>(top);
  }
}

}  // namespace tvxcore::threads::internal
