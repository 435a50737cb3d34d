#include "platform/Thread.h"

#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

#include "platform/internal/Posix.h"

namespace tvxcore::platform {
namespace {

// The kernel's thread id, asked once per thread: every lock taken and every
// error reported looks its thread up, and the system call would be most of
// that cost.
thread_local std::uint32_t t_cachedThreadId = 0;

// A forked child starts with one thread whose identifier differs from the
// parent's, so the cache of the forking thread must be forgotten there.
void ForgetCachedThreadId() { t_cachedThreadId = 0; }

}  // namespace

std::uint32_t CurrentThreadId() noexcept {
  std::uint32_t id = t_cachedThreadId;
  if (id == 0) {
    // The fork handler is registered before the first id is cached, once.
    static const bool forkHandlerRegistered =
        ::pthread_atfork(nullptr, nullptr, &ForgetCachedThreadId) == 0;
    (void)forkHandlerRegistered;
    id = static_cast<std::uint32_t>(::syscall(SYS_gettid));
    t_cachedThreadId = id;
  }
  return id;
}

std::uint32_t CurrentProcessId() noexcept { return static_cast<std::uint32_t>(::getpid()); }

bool SetCurrentThreadNice(int nice) noexcept {
  // On Linux the nice value is a property of each thread, addressed by its id.
  return ::setpriority(PRIO_PROCESS, static_cast<id_t>(CurrentThreadId()), nice) == 0;
}

int GetCurrentThreadNice() noexcept {
  errno = 0;
  return ::getpriority(PRIO_PROCESS, static_cast<id_t>(CurrentThreadId()));
}

bool SetCurrentThreadName(const std::string& name) noexcept {
  // The kernel keeps 15 bytes and a terminator; a cut inside a multi-byte
  // character would leave invalid UTF-8 behind.
  std::size_t length = name.size() < 15 ? name.size() : 15;
  if (length < name.size())
    while (length > 0 && (static_cast<unsigned char>(name[length]) & 0xC0) == 0x80) --length;
  char shortName[16];
  name.copy(shortName, length);
  shortName[length] = '\0';
  return ::pthread_setname_np(::pthread_self(), shortName) == 0;
}

void SleepMilliseconds(int milliseconds) noexcept {
  if (milliseconds < 0) milliseconds = 0;
  timespec remaining{milliseconds / 1000, static_cast<long>(milliseconds % 1000) * 1000000L};
  internal::RetryOnEintr([&] { return ::nanosleep(&remaining, &remaining); });
}

}  // namespace tvxcore::platform
