// The registered main thread, as far as the locks need to know it.
#pragma once

namespace tvxcore::threads::internal {

// True when a main thread is registered and the caller is it. Registration
// arrives with the event-loop executors; until then no thread is the main one.
bool CallerIsRegisteredMainThread();

}  // namespace tvxcore::threads::internal
