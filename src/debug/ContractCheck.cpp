#include "debug/internal/ContractCheck.h"

#include <atomic>

#include "debug/internal/DebuggerSeams.h"
#include "tvxcore/config/Errors.h"
#include "tvxcore/debug/Assert.h"

namespace tvxcore::debug::internal {
namespace {
std::atomic<ContractObserver> g_observer{nullptr};
}

ContractObserver SetContractObserverForTesting(ContractObserver observer) {
  return g_observer.exchange(observer);
}

void ContractViolation(const char* expression, const char* file, long line) {
  if (auto observer = g_observer.load(std::memory_order_acquire)) observer(expression, file, line);
  if (BreakAfterContractDialog(expression, file, line) && IsDebuggerAttached()) {
    BreakIntoDebugger();
  }
  config::ThrowError(
      config::kErrorLevel_Fatal,
      "$$$/tvxcore/utility/Error/Contract/InputContractViolation=An input contract violation has "
      "occurred!",
      105, 25, true, config::ReplacementValue(), config::ReplacementValue(),
      config::ReplacementValue(), config::ReplacementValue());
}

}  // namespace tvxcore::debug::internal
