// The host's memory purge, as the recycler asks it when memory runs out.
// The error manager, which a host installs above this layer, hands down the
// function that reaches it.
#pragma once

namespace tvxcore::utility::internal {

// Asks the host to give back memory; true if it did and a retry may help.
using MemoryPurger = bool (*)(unsigned long long bytesWanted);

// Installs the purge (null: none, which answers false).
void SetMemoryPurger(MemoryPurger purger) noexcept;
// Asks the installed purge; false when there is none.
bool PurgeHostMemory(unsigned long long bytesWanted);

}  // namespace tvxcore::utility::internal
