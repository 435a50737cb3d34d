#include "tvxcore/utility/HostInfo.h"

#include "platform/HostInfo.h"

namespace tvxcore::utility {

std::uint32_t CPUCount() { return platform::ProcessorCount(); }

std::uint64_t TotalPhysicalMemory() { return platform::PhysicalMemoryBytes(); }

}  // namespace tvxcore::utility
