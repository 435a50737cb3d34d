// tvxcore/utility/HostInfo.h: the machine facts the library sizes itself by.
//
// Both functions ask the system on every call and are safe on any thread.
#pragma once

#include <cstdint>

#include "tvxcore/Export.h"

namespace tvxcore::utility {

// The processors this process may run on (its affinity mask), at least 1. A
// process limited to two processors of a larger machine gets 2.
TVXCORE_EXPORT std::uint32_t CPUCount();

// The machine's physical memory in bytes (0 if the system doesn't say).
TVXCORE_EXPORT std::uint64_t TotalPhysicalMemory();

}  // namespace tvxcore::utility
