// tvxhost watch: folders and mount points watched through the library's
// change monitor, one line per delivery until Ctrl-C.

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/make_shared.hpp>
#include <boost/weak_ptr.hpp>
#include <iostream>
#include <string>

#include "Args.h"
#include "Host.h"
#include "HostServices.h"
#include "Interrupts.h"
#include "tvxcore/filesupport/DirectoryChangeMonitor.h"
#include "tvxcore/threads/EventLoop.h"

namespace tvxhost {
namespace {

namespace monitor = tvxcore::filesupport::DirectoryChangeMonitor;
using tvxcore::threads::AsyncEventLoopAdaptor;

// "12:30:00.123", local time.
std::string Stamp() {
  const std::string time = boost::posix_time::to_simple_string(
      boost::posix_time::microsec_clock::local_time().time_of_day());
  return time.substr(0, 12);
}

// A signal handler may only set a flag; the loop looks at it ten times a
// second and ends when it is set.
void QuitWhenInterrupted(boost::weak_ptr<AsyncEventLoopAdaptor> weakMain) {
  const auto main = weakMain.lock();
  if (!main) return;
  if (InterruptGuard::Interrupted()) {
    tvxcore::threads::QuitPlatformEventLoop();
    return;
  }
  main->CallAsynchronously([weakMain] { QuitWhenInterrupted(weakMain); }, 100);
}

// Ends the monitor and puts the signal handlers back, however the command ends.
struct WatchSession {
  WatchSession() { monitor::Initialize(); }
  ~WatchSession() { monitor::Terminate(); }
  WatchSession(const WatchSession&) = delete;
  WatchSession& operator=(const WatchSession&) = delete;
  const InterruptGuard interrupts;
};

int Watch(const Args& raw) {
  const ArgList args(raw, {}, {"<dir>..."});
  const auto main = tvxcore::threads::GetRegisteredMainThread();
  if (!main) throw Failure("no main thread to deliver changes to");
  WatchSession session;
  const auto changed =
      boost::make_shared<monitor::DirectoryChangedCallback>([](const tvxcore::UTF16String& path) {
        std::cout << Stamp() << " changed: " << ToUtf8(path) << std::endl;
      });
  for (const std::string& operand : args.Operands()) {
    if (!monitor::MonitorDirectory(PathArg(operand, "<dir>"), changed))
      throw Failure(monitor::GetLastError());
  }
  const auto volumes = boost::make_shared<monitor::VolumeChangedCallback>([] {
    const monitor::VolumeChanges changes = monitor::GetLastVolumeChanges();
    std::cout << Stamp() << " volumes changed:";
    for (const auto& point : changes.added) std::cout << " + " << ToUtf8(point);
    for (const auto& point : changes.removed) std::cout << " - " << ToUtf8(point);
    std::cout << std::endl;
  });
  monitor::MonitorVolumeChanges(volumes);
  std::cerr << "watching " << args.Count() << (args.Count() == 1 ? " folder" : " folders")
            << " and the mount points; Ctrl-C ends" << std::endl;
  QuitWhenInterrupted(main);
  tvxcore::threads::RunPlatformEventLoop();
  return kExitSuccess;
}

const Registrar kWatch(CommandGroup{
    "watch",
    "prints what changes in folders, and mount points that come and go, until Ctrl-C",
    {{"", "<dir>...", "", Watch}},
    {"Each folder is watched by itself, not with its subfolders. Changes that come",
     "together are told once: one line \"<time> changed: <dir>\" per folder, and",
     "\"<time> volumes changed: + <mount point> - <mount point>\" when mounts come",
     "or go. Ctrl-C (or SIGTERM) ends the watch with status 0."},
    {
        {"watch /nonexistent", "fails: cannot watch '/nonexistent': no such folder"},
    }});

}  // namespace
}  // namespace tvxhost
