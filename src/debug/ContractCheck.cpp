#include "debug/internal/ContractCheck.h"

namespace tvxcore::debug::internal {

void ContractViolation(const char*, const char*, long) {
  // The error road (error manager and assertion dialog) plugs in here.
}

}  // namespace tvxcore::debug::internal
