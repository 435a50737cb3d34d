#include "threads/internal/FutexPrimitives.h"

#include <chrono>

namespace tvxcore::threads::internal {

bool FutexManualResetEvent::Wait(int milliseconds) noexcept {
  if (signalled_.load(std::memory_order_seq_cst) != 0) return true;
  if (milliseconds == 0) return false;
  using Clock = std::chrono::steady_clock;
  const bool forever = milliseconds < 0;
  const auto deadline = Clock::now() + std::chrono::milliseconds(forever ? 0 : milliseconds);
  for (;;) {
    int remaining = -1;
    if (!forever) {
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
      if (left <= 0) return signalled_.load(std::memory_order_seq_cst) != 0;
      remaining = static_cast<int>(left);
    }
    platform::FutexWait(&signalled_, 0, remaining);
    if (signalled_.load(std::memory_order_seq_cst) != 0) return true;
  }
}

}  // namespace tvxcore::threads::internal
