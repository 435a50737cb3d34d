// The reach of the process's address space, for code that packs addresses
// into fewer than 64 bits.
#pragma once

namespace tvxcore::platform {

// Whether a mapping of this process can lie at or above 2^bits. The system is
// asked for one page far above that line, without forcing the place: a kernel
// that can map there (5-level paging) does, one that cannot ignores the place
// and maps lower. The page is given back at once. When the system refuses the
// page altogether the answer is true, the safe one.
bool MappingsCanReachAbove(unsigned bits) noexcept;

}  // namespace tvxcore::platform
