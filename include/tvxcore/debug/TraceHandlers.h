// tvxcore/debug/TraceHandlers.h: the chain of trace handlers that decorate
// and steer each line on its way to the console log.
//
// A host makes one TraceHandlerInstaller at start-up (after the client name
// is set) and keeps it to the end. It reads switches from the debug database
// (tvxcore/debug/DebugDatabase.h) and puts in front of whatever handler
// served before, innermost first:
//
//   "CreateLogFilesThatDoNotExist" with "MaxLogSize" (bytes, cut to
//     200000000) or "RolloverLogsDaily"   RollingTraceHandler
//   "AddUTCTimestampToTraces"              TimestampTraceHandler
//   "TraceAsync"                           AsyncTraceHandler
//
// so that, with all three, a line passes async, then timestamp, then
// rolling, then the default handler: the timestamp marks when the
// background thread handled the line. "AddTimestampToLogFileNames" gives the
// log a time-stamped file name of its own. A switch is on when its value is
// "true" (or "1"). Changing a switch takes effect at the next start.
//
// Handlers never report an error, and none takes ownership of the handler
// after it: each keeps a plain pointer to its next one, which must outlive
// it.
#pragma once

#include <cstdint>
#include <string>

#include <boost/shared_ptr.hpp>

#include "tvxcore/Export.h"
#include "tvxcore/base/ThreadAnnotations.h"
#include "tvxcore/debug/TraceHandler.h"
#include "tvxcore/threads/CheckedLocks.h"

namespace tvxcore::debug {

namespace internal {
class AsyncTraceQueue;
}  // namespace internal

// Puts the current time in UTC before each line, as ISO extended text with
// microseconds and one blank: "2026-11-13T09:19:30.123456 <5124> <Cat> <0>
// text\n", and hands the result on. Safe on any thread; holds no lock.
class TVXCORE_EXPORT TimestampTraceHandler : public TraceHandler {
 public:
  explicit TimestampTraceHandler(TraceHandler* inNext);
  TimestampTraceHandler(const TimestampTraceHandler&) = delete;
  TimestampTraceHandler& operator=(const TimestampTraceHandler&) = delete;

  void WriteTrace(const std::string& inLine) override;

 private:
  TraceHandler* mNext;
};

// Moves the console log to a new file when it grows past a size or when the
// local date changes, then hands each line on unchanged.
//
// Its settings are read once, at construction: rolling by size needs
// "CreateLogFilesThatDoNotExist" and a "MaxLogSize" above 0, rolling daily
// needs "CreateLogFilesThatDoNotExist" and "RolloverLogsDaily". Rolling by
// size happens on the first line after the bytes handed on since the last
// roll have passed the limit (never on the line that crosses it, so a file
// may exceed the limit by one line), and opens the current file's name with
// its last extension replaced by ".<n>.txt": "App Log.txt" rolls to
// "App Log.0.txt", that one to "App Log.0.1.txt", n counting the rolls since
// the start or the last daily roll. Rolling daily reopens the default log
// (tvxcore/console/ConsoleLogFile.h), which is a new file when the log has
// time-stamped names, and restarts n. A file that can't be opened leaves the
// old one in use; the counters move on regardless.
//
// Rolling without "AddTimestampToLogFileNames" may write over older logs; the
// constructor traces a warning in the category "RollingTraceHandler" then.
//
// Safe on any thread. One recursive lock guards the roll decision; it is not
// held while the next handler runs.
class TVXCORE_EXPORT RollingTraceHandler : public TraceHandler {
 public:
  // The largest size limit: larger settings act as this.
  static constexpr std::uint32_t kMaxLogSizeLimit = 200000000;

  explicit RollingTraceHandler(TraceHandler* inNext);
  RollingTraceHandler(const RollingTraceHandler&) = delete;
  RollingTraceHandler& operator=(const RollingTraceHandler&) = delete;

  void WriteTrace(const std::string& inLine) override;

 private:
  TraceHandler* mNext;
  bool mRollBySize;
  std::uint32_t mMaxSize;
  std::uint32_t mBytesWritten TVX_GUARDED_BY(mMutex) = 0;
  std::uint32_t mRollCount TVX_GUARDED_BY(mMutex) = 0;
  bool mRollDaily;
  std::uint32_t mDayNumber TVX_GUARDED_BY(mMutex) = 0;
  threads::BoostRecursiveMutex mMutex;
};

// Takes a line off the tracing thread: the caller pays for one copy of the
// line, and the handlers after this one run on one background thread at a
// time (a sub executor of width 1 over the shared I/O executor), in the
// order the lines came.
//
// Lines wait in two rings of 32: callers fill one while the background
// thread empties the other. A caller that finds its ring full waits until
// the background thread swaps the rings (back-pressure: no line is lost).
// A line traced by a handler behind this one, on the background thread, is
// handed on at once instead of waiting, so the chain never waits for
// itself. The destructor waits for the background work and hands on what is
// still waiting before it returns.
//
// WriteTrace is safe on any thread.
class TVXCORE_EXPORT AsyncTraceHandler : public TraceHandler {
 public:
  explicit AsyncTraceHandler(TraceHandler* inNext);
  ~AsyncTraceHandler() override;
  AsyncTraceHandler(const AsyncTraceHandler&) = delete;
  AsyncTraceHandler& operator=(const AsyncTraceHandler&) = delete;

  void WriteTrace(const std::string& inLine) override;

 private:
  TraceHandler* mNext;
  boost::shared_ptr<internal::AsyncTraceQueue> mQueue;
};

// Builds the handler chain from the debug database's switches (see the top
// of this file) and installs it as the master handler; the default handler
// also starts writing to the console log. With every switch off nothing is
// installed. The destructor, when something was installed, removes the
// master handler (the default handler serves again, whatever was installed
// before) and then releases the handlers, the asynchronous one first, after
// it has handed on its waiting lines.
//
// Copies share the handlers; each copy's destructor removes the master
// handler. Make it on one thread at start-up, destroy it at shutdown when no
// other thread traces any more.
class TVXCORE_EXPORT TraceHandlerInstaller {
 public:
  TraceHandlerInstaller();
  ~TraceHandlerInstaller();
  TraceHandlerInstaller(const TraceHandlerInstaller& inOther);
  TraceHandlerInstaller& operator=(const TraceHandlerInstaller& inOther);

 private:
  boost::shared_ptr<AsyncTraceHandler> mAsync;
  boost::shared_ptr<RollingTraceHandler> mRolling;
  boost::shared_ptr<TimestampTraceHandler> mTimestamp;
  bool mInstalled = false;
};

}  // namespace tvxcore::debug
