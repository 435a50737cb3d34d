// The change monitor on Linux: inotify for directories and the mount table's
// change notification for volumes, both waited for in the event loop of the
// thread that first needed the monitor. Notifications only mark what
// changed; a delivery message, queued once however many notifications
// arrive, hands the marks to the callbacks on the main thread.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <map>
#include <mutex>
#include <set>
#include <system_error>
#include <utility>
#include <vector>

#include "filesupport/internal/PathCodec.h"
#include "filework/internal/DirectoryChangeMonitorPrivate.h"
#include "platform/DirectoryWatch.h"
#include "platform/EventLoop.h"
#include "platform/FileSystem.h"
#include "tvxcore/debug/Trace.h"
#include "tvxcore/threads/CheckedLocks.h"
#include "tvxcore/threads/EventLoop.h"

namespace tvxcore::filesupport {
namespace {

constexpr char kTraceCategory[] = "DirectoryChangeMonitor";
// Volume changes closer together than this are told together.
constexpr std::chrono::milliseconds kVolumeEventInterval{500};

using DirectoryCallbackPtr = boost::shared_ptr<DirectoryChangeMonitor::DirectoryChangedCallback>;
using VolumeCallbackPtr = boost::shared_ptr<DirectoryChangeMonitor::VolumeChangedCallback>;

std::mutex readerLock;
std::function<bool(std::string&)>& MountTableReader() {
  static std::function<bool(std::string&)> reader;
  return reader;
}
std::function<bool(std::string&)> CurrentMountTableReader() {
  std::lock_guard<std::mutex> lock(readerLock);
  return MountTableReader();
}

std::set<std::string> MountPointsOf(const std::string& table) {
  std::set<std::string> points;
  for (const auto& mount : platform::ParseMounts(table)) points.insert(mount.path);
  return points;
}

std::string Quoted(const UTF16String& path) { return "'" + internal::ToNative(path) + "'"; }

// Why a watch could not be made, for a person.
std::string WatchFailureReason(int err) {
  switch (err) {
    case ENOENT:
      return "no such folder";
    case ENOTDIR:
      return "not a folder";
    case EACCES:
    case EPERM:
      return "permission denied";
    case ENOSPC:
      return std::string("the limit of watched folders per user is reached (") +
             platform::kWatchLimitSetting + ")";
    case EMFILE:
      return std::string("the limit of change monitors per user is reached (") +
             platform::kInstanceLimitSetting + ")";
    case ENFILE:
      return "the system has too many open files";
    case ENOMEM:
      return "out of memory";
    case ENAMETOOLONG:
      return "the path is too long";
    case ELOOP:
      return "too many symbolic links in the path";
    default:
      return "system error " + std::to_string(err);
  }
}

template <typename Ptr>
void AddOnce(std::vector<Ptr>& list, const Ptr& callback) {
  if (callback && std::find(list.begin(), list.end(), callback) == list.end())
    list.push_back(callback);
}
template <typename Ptr>
void RemoveAll(std::vector<Ptr>& list, const Ptr& callback) {
  list.erase(std::remove(list.begin(), list.end(), callback), list.end());
}

}  // namespace

struct InotifyDirectoryChangeMonitor::Impl : std::enable_shared_from_this<Impl> {
  struct DirectoryEntry {
    int useCount = 0;
    int registration = 0;  // inotify watch; 0 while the directory is not watched
    bool changed = false;  // to be told at the next delivery
    std::string native;
  };
  // The loop of the thread that first needed the monitor, and the channel
  // its delivery messages travel on (what a hidden window is on Windows).
  struct Window {
    std::shared_ptr<platform::EventLoop> loop;
    std::uint64_t channel = 0;
  };

  class DeliveryMessage : public platform::EventLoop::Message {
   public:
    explicit DeliveryMessage(std::weak_ptr<Impl> impl) : impl_(std::move(impl)) {}
    void Deliver() override {
      if (const auto impl = impl_.lock()) impl->Deliver();
    }

   private:
    std::weak_ptr<Impl> impl_;
  };

  threads::BoostMutex mutex;
  bool terminated TVX_GUARDED_BY(mutex) = false;
  std::map<UTF16String, DirectoryEntry> directories TVX_GUARDED_BY(mutex);
  // Paths per inotify watch: two spellings of one directory share a watch.
  std::map<int, std::set<UTF16String>> pathsOfRegistration TVX_GUARDED_BY(mutex);
  std::unique_ptr<Window> window TVX_GUARDED_BY(mutex);
  platform::DirectoryWatcher watcher TVX_GUARDED_BY(mutex);
  std::uint64_t watcherWatch TVX_GUARDED_BY(mutex) = 0;  // the loop's watch of the inotify fd
  std::vector<platform::DirectoryEvent> events TVX_GUARDED_BY(mutex);

  platform::internal::ScopedFd mountTable TVX_GUARDED_BY(mutex);
  std::uint64_t volumeRegistration TVX_GUARDED_BY(mutex) = 0;  // the loop's watch of the table
  int volumeMonitorCount TVX_GUARDED_BY(mutex) = 0;
  std::set<std::string> volumes TVX_GUARDED_BY(mutex);
  std::set<std::string> pendingAdded TVX_GUARDED_BY(mutex);
  std::set<std::string> pendingRemoved TVX_GUARDED_BY(mutex);
  bool volumesChanged TVX_GUARDED_BY(mutex) = false;
  bool volumeTickSet TVX_GUARDED_BY(mutex) = false;
  std::chrono::steady_clock::time_point volumeTick TVX_GUARDED_BY(mutex);
  bool windowEndScheduled TVX_GUARDED_BY(mutex) = false;
  boost::shared_ptr<threads::AsyncEventLoopAdaptor> timer TVX_GUARDED_BY(mutex);
  DirectoryChangeMonitor::VolumeChanges lastVolumeChanges TVX_GUARDED_BY(mutex);

  bool deliveryQueued TVX_GUARDED_BY(mutex) = false;
  std::vector<DirectoryCallbackPtr> directoryCallbacks TVX_GUARDED_BY(mutex);
  std::vector<VolumeCallbackPtr> volumeCallbacks TVX_GUARDED_BY(mutex);

  // The window, made on first need on the calling thread.
  bool EnsureWindow(std::string& error) TVX_REQUIRES(mutex) {
    if (window) return true;
    try {
      auto made = std::make_unique<Window>();
      made->loop = platform::EventLoop::ForCurrentThread();
      made->channel = made->loop->OpenChannel();
      window = std::move(made);
      return true;
    } catch (const std::system_error& e) {
      error = std::string("no event loop for the change monitor: ") + e.what();
      return false;
    }
  }

  bool EnsureWatcher(std::string& error) TVX_REQUIRES(mutex) {
    if (watcher.IsOpen()) return true;
    if (const int err = watcher.Open()) {
      error = WatchFailureReason(err);
      return false;
    }
    std::weak_ptr<Impl> weak = weak_from_this();
    watcherWatch = window->loop->WatchReadable(watcher.Fd(), [weak] {
      if (const auto impl = weak.lock()) impl->WatcherReadable();
    });
    if (watcherWatch == 0) {
      error = WatchFailureReason(errno);
      watcher = platform::DirectoryWatcher();
      return false;
    }
    return true;
  }

  void QueueDelivery() TVX_REQUIRES(mutex) {
    if (deliveryQueued || !window || terminated) return;
    deliveryQueued =
        window->loop->Post(window->channel, std::make_unique<DeliveryMessage>(weak_from_this()),
                           platform::EventLoop::Lane::kPosted);
  }

  // Watches the entry's directory again; false with `err` set if it cannot.
  bool Register(const UTF16String& path, DirectoryEntry& entry, int& err) TVX_REQUIRES(mutex) {
    const int registration = watcher.Add(entry.native, err);
    if (registration == 0) return false;
    entry.registration = registration;
    pathsOfRegistration[registration].insert(path);
    return true;
  }

  // Forgets the entry's watch; the kernel's watch ends with its last path.
  void Unregister(const UTF16String& path, DirectoryEntry& entry, bool kernelWatchGone)
      TVX_REQUIRES(mutex) {
    const int registration = std::exchange(entry.registration, 0);
    const auto it = pathsOfRegistration.find(registration);
    if (it == pathsOfRegistration.end()) return;
    it->second.erase(path);
    if (!it->second.empty()) return;
    pathsOfRegistration.erase(it);
    if (!kernelWatchGone) watcher.Remove(registration);
  }

  bool MonitorDirectory(const UTF16String& path, const DirectoryCallbackPtr& callback,
                        std::string& error) {
    std::string native;
    if (!internal::ToNative(path, native) || native.empty()) {
      error = "cannot watch " + Quoted(path) + ": not a valid path";
      TVX_TRACE(kTraceCategory, 1, error);
      return false;
    }
    threads::CheckedLock lock(mutex);
    std::string reason;
    bool ok = !terminated && EnsureWindow(reason) && EnsureWatcher(reason);
    if (terminated) reason = "the change monitor has ended";
    if (ok) {
      const auto found = directories.find(path);
      if (found != directories.end() && found->second.registration != 0) {
        ++found->second.useCount;
      } else {
        DirectoryEntry fresh;
        fresh.native = native;
        DirectoryEntry& entry = found != directories.end() ? found->second : fresh;
        int err = 0;
        ok = Register(path, entry, err);
        if (!ok) {
          reason = WatchFailureReason(err);
        } else {
          ++entry.useCount;
          if (found == directories.end()) directories.emplace(path, std::move(fresh));
        }
      }
    }
    if (!ok) {
      error = "cannot watch " + Quoted(path) + ": " + reason;
      TVX_TRACE(kTraceCategory, 1, error);
      return false;
    }
    AddOnce(directoryCallbacks, callback);
    return true;
  }

  void StopMonitoringDirectory(const UTF16String& path) {
    threads::CheckedLock lock(mutex);
    const auto it = directories.find(path);
    if (it == directories.end()) return;
    if (--it->second.useCount <= 0) {
      Unregister(path, it->second, false);
      directories.erase(it);
    }
    QueueDelivery();
  }

  // The inotify descriptor is readable: mark what changed, watch again what
  // was replaced, queue one delivery.
  void WatcherReadable() {
    threads::CheckedLock lock(mutex);
    if (terminated) return;
    events.clear();
    watcher.Read(events);
    bool any = false;
    for (const platform::DirectoryEvent& event : events) {
      if (event.flags & platform::kEventsLost) {
        for (auto& [path, entry] : directories) entry.changed = true;
        any = true;
        continue;
      }
      const auto found = pathsOfRegistration.find(event.watch);
      if (found == pathsOfRegistration.end()) continue;  // a watch ended already
      const std::set<UTF16String> paths = found->second;
      const bool gone = (event.flags & (platform::kDirectoryGone | platform::kWatchEnded)) != 0;
      for (const UTF16String& path : paths) {
        DirectoryEntry& entry = directories[path];
        entry.changed = true;
        any = true;
        // The watch follows a moved directory to its new place, and a
        // removed one is dead: either way the path is no longer watched.
        if (gone) Unregister(path, entry, (event.flags & platform::kWatchEnded) != 0);
      }
    }
    // A directory that is there again under a lost path is watched again.
    for (auto& [path, entry] : directories) {
      int err = 0;
      if (entry.registration == 0 && Register(path, entry, err))
        TVX_TRACE(kTraceCategory, 2, "watching " + entry.native + " again");
    }
    if (any) QueueDelivery();
  }

  void MonitorVolumeChanges(const VolumeCallbackPtr& callback) {
    threads::CheckedLock lock(mutex);
    if (terminated) return;
    AddOnce(volumeCallbacks, callback);
    std::string error;
    if (!EnsureWindow(error)) {
      TVX_TRACE(kTraceCategory, 1, error);
      return;
    }
    if (++volumeMonitorCount != 1) return;
    std::string table;
    if (const auto reader = CurrentMountTableReader()) {
      if (reader(table)) volumes = MountPointsOf(table);
      return;
    }
    if (const int err = platform::OpenMountTable(mountTable)) {
      TVX_TRACE(kTraceCategory, 1,
                "cannot watch the mount table: system error " + std::to_string(err));
      return;
    }
    if (platform::ReadMountTable(mountTable.get(), table)) volumes = MountPointsOf(table);
    std::weak_ptr<Impl> weak = weak_from_this();
    volumeRegistration = window->loop->WatchPriority(mountTable.get(), [weak] {
      if (const auto impl = weak.lock()) impl->MountTableChanged();
    });
    if (volumeRegistration == 0)
      TVX_TRACE(kTraceCategory, 1, "cannot wait for mount table changes");
  }

  void ReleaseVolumes() TVX_REQUIRES(mutex) {
    if (volumeRegistration != 0 && window) window->loop->Unwatch(volumeRegistration);
    volumeRegistration = 0;
    mountTable.Reset();
    volumes.clear();
    pendingAdded.clear();
    pendingRemoved.clear();
    volumesChanged = false;
  }

  void StopMonitoringVolumeChanges() {
    threads::CheckedLock lock(mutex);
    if (volumeMonitorCount <= 0) return;
    if (--volumeMonitorCount == 0) ReleaseVolumes();
  }

  // Compares the mount points with those seen last and keeps the difference
  // for the next volume delivery; one such delivery in kVolumeEventInterval.
  void MountTableChanged() {
    const auto reader = CurrentMountTableReader();
    threads::CheckedLock lock(mutex);
    if (terminated || volumeMonitorCount == 0) return;
    std::string table;
    const bool read = reader ? reader(table) : platform::ReadMountTable(mountTable.get(), table);
    if (!read) return;
    std::set<std::string> now = MountPointsOf(table);
    for (const std::string& point : now)
      if (!volumes.count(point) && !pendingRemoved.erase(point)) pendingAdded.insert(point);
    for (const std::string& point : volumes)
      if (!now.count(point) && !pendingAdded.erase(point)) pendingRemoved.insert(point);
    volumes = std::move(now);
    if (pendingAdded.empty() && pendingRemoved.empty()) return;
    const auto tick = std::chrono::steady_clock::now();
    if (!volumeTickSet || tick - volumeTick > kVolumeEventInterval) {
      volumeTick = tick;
      volumeTickSet = true;
      volumesChanged = true;
      QueueDelivery();
      return;
    }
    // Within the interval: told when it ends, with whatever else comes meanwhile.
    if (windowEndScheduled) return;
    if (!timer) timer = threads::AdaptCurrentEventLoopAsExecutor(false);
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        volumeTick + kVolumeEventInterval - tick);
    std::weak_ptr<Impl> weak = weak_from_this();
    windowEndScheduled = timer->CallAsynchronously(
        [weak] {
          if (const auto impl = weak.lock()) impl->VolumeIntervalEnded();
        },
        static_cast<unsigned int>(left.count()) + 1);
  }

  void VolumeIntervalEnded() {
    threads::CheckedLock lock(mutex);
    windowEndScheduled = false;
    if (terminated || (pendingAdded.empty() && pendingRemoved.empty())) return;
    volumeTick = std::chrono::steady_clock::now();
    volumeTickSet = true;
    volumesChanged = true;
    QueueDelivery();
  }

  // One posted delivery message: what was collected goes to the main thread.
  void Deliver() {
    std::vector<boost::function<void()>> calls;
    {
      threads::CheckedLock lock(mutex);
      deliveryQueued = false;
      if (terminated) return;
      if (volumesChanged) {
        volumesChanged = false;
        DirectoryChangeMonitor::VolumeChanges changes;
        for (const std::string& point : pendingAdded)
          changes.added.push_back(internal::FromNative(point));
        for (const std::string& point : pendingRemoved)
          changes.removed.push_back(internal::FromNative(point));
        pendingAdded.clear();
        pendingRemoved.clear();
        lastVolumeChanges = std::move(changes);
        for (const VolumeCallbackPtr& callback : volumeCallbacks)
          calls.push_back([callback] { (*callback)(); });
      }
      for (auto& [path, entry] : directories) {
        if (!std::exchange(entry.changed, false)) continue;
        for (const DirectoryCallbackPtr& callback : directoryCallbacks)
          calls.push_back([callback, path = path] { (*callback)(path); });
      }
    }
    for (const auto& call : calls) threads::AsyncCallFromMainThread(call);
  }

  void Terminate() {
    threads::CheckedLock lock(mutex);
    if (terminated) return;
    terminated = true;
    ReleaseVolumes();
    volumeMonitorCount = 0;
    if (window) {
      if (watcherWatch != 0) window->loop->Unwatch(watcherWatch);
      window->loop->CloseChannel(window->channel);
    }
    watcherWatch = 0;
    watcher = platform::DirectoryWatcher();  // closes every watch with the instance
    directories.clear();
    pathsOfRegistration.clear();
    directoryCallbacks.clear();
    volumeCallbacks.clear();
    timer.reset();
  }
};

InotifyDirectoryChangeMonitor::InotifyDirectoryChangeMonitor() : impl_(std::make_shared<Impl>()) {}

InotifyDirectoryChangeMonitor::~InotifyDirectoryChangeMonitor() { impl_->Terminate(); }

bool InotifyDirectoryChangeMonitor::MonitorDirectory(UTF16String const& path,
                                                     DirectoryCallbackPtr const& callback,
                                                     std::string& error) {
  return impl_->MonitorDirectory(path, callback, error);
}

void InotifyDirectoryChangeMonitor::StopMonitoringDirectory(UTF16String const& path) {
  impl_->StopMonitoringDirectory(path);
}

void InotifyDirectoryChangeMonitor::MonitorVolumeChanges(VolumeCallbackPtr const& callback) {
  impl_->MonitorVolumeChanges(callback);
}

void InotifyDirectoryChangeMonitor::StopMonitoringVolumeChanges() {
  impl_->StopMonitoringVolumeChanges();
}

void InotifyDirectoryChangeMonitor::RemoveDirectoryChangedCallback(
    DirectoryCallbackPtr const& callback) {
  threads::CheckedLock lock(impl_->mutex);
  RemoveAll(impl_->directoryCallbacks, callback);
}

void InotifyDirectoryChangeMonitor::RemoveVolumeChangedCallback(VolumeCallbackPtr const& callback) {
  threads::CheckedLock lock(impl_->mutex);
  RemoveAll(impl_->volumeCallbacks, callback);
}

DirectoryChangeMonitor::VolumeChanges InotifyDirectoryChangeMonitor::LastVolumeChanges() {
  threads::CheckedLock lock(impl_->mutex);
  return impl_->lastVolumeChanges;
}

void InotifyDirectoryChangeMonitor::TerminateMonitor() { impl_->Terminate(); }

void InotifyDirectoryChangeMonitor::MountTableChanged() { impl_->MountTableChanged(); }

namespace internal {

void SetMountTableReaderForTesting(std::function<bool(std::string& text)> reader) {
  std::lock_guard<std::mutex> lock(readerLock);
  MountTableReader() = std::move(reader);
}

}  // namespace internal
}  // namespace tvxcore::filesupport
