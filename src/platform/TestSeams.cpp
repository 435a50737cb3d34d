#include "platform/TestSeams.h"

#include <atomic>
#include <mutex>

namespace tvxcore::platform::seams {
namespace {

std::atomic<int> failures[2];
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

void FailNext(Fault fault, int err) {
  failures[static_cast<int>(fault)].store(err, std::memory_order_relaxed);
}

int TakeFailure(Fault fault) {
  std::atomic<int>& slot = failures[static_cast<int>(fault)];
  if (slot.load(std::memory_order_relaxed) == 0) return 0;
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
