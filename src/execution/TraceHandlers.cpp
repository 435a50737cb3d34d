// The timestamp and rolling trace handlers, the installer that builds the
// chain from the debug database, and what they read from outside.
#include "tvxcore/debug/TraceHandlers.h"

#include <atomic>
#include <cstdio>
#include <limits>
#include <new>

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/make_shared.hpp>

#include "debug/internal/DefaultTraceSink.h"
#include "execution/internal/TraceHandlerSupport.h"
#include "tvxcore/console/ConsoleLogFile.h"
#include "tvxcore/debug/DebugDatabase.h"
#include "tvxcore/debug/Trace.h"
#include "tvxcore/filesupport/File.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxcore::debug {

namespace internal {
namespace {

boost::posix_time::ptime SystemUniversalTime() {
  return boost::posix_time::microsec_clock::universal_time();
}
boost::posix_time::ptime SystemLocalTime() {
  return boost::posix_time::microsec_clock::local_time();
}

std::atomic<TraceClock> universalClock{&SystemUniversalTime};
std::atomic<TraceClock> localClock{&SystemLocalTime};

UTF8String Bytes(const char* text) { return UTF8String(reinterpret_cast<const UTF8Char*>(text)); }

// A decimal number of the debug database; anything else is 0, and a number
// above `limit` is `limit`.
std::uint32_t ReadTraceNumber(const char* key, std::uint32_t limit) {
  const UTF8String text = DebugDatabase::Instance().GetEntry(Bytes(key), Bytes("0"));
  std::uint64_t value = 0;
  for (const UTF8Char c : text) {
    if (c < '0' || c > '9') return 0;
    value = value * 10 + (c - '0');
    if (value > limit) value = limit;  // stays small: no overflow however long the text
  }
  return static_cast<std::uint32_t>(value);
}

}  // namespace

boost::posix_time::ptime UniversalTimeNow() {
  return universalClock.load(std::memory_order_acquire)();
}
boost::posix_time::ptime LocalTimeNow() { return localClock.load(std::memory_order_acquire)(); }

void SetTraceClocks(TraceClock inUniversal, TraceClock inLocal) {
  universalClock.store(inUniversal ? inUniversal : &SystemUniversalTime, std::memory_order_release);
  localClock.store(inLocal ? inLocal : &SystemLocalTime, std::memory_order_release);
}

std::uint32_t LocalDayNumber() {
  const boost::posix_time::ptime now = LocalTimeNow();
  return now.is_special() ? 0 : static_cast<std::uint32_t>(now.date().day_number());
}

std::string IsoExtendedText(const boost::posix_time::ptime& inTime) {
  if (inTime.is_special()) return boost::posix_time::to_iso_extended_string(inTime);
  const boost::gregorian::date::ymd_type date = inTime.date().year_month_day();
  const boost::posix_time::time_duration time = inTime.time_of_day();
  const long long micros = static_cast<long long>(time.fractional_seconds()) * 1000000 /
                           boost::posix_time::time_duration::ticks_per_second();
  char text[48];
  const int length = std::snprintf(
      text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06lld", static_cast<int>(date.year),
      static_cast<int>(date.month), static_cast<int>(date.day), static_cast<int>(time.hours()),
      static_cast<int>(time.minutes()), static_cast<int>(time.seconds()), micros);
  return std::string(text, static_cast<std::size_t>(length));
}

bool ReadTraceSwitch(const char* inKey) {
  const UTF8String value = DebugDatabase::Instance().GetEntry(Bytes(inKey), Bytes("false"));
  return value == Bytes("true") || value == Bytes("1");
}

RollingSettings ReadRollingSettings() {
  RollingSettings settings;
  if (!ReadTraceSwitch("CreateLogFilesThatDoNotExist")) return settings;
  settings.maxSize = ReadTraceNumber("MaxLogSize", RollingTraceHandler::kMaxLogSizeLimit);
  settings.bySize = settings.maxSize != 0;
  settings.daily = ReadTraceSwitch("RolloverLogsDaily");
  return settings;
}

}  // namespace internal

namespace {

constexpr char kRollingCategory[] = "RollingTraceHandler";

// The default handler's way to the console log.
void WriteToConsoleLog(const std::string& inLine) {
  console::ConsoleLogFile::GetInstance()->WriteToLog(UTF8String(inLine.begin(), inLine.end()),
                                                     true);
}

// The file a size roll opens: the current log's name with its last
// extension replaced by ".<rollCount>.txt", in the current log's folder.
// Empty when no log is open or its file is gone.
UTF8String NextRolledName(console::ConsoleLogFile& log, std::uint32_t rollCount) {
  UTF16String current;
  if (!log.GetCurrentLogFilePath(current)) return UTF8String();
  try {
    const filesupport::File file(current);
    if (!file.Exists()) return UTF8String();
    UTF16String name = file.GetName();
    const std::size_t dot = name.rfind(u'.');
    if (dot != UTF16String::npos) name.erase(dot);
    const std::string count = std::to_string(rollCount);
    name += u'.';
    name.append(count.begin(), count.end());
    name += u".txt";
    return utility::UTF16to8(filesupport::File(file.Parent(), name).FullPath());
  } catch (const std::bad_alloc&) {
    throw;
  } catch (...) {
    return UTF8String();
  }
}

}  // namespace

TimestampTraceHandler::TimestampTraceHandler(TraceHandler* inNext) : mNext(inNext) {}

void TimestampTraceHandler::WriteTrace(const std::string& inLine) {
  std::string line = internal::IsoExtendedText(internal::UniversalTimeNow());
  line.reserve(line.size() + 1 + inLine.size());
  line += ' ';
  line += inLine;
  mNext->WriteTrace(line);
}

RollingTraceHandler::RollingTraceHandler(TraceHandler* inNext) : mNext(inNext) {
  const internal::RollingSettings settings = internal::ReadRollingSettings();
  mRollBySize = settings.bySize;
  mMaxSize = settings.maxSize;
  mRollDaily = settings.daily;
  if (mRollDaily) {
    threads::CheckedLock lock(mMutex);
    mDayNumber = internal::LocalDayNumber();
  }
  if ((mRollBySize || mRollDaily) && !internal::ReadTraceSwitch("AddTimestampToLogFileNames") &&
      TraceEnabled(kRollingCategory, 0, true))
    TraceLine(kRollingCategory, 0,
              "Warning: Rolling the log file without using unique timestamped log file names. "
              "This may result in overwritten log files!");
}

void RollingTraceHandler::WriteTrace(const std::string& inLine) {
  {
    threads::CheckedLock lock(mMutex);
    if (mRollDaily) {
      const std::uint32_t today = internal::LocalDayNumber();
      if (mDayNumber < today) {
        console::ConsoleLogFile* log = console::ConsoleLogFile::GetInstance();
        UTF16String path;
        log->GetLogFilePath(path, false);
        log->OpenLogFile(utility::UTF16to8(path));
        mDayNumber = today;
        mBytesWritten = 0;
        mRollCount = 0;
      }
    }
    if (mRollBySize && mBytesWritten > mMaxSize) {
      console::ConsoleLogFile* log = console::ConsoleLogFile::GetInstance();
      log->OpenLogFile(NextRolledName(*log, mRollCount));
      mBytesWritten = 0;
      ++mRollCount;
    }
    const std::uint64_t written = std::uint64_t{mBytesWritten} + inLine.size();
    mBytesWritten = static_cast<std::uint32_t>(
        std::min<std::uint64_t>(written, std::numeric_limits<std::uint32_t>::max()));
  }
  mNext->WriteTrace(inLine);
}

TraceHandlerInstaller::TraceHandlerInstaller() {
  internal::SetDefaultTraceSink(&WriteToConsoleLog);
  if (internal::ReadTraceSwitch("AddTimestampToLogFileNames"))
    console::ConsoleLogFile::SetDefaultLogFileNameFn(
        &console::ConsoleLogFile::GetTimestampedLogFileName);
  const internal::RollingSettings rolling = internal::ReadRollingSettings();
  if (rolling.bySize || rolling.daily) {
    mRolling = boost::make_shared<RollingTraceHandler>(GetMasterTraceHandler());
    InstallMasterTraceHandler(mRolling.get());
    mInstalled = true;
  }
  if (internal::ReadTraceSwitch("AddUTCTimestampToTraces")) {
    mTimestamp = boost::make_shared<TimestampTraceHandler>(GetMasterTraceHandler());
    InstallMasterTraceHandler(mTimestamp.get());
    mInstalled = true;
  }
  if (internal::ReadTraceSwitch("TraceAsync")) {
    mAsync = boost::make_shared<AsyncTraceHandler>(GetMasterTraceHandler());
    InstallMasterTraceHandler(mAsync.get());
    mInstalled = true;
  }
}

TraceHandlerInstaller::~TraceHandlerInstaller() {
  if (mInstalled) RemoveMasterTraceHandler();
  // Front to back: the asynchronous handler hands on its waiting lines to
  // the others before they go.
  mAsync.reset();
  mTimestamp.reset();
  mRolling.reset();
}

TraceHandlerInstaller::TraceHandlerInstaller(const TraceHandlerInstaller& inOther) = default;
TraceHandlerInstaller& TraceHandlerInstaller::operator=(const TraceHandlerInstaller& inOther) =
    default;

}  // namespace tvxcore::debug
