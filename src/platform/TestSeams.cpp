#include "platform/TestSeams.h"

#include <atomic>
#include <mutex>

namespace tvxcore::platform::seams {
namespace {

constexpr int kFaultKinds = 5;
std::atomic<int> failures[kFaultKinds];
// Further calls to fail with the same errno after the first.
std::atomic<int> repeats[kFaultKinds];
// Set only while a test wants it; read without the lock first, so the
// library pays one relaxed load per subdirectory.
std::atomic<bool> hookSet{false};
std::mutex hookLock;
std::atomic<DebuggerOutputCapture> debuggerCapture{nullptr};

std::function<void(const std::string&)>& Hook() {
  static std::function<void(const std::string&)> hook;
  return hook;
}

}  // namespace

void FailNext(Fault fault, int err) { FailNextCalls(fault, err, err == 0 ? 0 : 1); }

void FailNextCalls(Fault fault, int err, int times) {
  const int kind = static_cast<int>(fault);
  repeats[kind].store(times > 1 ? times - 1 : 0, std::memory_order_relaxed);
  failures[kind].store(times > 0 ? err : 0, std::memory_order_relaxed);
}

int TakeFailure(Fault fault) {
  const int kind = static_cast<int>(fault);
  std::atomic<int>& slot = failures[kind];
  if (slot.load(std::memory_order_relaxed) == 0) return 0;
  int left = repeats[kind].load(std::memory_order_relaxed);
  while (left > 0) {
    if (repeats[kind].compare_exchange_weak(left, left - 1, std::memory_order_relaxed))
      return slot.load(std::memory_order_relaxed);
  }
  return slot.exchange(0, std::memory_order_relaxed);
}

void SetBeforeDescend(std::function<void(const std::string& name)> hook) {
  std::lock_guard<std::mutex> lock(hookLock);
  hookSet.store(static_cast<bool>(hook), std::memory_order_relaxed);
  Hook() = std::move(hook);
}

void BeforeDescend(const std::string& name) {
  if (!hookSet.load(std::memory_order_relaxed)) return;
  std::function<void(const std::string&)> hook;
  {
    std::lock_guard<std::mutex> lock(hookLock);
    hook = Hook();
  }
  if (hook) hook(name);
}

void SetDebuggerOutputCapture(DebuggerOutputCapture capture) {
  debuggerCapture.store(capture, std::memory_order_release);
}

DebuggerOutputCapture GetDebuggerOutputCapture() {
  return debuggerCapture.load(std::memory_order_acquire);
}

}  // namespace tvxcore::platform::seams
