// filework/internal/DirectoryChangeMonitorPrivate.h: the singleton behind the
// free functions of tvxcore/filesupport/DirectoryChangeMonitor.h, its inotify
// implementation, and the seams the library's tests use for mount changes.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "tvxcore/filesupport/DirectoryChangeMonitor.h"

namespace tvxcore::filesupport {

class DirectoryChangeMonitorPrivate {
 public:
  virtual ~DirectoryChangeMonitorPrivate() = default;

  // The running monitor, made on the first call after a Terminate (or ever).
  static std::shared_ptr<DirectoryChangeMonitorPrivate> Get();
  // The running monitor or null; never makes one.
  static std::shared_ptr<DirectoryChangeMonitorPrivate> Current();
  // Ends the running monitor, if any (its TerminateMonitor, then it is released).
  static void Terminate();

  // Returns false with `error` set when the directory cannot be watched.
  virtual bool MonitorDirectory(
      UTF16String const& path,
      boost::shared_ptr<DirectoryChangeMonitor::DirectoryChangedCallback> const& callback,
      std::string& error) = 0;
  virtual void StopMonitoringDirectory(UTF16String const& path) = 0;
  virtual void MonitorVolumeChanges(
      boost::shared_ptr<DirectoryChangeMonitor::VolumeChangedCallback> const& callback) = 0;
  virtual void StopMonitoringVolumeChanges() = 0;
  virtual void RemoveDirectoryChangedCallback(
      boost::shared_ptr<DirectoryChangeMonitor::DirectoryChangedCallback> const& callback) = 0;
  virtual void RemoveVolumeChangedCallback(
      boost::shared_ptr<DirectoryChangeMonitor::VolumeChangedCallback> const& callback) = 0;
  virtual DirectoryChangeMonitor::VolumeChanges LastVolumeChanges() = 0;
  // Releases every watch; nothing is delivered afterwards.
  virtual void TerminateMonitor() = 0;
  // The mount table changed: read it again and compare (the handler of the
  // mount table's notification, also called by tests).
  virtual void MountTableChanged() = 0;
};

// The inotify implementation (src/filework/DirectoryChangeMonitorInotify.cpp).
class InotifyDirectoryChangeMonitor : public DirectoryChangeMonitorPrivate {
 public:
  InotifyDirectoryChangeMonitor();
  ~InotifyDirectoryChangeMonitor() override;
  InotifyDirectoryChangeMonitor(const InotifyDirectoryChangeMonitor&) = delete;
  InotifyDirectoryChangeMonitor& operator=(const InotifyDirectoryChangeMonitor&) = delete;

  bool MonitorDirectory(
      UTF16String const& path,
      boost::shared_ptr<DirectoryChangeMonitor::DirectoryChangedCallback> const& callback,
      std::string& error) override;
  void StopMonitoringDirectory(UTF16String const& path) override;
  void MonitorVolumeChanges(
      boost::shared_ptr<DirectoryChangeMonitor::VolumeChangedCallback> const& callback) override;
  void StopMonitoringVolumeChanges() override;
  void RemoveDirectoryChangedCallback(
      boost::shared_ptr<DirectoryChangeMonitor::DirectoryChangedCallback> const& callback) override;
  void RemoveVolumeChangedCallback(
      boost::shared_ptr<DirectoryChangeMonitor::VolumeChangedCallback> const& callback) override;
  DirectoryChangeMonitor::VolumeChanges LastVolumeChanges() override;
  void TerminateMonitor() override;
  void MountTableChanged() override;

  struct Impl;

 private:
  std::shared_ptr<Impl> impl_;
};

namespace internal {

// Replaces the reading of the process's mount table (null: the real one).
// While set, the monitor opens no table and waits for no notification; a
// test calls MountTableChanged() itself.
void SetMountTableReaderForTesting(std::function<bool(std::string& text)> reader);

}  // namespace internal
}  // namespace tvxcore::filesupport
