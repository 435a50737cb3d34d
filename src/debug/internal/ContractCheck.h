// Contract checks of the library: a violated precondition is reported here and
// the caller then goes on with its normal path.
#pragma once

#include "tvxcore/Export.h"

namespace tvxcore::debug::internal {

// Reports a violated contract: `expression` failed in `file` at `line`.
// The violation goes to the contract dialog (and the debugger, when asked),
// then to config::ThrowError at the fatal level, module 105, error 25, which
// throws std::logic_error when no error manager is installed. Returns when the
// host's error road returns.
TVXCORE_EXPORT void ContractViolation(const char* expression, const char* file, long line);

// Lets a test observe contract violations: the observer runs first, on the
// thread that violated the contract. Pass null to remove it. Not for production.
using ContractObserver = void (*)(const char* expression, const char* file, long line);
TVXCORE_EXPORT ContractObserver SetContractObserverForTesting(ContractObserver observer);

}  // namespace tvxcore::debug::internal

// Checks a precondition; on failure reports it and continues.
#define TVX_CONTRACT(expr, file, line)                                             \
  do {                                                                             \
    if (!(expr)) ::tvxcore::debug::internal::ContractViolation(#expr, file, line); \
  } while (0)
