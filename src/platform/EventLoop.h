// platform/EventLoop.h: one event loop per thread, on epoll and an eventfd.
// Messages are posted into a loop from any thread and delivered on the
// loop's thread; the loop also waits for file descriptors to become readable.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <unordered_set>

#include "platform/internal/ScopedFd.h"

namespace tvxcore::platform {

// The event loop of one thread. Each thread has at most one, made on its
// first ForCurrentThread() call; it stays with the thread, and when the
// thread ends the loop is closed: posts fail and what was queued is destroyed
// undelivered. Objects may outlive their thread through shared pointers.
//
// Messages travel on channels: a channel is opened on a loop, messages are
// posted to it, and closing it destroys the ones not yet delivered (a loop's
// channel is what a private window is to a Windows message loop). There are
// two lanes: "notify" messages are delivered ahead of every "posted" message,
// and within each lane delivery is first in, first out. A quit, posted with
// PostQuit(), stands in the posted lane like any message and ends the
// innermost Run() that reaches it.
//
// Thread safety: Post, PostQuit, OpenChannel, CloseChannel, WatchReadable
// and Unwatch may be called from any thread. Run belongs to the loop's own
// thread and may be nested (a message may run the loop again).
class EventLoop {
 public:
  // What a channel carries. The loop owns a message from a successful Post
  // until it has been delivered or discarded, and destroys it after either.
  class Message {
   public:
    virtual ~Message() = default;
    // Runs on the loop's thread. An exception leaves the Run() that
    // delivered the message (the message is destroyed); the loop stays usable.
    virtual void Deliver() = 0;
  };

  enum class Lane { kPosted, kNotify };
  enum class RunResult { kQuit, kTimedOut, kFailed };

  // The calling thread's loop, made on first use. Throws std::system_error
  // when the system refuses the epoll or eventfd descriptor.
  static std::shared_ptr<EventLoop> ForCurrentThread();

  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // The kernel id of the loop's thread.
  std::uint32_t ThreadId() const noexcept { return threadId_; }

  // A new channel's id (never 0). A channel is open until CloseChannel.
  std::uint64_t OpenChannel();
  // Closes the channel; its undelivered messages are destroyed here, on the
  // calling thread. A message being delivered at the time finishes.
  void CloseChannel(std::uint64_t channel);

  // Queues `message` for `channel`. False (and the message is destroyed) if
  // the channel is not open or the loop's thread has ended.
  bool Post(std::uint64_t channel, std::unique_ptr<Message> message, Lane lane);
  // Queues a quit in the posted lane. False once the loop's thread has ended.
  bool PostQuit();

  // Calls `onReadable` on the loop's thread, from Run(), whenever `fd` is
  // readable, at end of file, or in error (level triggered: the callback
  // must read, or it is called again). Returns the watch's id, or 0 if the
  // descriptor cannot be watched (invalid, or watched already) with errno
  // set. The caller keeps the descriptor open until it has called Unwatch.
  std::uint64_t WatchReadable(int fd, std::function<void()> onReadable);
  // The same for urgent or changed state instead of data (EPOLLPRI, and
  // errors): what a mount table signals when mounts come or go.
  std::uint64_t WatchPriority(int fd, std::function<void()> onPriority);
  // Ends a watch; from then on its callback is not called again on the
  // loop's thread (one already running on it finishes). Unknown ids are ignored.
  void Unwatch(std::uint64_t watch);

  // Delivers messages and watch callbacks until a quit is reached
  // (kQuit), `timeoutMilliseconds` have passed (kTimedOut; negative: no
  // limit), or waiting failed (kFailed). Loop thread only.
  RunResult Run(int timeoutMilliseconds);

 private:
  struct Entry {
    std::uint64_t channel;  // 0: a quit
    std::unique_ptr<Message> message;
  };
  struct Watch {
    int fd;
    std::function<void()> onReadable;
  };

  EventLoop(internal::ScopedFd epoll, internal::ScopedFd wake, std::uint32_t threadId);
  // Marks the loop closed when its thread ends; destroys what was queued.
  void Close();
  // The next entry to deliver; false when both lanes are empty.
  bool Take(Entry& entry);
  bool HasEntries();
  void Wake() noexcept;
  std::uint64_t WatchFor(int fd, std::uint32_t events, std::function<void()> callback);
  void DispatchReady(int timeoutMilliseconds, bool& failed);

  friend struct ThreadLoopHolder;

  const internal::ScopedFd epoll_;
  const internal::ScopedFd wake_;  // eventfd: written to end a wait in Run()
  const std::uint32_t threadId_;

  std::mutex mutex_;  // guards everything below
  bool closed_ = false;
  std::uint64_t nextId_ = 1;
  std::unordered_set<std::uint64_t> channels_;
  std::deque<Entry> notified_;
  std::deque<Entry> posted_;
  std::unordered_map<std::uint64_t, std::shared_ptr<Watch>> watches_;
};

}  // namespace tvxcore::platform
