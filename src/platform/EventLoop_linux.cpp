#include "platform/EventLoop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <time.h>

#include <cerrno>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/Thread.h"
#include "platform/internal/Posix.h"

namespace tvxcore::platform {
namespace {

// Messages delivered between two looks at the descriptors, so that a steady
// stream of messages cannot starve a watched descriptor.
constexpr int kMessagesPerTurn = 64;
constexpr std::uint64_t kWakeId = 0;

std::int64_t MonotonicMilliseconds() noexcept {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

}  // namespace

// Holds the thread's loop and closes it when the thread ends.
struct ThreadLoopHolder {
  std::shared_ptr<EventLoop> loop;
  ~ThreadLoopHolder() {
    if (loop) loop->Close();
  }
};

namespace {
thread_local ThreadLoopHolder t_loop;
}

std::shared_ptr<EventLoop> EventLoop::ForCurrentThread() {
  if (t_loop.loop) return t_loop.loop;
  internal::ScopedFd epoll(::epoll_create1(EPOLL_CLOEXEC));
  if (!epoll.valid()) throw std::system_error(errno, std::system_category(), "epoll_create1");
  internal::ScopedFd wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  if (!wake.valid()) throw std::system_error(errno, std::system_category(), "eventfd");
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = kWakeId;
  if (::epoll_ctl(epoll.get(), EPOLL_CTL_ADD, wake.get(), &event) != 0)
    throw std::system_error(errno, std::system_category(), "epoll_ctl");
  t_loop.loop.reset(new EventLoop(std::move(epoll), std::move(wake), CurrentThreadId()));
  return t_loop.loop;
}

EventLoop::EventLoop(internal::ScopedFd epoll, internal::ScopedFd wake, std::uint32_t threadId)
    : epoll_(std::move(epoll)), wake_(std::move(wake)), threadId_(threadId) {}

EventLoop::~EventLoop() = default;

void EventLoop::Close() {
  std::deque<Entry> notified, posted;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    closed_ = true;
    notified.swap(notified_);
    posted.swap(posted_);
    channels_.clear();
  }
  // The messages go here, outside the lock: destroying one may post again.
}

std::uint64_t EventLoop::OpenChannel() {
  std::lock_guard<std::mutex> lock(mutex_);
  const std::uint64_t id = nextId_++;
  if (!closed_) channels_.insert(id);
  return id;
}

void EventLoop::CloseChannel(std::uint64_t channel) {
  std::vector<Entry> dropped;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    channels_.erase(channel);
    for (auto* lane : {&notified_, &posted_}) {
      for (auto it = lane->begin(); it != lane->end();) {
        if (it->channel == channel) {
          dropped.push_back(std::move(*it));
          it = lane->erase(it);
        } else {
          ++it;
        }
      }
    }
  }
}

bool EventLoop::Post(std::uint64_t channel, std::unique_ptr<Message> message, Lane lane) {
  bool wasIdle = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (closed_ || channel == 0 || channels_.count(channel) == 0) return false;
    wasIdle = notified_.empty() && posted_.empty();
    (lane == Lane::kNotify ? notified_ : posted_).push_back(Entry{channel, std::move(message)});
  }
  if (wasIdle && CurrentThreadId() != threadId_) Wake();
  return true;
}

bool EventLoop::PostQuit() {
  bool wasIdle = false;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    if (closed_) return false;
    wasIdle = notified_.empty() && posted_.empty();
    posted_.push_back(Entry{0, nullptr});
  }
  if (wasIdle && CurrentThreadId() != threadId_) Wake();
  return true;
}

void EventLoop::Wake() noexcept {
  const std::uint64_t one = 1;
  // A full counter (EAGAIN) already wakes the loop.
  (void)internal::RetryOnEintr([&] { return ::write(wake_.get(), &one, sizeof one); });
}

std::uint64_t EventLoop::WatchReadable(int fd, std::function<void()> onReadable) {
  return WatchFor(fd, EPOLLIN, std::move(onReadable));
}

std::uint64_t EventLoop::WatchPriority(int fd, std::function<void()> onPriority) {
  return WatchFor(fd, EPOLLPRI, std::move(onPriority));
}

std::uint64_t EventLoop::WatchFor(int fd, std::uint32_t events, std::function<void()> callback) {
  std::lock_guard<std::mutex> lock(mutex_);
  const std::uint64_t id = nextId_++;
  epoll_event event{};
  event.events = events;
  event.data.u64 = id;
  if (::epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &event) != 0) return 0;
  watches_.emplace(id, std::make_shared<Watch>(Watch{fd, std::move(callback)}));
  return id;
}

void EventLoop::Unwatch(std::uint64_t watch) {
  std::shared_ptr<Watch> gone;
  std::lock_guard<std::mutex> lock(mutex_);
  const auto it = watches_.find(watch);
  if (it == watches_.end()) return;
  gone = std::move(it->second);
  watches_.erase(it);
  // A descriptor closed already has left the epoll set by itself.
  ::epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, gone->fd, nullptr);
}

bool EventLoop::Take(Entry& entry) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto& lane = notified_.empty() ? posted_ : notified_;
  if (lane.empty()) return false;
  entry = std::move(lane.front());
  lane.pop_front();
  return true;
}

bool EventLoop::HasEntries() {
  std::lock_guard<std::mutex> lock(mutex_);
  return !notified_.empty() || !posted_.empty();
}

void EventLoop::DispatchReady(int timeoutMilliseconds, bool& failed) {
  epoll_event events[16];
  const int count = ::epoll_wait(epoll_.get(), events, 16, timeoutMilliseconds);
  if (count < 0) {
    failed = errno != EINTR;
    return;
  }
  for (int i = 0; i < count; ++i) {
    const std::uint64_t id = events[i].data.u64;
    if (id == kWakeId) {
      std::uint64_t value = 0;
      (void)internal::RetryOnEintr([&] { return ::read(wake_.get(), &value, sizeof value); });
      continue;
    }
    std::shared_ptr<Watch> watch;
    {
      std::lock_guard<std::mutex> lock(mutex_);
      const auto it = watches_.find(id);
      if (it != watches_.end()) watch = it->second;
    }
    // An earlier callback of this turn may have ended this watch.
    if (watch && watch->onReadable) watch->onReadable();
  }
}

EventLoop::RunResult EventLoop::Run(int timeoutMilliseconds) {
  const std::int64_t deadline =
      timeoutMilliseconds < 0 ? -1 : MonotonicMilliseconds() + timeoutMilliseconds;
  for (;;) {
    int wait = 0;
    if (!HasEntries()) {
      if (deadline < 0) {
        wait = -1;
      } else {
        const std::int64_t left = deadline - MonotonicMilliseconds();
        if (left <= 0) return RunResult::kTimedOut;
        wait = static_cast<int>(left);
      }
    }
    bool failed = false;
    DispatchReady(wait, failed);
    if (failed) return RunResult::kFailed;
    for (int i = 0; i < kMessagesPerTurn; ++i) {
      Entry entry{0, nullptr};
      if (!Take(entry)) break;
      if (entry.channel == 0) return RunResult::kQuit;
      entry.message->Deliver();
    }
    if (deadline >= 0 && MonotonicMilliseconds() >= deadline) return RunResult::kTimedOut;
  }
}

}  // namespace tvxcore::platform
