// Waiting on a 32-bit word (Linux futex): the one kernel service under the
// library's own mutexes and events.
#pragma once

#include <atomic>
#include <cstdint>

namespace tvxcore::platform {

// Sleeps while `*word` equals `expected`, at most `timeoutMilliseconds`
// (negative: no limit). Returns false only when the time ran out; a wake-up,
// a changed word or a signal returns true, so callers re-check their word.
bool FutexWait(std::atomic<std::uint32_t>* word, std::uint32_t expected,
               int timeoutMilliseconds) noexcept;

// Wakes up to `count` threads sleeping on `word`.
void FutexWake(std::atomic<std::uint32_t>* word, int count) noexcept;

}  // namespace tvxcore::platform
