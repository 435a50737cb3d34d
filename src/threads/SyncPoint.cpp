#include "tvxcore/threads/SyncPoint.h"

#include <boost/make_shared.hpp>
#include <boost/thread/barrier.hpp>
#include <stdexcept>

namespace tvxcore::threads {

namespace {
unsigned int CheckedCount(unsigned int count) {
  if (count == 0) throw std::invalid_argument("count cannot be zero.");
  return count;
}
}  // namespace

SyncPoint::SyncPoint(unsigned int count)
    : barrier_(boost::make_shared<boost::barrier>(CheckedCount(count))) {}

SyncPoint::SyncPoint(const SyncPoint& other) = default;
SyncPoint& SyncPoint::operator=(const SyncPoint& other) = default;
SyncPoint::~SyncPoint() = default;

bool SyncPoint::Wait() {
  // The local reference keeps the barrier alive even if this object goes away.
  boost::shared_ptr<boost::barrier> barrier = barrier_;
  return barrier->wait();
}

}  // namespace tvxcore::threads
