// The registered main thread, kept where the lowest layer that asks about it
// (thread identity) can read it. The event-loop executors fill it in.
#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>
#include <cstdint>

namespace tvxcore::threads::internal {

// Records the main thread: `owner`, held weakly, is what keeps the
// registration alive (the main thread's executor), and `threadId` the
// kernel id of its thread. A null owner clears the registration.
void SetRegisteredMainThread(boost::weak_ptr<void> const& owner, std::uint32_t threadId);

// The registered owner, or null once it has gone or while none is registered.
boost::shared_ptr<void> GetRegisteredMainThreadOwner();

// True when a main thread is registered, its owner lives, and the caller is
// that thread.
bool CallerIsRegisteredMainThread();

}  // namespace tvxcore::threads::internal
