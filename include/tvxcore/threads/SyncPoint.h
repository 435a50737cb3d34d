// tvxcore/threads/SyncPoint.h: a reusable meeting point for a fixed number of
// threads, over boost::barrier.
#pragma once

#include <boost/shared_ptr.hpp>

#include "tvxcore/Export.h"

namespace boost {
class barrier;
}

namespace tvxcore::threads {

// `count` threads meet at Wait(); then all go on and the point is ready for
// the next round. Copies share one barrier, so calls on any copy count toward
// the same round. A waiter keeps the barrier alive while it waits, so the
// SyncPoint it called may be destroyed meanwhile.
class TVXCORE_EXPORT SyncPoint {
 public:
  // Throws std::invalid_argument ("count cannot be zero.") for a count of 0.
  explicit SyncPoint(unsigned int count);
  SyncPoint(const SyncPoint& other);
  SyncPoint& operator=(const SyncPoint& other);
  virtual ~SyncPoint();

  // Blocks until `count` threads have called Wait() in this round. Returns
  // true in the one thread whose arrival completed the round.
  bool Wait();

 private:
  boost::shared_ptr<boost::barrier> barrier_;
};

}  // namespace tvxcore::threads
