// tvxcore/filesupport/DirectoryChangeMonitor.h: tells clients when watched
// directories change, and when volumes (mount points) come and go, without
// polling and without a thread of its own.
//
// The monitor waits for the kernel's notifications in the event loop of the
// thread that first needs it (the first MonitorDirectory or
// MonitorVolumeChanges): that thread must run its loop
// (threads::RunPlatformEventLoop) for anything to be delivered. Notifications
// are collected, and however many arrive, one delivery is queued at a time:
// a burst of changes becomes one call per changed directory. Callbacks run on
// the registered main thread, through threads::AsyncCallFromMainThread; with
// no main thread registered they are dropped.
//
// Directories:
//  - A directory is watched by itself, not with its subdirectories: an entry
//    created, removed, renamed (in or out), written or changed directly in it
//    is a change of the directory. A renamed or removed subdirectory is a
//    change of its parent.
//  - Each directory callback receives the watched path, exactly as it was
//    given to MonitorDirectory, once per delivery in which that directory
//    changed. Every directory callback hears of every watched directory;
//    paths are delivered in their sorted order.
//  - A watched directory that is removed, moved away or unmounted is
//    delivered once as changed. Its path stays watched (until
//    StopMonitoringDirectory): when a directory of that name is there again
//    by the time the monitor handles the removal (a directory renamed over
//    it), or at the next notification the monitor receives, or at the next
//    MonitorDirectory of that path, the new directory is watched.
//  - Paths are compared exactly: "/a" and "/a/" are two entries (that share
//    one kernel watch).
//
// Volumes: a volume callback (no argument) is called when the set of mount
// points of the process changes, at most once in 500 ms; changes within that
// time are told together at its end. GetLastVolumeChanges says what changed.
//
// Thread safety: every function may be called from any thread.
#pragma once

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

#include "tvxcore/Export.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::filesupport::DirectoryChangeMonitor {

using DirectoryChangedCallback = boost::function<void(UTF16String const&)>;
using VolumeChangedCallback = boost::function<void()>;

// Counted: the first Initialize starts the monitor, and the Terminate that
// brings the count back to 0 ends it (every watch is released, nothing more
// is delivered; calls already queued to the main thread still run). A
// Terminate without an Initialize does nothing.
TVXCORE_EXPORT void Initialize();
TVXCORE_EXPORT void Terminate();
// True while the monitor is not running: before the first Initialize and
// after the last Terminate.
TVXCORE_EXPORT bool IsTerminated();

// Watches the directory at `path` (counted per path: each call needs a
// StopMonitoringDirectory) and adds `callback` to the directory callbacks
// unless it is there already (by pointer). False when the directory cannot be
// watched: it is missing or not a directory, access is denied, the monitor is
// not initialized, or a system limit is reached (watches or notification
// instances per user). The reason is traced (category
// "DirectoryChangeMonitor") and GetLastError() returns it; nothing is added.
TVXCORE_EXPORT bool MonitorDirectory(UTF16String const& path,
                                     boost::shared_ptr<DirectoryChangedCallback> const& callback);
// Undoes one MonitorDirectory of `path`; at the last one the directory is no
// longer watched and its collected changes are dropped. A path that is not
// watched changes nothing.
TVXCORE_EXPORT void StopMonitoringDirectory(UTF16String const& path);

// Adds `callback` to the volume callbacks unless it is there already (by
// pointer), and counts one more interest in volume changes.
TVXCORE_EXPORT void MonitorVolumeChanges(boost::shared_ptr<VolumeChangedCallback> const& callback);
// Counts one interest less (nothing at 0); at 0 mount changes are no longer
// watched.
TVXCORE_EXPORT void StopMonitoringVolumeChanges();

// Removes a callback (by pointer) from its list; calls queued already still run.
TVXCORE_EXPORT void RemoveDirectoryChangedCallback(
    boost::shared_ptr<DirectoryChangedCallback> const& callback);
TVXCORE_EXPORT void RemoveVolumeChangedCallback(
    boost::shared_ptr<VolumeChangedCallback> const& callback);

// Why the calling thread's last MonitorDirectory failed, for a person
// (UTF-8, names the path); empty after a success.
TVXCORE_EXPORT std::string GetLastError();

// The mount points that came and went, as told by the latest volume delivery.
struct VolumeChanges {
  std::vector<UTF16String> added;
  std::vector<UTF16String> removed;
};
TVXCORE_EXPORT VolumeChanges GetLastVolumeChanges();

}  // namespace tvxcore::filesupport::DirectoryChangeMonitor
