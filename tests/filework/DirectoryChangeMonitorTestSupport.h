// The fixture of the change monitor tests: a temporary directory, the
// calling thread registered as the main thread, the monitor initialized, and
// a directory callback that records what it receives.
#pragma once

#include <boost/make_shared.hpp>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "support/TempDirFixture.h"
#include "tvxcore/filesupport/DirectoryChangeMonitor.h"
#include "tvxcore/threads/EventLoop.h"

namespace tvxtest {

namespace monitor = tvxcore::filesupport::DirectoryChangeMonitor;

class DirectoryChangeMonitorTest : public TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    main_ = tvxcore::threads::RegisterCurrentThreadAsMainThread();
    monitor::Initialize();
    callback_ = boost::make_shared<monitor::DirectoryChangedCallback>(
        [seen = seen_](tvxcore::UTF16String const& path) { seen->push_back(N(path)); });
  }
  void TearDown() override {
    monitor::Terminate();
    Pump(0);
    main_.reset();
    TempDirTest::TearDown();
  }

  void Pump(unsigned milliseconds) {
    main_->CallAsynchronously([] { tvxcore::threads::QuitPlatformEventLoop(); }, milliseconds);
    tvxcore::threads::RunPlatformEventLoop();
  }
  // Runs the loop until `condition` holds (true) or ten seconds have passed.
  template <typename Condition>
  bool PumpUntil(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      Pump(5);
    }
    return true;
  }
  int Deliveries(const std::string& path) const {
    int count = 0;
    for (const std::string& seen : *seen_) count += seen == path;
    return count;
  }
  // Watches a folder below the temporary directory (made if missing).
  bool Watch(const std::string& relative) {
    if (!OnDisk(relative)) MakeDir(relative);
    return monitor::MonitorDirectory(Path(relative), callback_);
  }

  boost::shared_ptr<tvxcore::threads::AsyncEventLoopAdaptor> main_;
  std::shared_ptr<std::vector<std::string>> seen_ = std::make_shared<std::vector<std::string>>();
  boost::shared_ptr<monitor::DirectoryChangedCallback> callback_;
};

}  // namespace tvxtest
