// The lock of the register of shared executors. The main thread is
// registered under it too (with the event-loop executors), so that the
// register's operations and that registration never interleave.
#pragma once

#include "tvxcore/threads/CheckedLocks.h"

namespace tvxcore::threads::internal {

// Reentrant: the register's operations call each other under it, and it is
// held across the creation of executors (thread starts included).
BoostRecursiveMutex& SharedRegisterMutex();

}  // namespace tvxcore::threads::internal
