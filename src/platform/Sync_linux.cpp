#include "platform/Sync.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

namespace tvxcore::platform {

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t),
              "a futex is a plain 32-bit word");

bool FutexWait(std::atomic<std::uint32_t>* word, std::uint32_t expected,
               int timeoutMilliseconds) noexcept {
  timespec timeout{};
  timespec* timeoutP = nullptr;
  if (timeoutMilliseconds >= 0) {
    timeout.tv_sec = timeoutMilliseconds / 1000;
    timeout.tv_nsec = static_cast<long>(timeoutMilliseconds % 1000) * 1000000L;
    timeoutP = &timeout;
  }
  long r = ::syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(word), FUTEX_WAIT_PRIVATE,
                     expected, timeoutP, nullptr, 0);
  return !(r == -1 && errno == ETIMEDOUT);
}

void FutexWake(std::atomic<std::uint32_t>* word, int count) noexcept {
  ::syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(word), FUTEX_WAKE_PRIVATE, count, nullptr,
            nullptr, 0);
}

}  // namespace tvxcore::platform
