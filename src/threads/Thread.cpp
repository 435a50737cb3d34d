#include "tvxcore/threads/Thread.h"

#include <atomic>
#include <boost/bind/bind.hpp>

#include "base/NoDestructor.h"

#include "platform/Thread.h"
#include "threads/internal/MainThread.h"
#include "threads/internal/ThreadPriorityMap.h"
#include "tvxcore/threads/CheckedLocks.h"

namespace tvxcore::threads {
namespace internal {

int RelativePriorityOf(ThreadPriority priority) noexcept {
  switch (priority) {
    case ThreadPriority_Idle:
      return -15;
    case ThreadPriority_Lowest:
      return -2;
    case ThreadPriority_BelowNormal:
      return -1;
    case ThreadPriority_Normal:
      return 0;
    case ThreadPriority_AboveNormal:
      return 1;
    case ThreadPriority_Highest:
      return 2;
  }
  return 0;
}

int NiceValueOf(int relativePriority) noexcept {
  switch (relativePriority) {
    case -15:
      return 19;
    case -2:
      return 10;
    case -1:
      return 5;
    case 1:
      return -5;
    case 2:
      return -10;
    default:
      return 0;
  }
}

namespace {

// The registration. The thread id is read without the lock first: a thread
// that is not the registered one (the common question) learns it from one
// atomic load. Ids of live threads are unique, so an equal id is the thread
// itself, and only then is the owner checked.
struct MainThreadSlot {
  BoostMutex mutex;
  boost::weak_ptr<void> owner TVX_GUARDED_BY(mutex);
  std::atomic<std::uint32_t> threadId{0};
};

MainThreadSlot& Slot() {
  static base::NoDestructor<MainThreadSlot> slot;  // asked about during exit
  return *slot;
}

}  // namespace

void SetRegisteredMainThread(boost::weak_ptr<void> const& owner, std::uint32_t threadId) {
  MainThreadSlot& slot = Slot();
  CheckedLock lock(slot.mutex);
  slot.owner = owner;
  slot.threadId.store(owner.expired() ? 0 : threadId, std::memory_order_release);
}

boost::shared_ptr<void> GetRegisteredMainThreadOwner() {
  MainThreadSlot& slot = Slot();
  CheckedLock lock(slot.mutex);
  return slot.owner.lock();
}

bool CallerIsRegisteredMainThread() {
  MainThreadSlot& slot = Slot();
  const std::uint32_t id = slot.threadId.load(std::memory_order_acquire);
  if (id == 0 || id != platform::CurrentThreadId()) return false;
  CheckedLock lock(slot.mutex);
  return !slot.owner.expired();
}

}  // namespace internal

namespace {

void NamedThreadMain(const std::string& name, const boost::function<void()>& body,
                     ThreadPriority priority, const boost::function<void()>& onStart,
                     const boost::function<void()>& onExit) {
  if (body.empty()) return;
  platform::SetCurrentThreadName(name);
  if (!onStart.empty()) onStart();
  platform::SetCurrentThreadNice(internal::NiceValueOf(internal::RelativePriorityOf(priority)));
  body();
  if (!onExit.empty()) onExit();
}

}  // namespace

boost::thread CreateNamedThread(std::string const& name, boost::function<void()> body,
                                ThreadPriority priority, boost::function<void()> const& onStart,
                                boost::function<void()> const& onExit) {
  return boost::thread(
      boost::bind(&NamedThreadMain, name, std::move(body), priority, onStart, onExit));
}

std::uint32_t GetCurrentThreadID() { return platform::CurrentThreadId(); }

std::uint32_t GetCurrentProcessID() { return platform::CurrentProcessId(); }

bool CurrentThreadIsMainThread() { return internal::CallerIsRegisteredMainThread(); }

}  // namespace tvxcore::threads
