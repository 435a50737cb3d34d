// The free functions of the change monitor: the count of Initialize calls,
// the singleton, and the calling thread's last error.
#include "tvxcore/filesupport/DirectoryChangeMonitor.h"

#include "filesupport/internal/PathCodec.h"
#include "filework/internal/DirectoryChangeMonitorPrivate.h"
#include "tvxcore/threads/CheckedLocks.h"

namespace tvxcore::filesupport {
namespace {

struct Singleton {
  threads::BoostMutex mutex;
  int initializeCount TVX_GUARDED_BY(mutex) = 0;
  std::shared_ptr<DirectoryChangeMonitorPrivate> monitor TVX_GUARDED_BY(mutex);
};

Singleton& TheSingleton() {
  static Singleton* const singleton = new Singleton;  // outlives static destruction
  return *singleton;
}

thread_local std::string lastError;

}  // namespace

std::shared_ptr<DirectoryChangeMonitorPrivate> DirectoryChangeMonitorPrivate::Get() {
  Singleton& s = TheSingleton();
  threads::CheckedLock lock(s.mutex);
  if (!s.monitor) s.monitor = std::make_shared<InotifyDirectoryChangeMonitor>();
  return s.monitor;
}

std::shared_ptr<DirectoryChangeMonitorPrivate> DirectoryChangeMonitorPrivate::Current() {
  Singleton& s = TheSingleton();
  threads::CheckedLock lock(s.mutex);
  return s.monitor;
}

void DirectoryChangeMonitorPrivate::Terminate() {
  std::shared_ptr<DirectoryChangeMonitorPrivate> monitor;
  {
    Singleton& s = TheSingleton();
    threads::CheckedLock lock(s.mutex);
    monitor.swap(s.monitor);
  }
  if (monitor) monitor->TerminateMonitor();
}

namespace DirectoryChangeMonitor {

void Initialize() {
  Singleton& s = TheSingleton();
  bool first = false;
  {
    threads::CheckedLock lock(s.mutex);
    first = ++s.initializeCount == 1;
  }
  if (first) DirectoryChangeMonitorPrivate::Get();
}

void Terminate() {
  Singleton& s = TheSingleton();
  bool last = false;
  {
    threads::CheckedLock lock(s.mutex);
    if (s.initializeCount == 0) return;
    last = --s.initializeCount == 0;
  }
  if (last) DirectoryChangeMonitorPrivate::Terminate();
}

bool IsTerminated() { return !DirectoryChangeMonitorPrivate::Current(); }

bool MonitorDirectory(UTF16String const& path,
                      boost::shared_ptr<DirectoryChangedCallback> const& callback) {
  const auto monitor = DirectoryChangeMonitorPrivate::Current();
  lastError.clear();
  if (!monitor) {
    lastError =
        "cannot watch '" + internal::ToNative(path) + "': the change monitor is not initialized";
    return false;
  }
  return monitor->MonitorDirectory(path, callback, lastError);
}

void StopMonitoringDirectory(UTF16String const& path) {
  if (const auto monitor = DirectoryChangeMonitorPrivate::Current())
    monitor->StopMonitoringDirectory(path);
}

void MonitorVolumeChanges(boost::shared_ptr<VolumeChangedCallback> const& callback) {
  if (const auto monitor = DirectoryChangeMonitorPrivate::Current())
    monitor->MonitorVolumeChanges(callback);
}

void StopMonitoringVolumeChanges() {
  if (const auto monitor = DirectoryChangeMonitorPrivate::Current())
    monitor->StopMonitoringVolumeChanges();
}

void RemoveDirectoryChangedCallback(boost::shared_ptr<DirectoryChangedCallback> const& callback) {
  if (const auto monitor = DirectoryChangeMonitorPrivate::Current())
    monitor->RemoveDirectoryChangedCallback(callback);
}

void RemoveVolumeChangedCallback(boost::shared_ptr<VolumeChangedCallback> const& callback) {
  if (const auto monitor = DirectoryChangeMonitorPrivate::Current())
    monitor->RemoveVolumeChangedCallback(callback);
}

std::string GetLastError() { return lastError; }

VolumeChanges GetLastVolumeChanges() {
  const auto monitor = DirectoryChangeMonitorPrivate::Current();
  return monitor ? monitor->LastVolumeChanges() : VolumeChanges{};
}

}  // namespace DirectoryChangeMonitor
}  // namespace tvxcore::filesupport
