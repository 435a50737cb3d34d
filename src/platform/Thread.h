// Thread identity, priority and sleeping as the operating system provides them.
#pragma once

#include <cstdint>
#include <string>

namespace tvxcore::platform {

// The kernel's identifier of the calling thread (gettid), cached per thread.
std::uint32_t CurrentThreadId() noexcept;

// The identifier of the process (getpid).
std::uint32_t CurrentProcessId() noexcept;

// Sets the nice value of the calling thread only. Returns false when the
// system refuses (raising priority needs privileges); callers may ignore it.
bool SetCurrentThreadNice(int nice) noexcept;

// The nice value of the calling thread.
int GetCurrentThreadNice() noexcept;

// Gives the calling thread `name` as the system shows it (top -H, gdb,
// /proc/<pid>/task/<tid>/comm): its first 15 bytes, cut back to the last
// whole UTF-8 character. Returns false when the system refuses.
bool SetCurrentThreadName(const std::string& name) noexcept;

// Gives up the processor for at least `milliseconds`.
void SleepMilliseconds(int milliseconds) noexcept;

}  // namespace tvxcore::platform
