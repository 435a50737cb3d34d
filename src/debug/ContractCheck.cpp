#include "debug/internal/ContractCheck.h"

#include <atomic>

namespace tvxcore::debug::internal {
namespace {
std::atomic<ContractObserver> g_observer{nullptr};
}

ContractObserver SetContractObserverForTesting(ContractObserver observer) {
  return g_observer.exchange(observer);
}

void ContractViolation(const char* expression, const char* file, long line) {
  if (auto observer = g_observer.load(std::memory_order_acquire)) observer(expression, file, line);
  // The error road (assertion dialog, then the host's error manager) continues here.
}

}  // namespace tvxcore::debug::internal
