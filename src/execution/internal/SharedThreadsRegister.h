// The main-thread slot of the shared executor register, for the event-loop
// code that registers the application's main thread.
#pragma once

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>

namespace tvxcore::threads {

class AsyncEventLoopAdaptor;

namespace internal {

using MainThreadAdaptor = boost::shared_ptr<AsyncEventLoopAdaptor>;

// The registered main-thread adaptor if it is still alive, else null.
MainThreadAdaptor GetMainThreadSlot();

// Under the register's lock: passes the live adaptor (or null) to `update`
// and keeps a weak reference to what it returns, which is also returned.
// `update` may throw; the slot then stays as it was. It may call back into
// the register (the lock is reentrant).
MainThreadAdaptor UpdateMainThreadSlot(
    boost::function<MainThreadAdaptor(MainThreadAdaptor const& current)> const& update);

}  // namespace internal
}  // namespace tvxcore::threads
