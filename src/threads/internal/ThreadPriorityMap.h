// How the library's priority scale maps to scheduling values.
#pragma once

#include "tvxcore/threads/Thread.h"

namespace tvxcore::threads::internal {

// The relative priority of each step of the scale, -15 (idle) to 2 (highest),
// 0 for normal and for any value outside the scale.
int RelativePriorityOf(ThreadPriority priority) noexcept;

// The Linux nice value that carries a relative priority: idle 19, lowest 10,
// below normal 5, normal 0, above normal -5, highest -10.
int NiceValueOf(int relativePriority) noexcept;

}  // namespace tvxcore::threads::internal
