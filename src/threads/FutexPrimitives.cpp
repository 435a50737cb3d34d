#include "threads/internal/FutexPrimitives.h"

#include <chrono>

namespace tvxcore::threads::internal {

bool FutexManualResetEvent::Wait(int milliseconds) noexcept {
  if (signalled_.load(std::memory_order_seq_cst) != kNotSignalled) return true;
  if (milliseconds == 0) return false;
  using Clock = std::chrono::steady_clock;
  const bool forever = milliseconds < 0;
  const auto deadline = Clock::now() + std::chrono::milliseconds(forever ? 0 : milliseconds);
  for (;;) {
    int remaining = -1;
    if (!forever) {
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
      if (left <= 0) return signalled_.load(std::memory_order_seq_cst) != kNotSignalled;
      remaining = static_cast<int>(left);
    }
    platform::FutexWait(&signalled_, kNotSignalled, remaining);
    if (signalled_.load(std::memory_order_seq_cst) != kNotSignalled) return true;
  }
}

}  // namespace tvxcore::threads::internal
