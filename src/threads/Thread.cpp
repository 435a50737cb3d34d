#include "tvxcore/threads/Thread.h"

#include <boost/bind/bind.hpp>

#include "platform/Thread.h"
#include "threads/internal/MainThread.h"
#include "threads/internal/ThreadPriorityMap.h"

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

bool CallerIsRegisteredMainThread() { return false; }

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
