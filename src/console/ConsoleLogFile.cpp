// The console log: "<client> Log.txt" in the folder "logs" of the
// preferences folder, written only when asked for.
#include "tvxcore/console/ConsoleLogFile.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <new>

#include <boost/date_time/posix_time/posix_time.hpp>

#include "base/NoDestructor.h"
#include "tvxcore/config/ClientIdentity.h"
#include "tvxcore/debug/DebugDatabase.h"
#include "tvxcore/filesupport/File.h"
#include "tvxcore/filesupport/PlatformByteStreams.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxcore::console {
namespace {

using Clock = std::chrono::steady_clock;

// Text kept before the client name is known stops growing here: a host that
// never sets a name must not fill its memory with trace.
constexpr std::size_t kEarlyTextLimit = std::size_t{1} << 20;

std::uint32_t TickCount() {
  const auto since = Clock::now().time_since_epoch();
  return static_cast<std::uint32_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(since).count());
}

UTF8String Bytes(const char* text) { return UTF8String(reinterpret_cast<const UTF8Char*>(text)); }

// `format` (strftime) of the local time now.
UTF8String LocalTimeText(const char* format) {
  const std::tm parts = boost::posix_time::to_tm(boost::posix_time::second_clock::local_time());
  char text[128];
  const std::size_t length = std::strftime(text, sizeof text, format, &parts);
  return UTF8String(reinterpret_cast<const UTF8Char*>(text), length);
}

// A setting of the debug database read as a switch: "true" or "1" is on.
bool Setting(const char* key, bool defaultValue) {
  const UTF8String value =
      debug::DebugDatabase::Instance().GetEntry(Bytes(key), Bytes(defaultValue ? "true" : "false"));
  return value == Bytes("true") || value == Bytes("1");
}

// A line, then as many "-" as it has, each ended by "\r\n".
UTF8String Banner(const char* label) {
  UTF8String line = Bytes(label) + LocalTimeText("%c");
  UTF8String text = line + Bytes("\r\n");
  text.append(line.size(), '-');
  text += Bytes("\r\n");
  return text;
}

base::NoDestructor<UTF16String> gDefaultLogFileName;
base::NoDestructor<boost::function<UTF16String(UTF16String const&)>> gDefaultLogFileNameFn;

template <typename Action>
bool Quietly(Action action) {
  try {
    action();
    return true;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (...) {
    return false;
  }
}

}  // namespace

ConsoleLogFile* ConsoleLogFile::mInstance = nullptr;
UTF16String* ConsoleLogFile::sDefaultLogFileName = &gDefaultLogFileName.get();
boost::function<UTF16String(UTF16String const&)>* ConsoleLogFile::sDefaultLogFileNameFn =
    &gDefaultLogFileNameFn.get();

threads::BoostRecursiveMutex& ConsoleLogFile::Mutex() {
  static base::NoDestructor<threads::BoostRecursiveMutex> mutex;
  return *mutex;
}

ConsoleLogFile* ConsoleLogFile::GetInstance() {
  threads::CheckedLock lock(Mutex());
  if (mInstance == nullptr) mInstance = new ConsoleLogFile();
  return mInstance;
}

void ConsoleLogFile::Terminate() {
  threads::CheckedLock lock(Mutex());
  delete mInstance;
  mInstance = nullptr;
}

ConsoleLogFile::ConsoleLogFile() : mStartTick(TickCount()) {
  if (!config::IsClientNameInitialized()) return;
  threads::CheckedLock lock(Mutex());
  // A line with its own timestamp needs no prefix.
  mNoPrefix = Setting("AddUTCTimestampToTraces", false);
  if (!mNoPrefix) mLogTimeInTicks = Setting("LogTimeInTicks", true);
}

ConsoleLogFile::~ConsoleLogFile() {
  threads::CheckedLock lock(Mutex());
  CloseLocked();
}

void ConsoleLogFile::SetDefaultLogFileName(UTF16String const& inName) {
  threads::CheckedLock lock(Mutex());
  *sDefaultLogFileName = inName;
}

void ConsoleLogFile::SetDefaultLogFileNameFn(
    boost::function<UTF16String(UTF16String const&)> const& inNameFn) {
  threads::CheckedLock lock(Mutex());
  *sDefaultLogFileNameFn = inNameFn;
}

UTF16String ConsoleLogFile::GetDefaultLogFileName(bool inLast) {
  const UTF16String name =
      sDefaultLogFileName->empty() ? config::GetClientName() : *sDefaultLogFileName;
  if (*sDefaultLogFileNameFn) return (*sDefaultLogFileNameFn)(name);
  return name + (inLast ? u" Log-last.txt" : u" Log.txt");
}

UTF16String ConsoleLogFile::GetTimestampedLogFileName(UTF16String const& inName) {
  const boost::posix_time::ptime now = boost::posix_time::microsec_clock::local_time();
  const std::tm parts = boost::posix_time::to_tm(now);
  char stamp[64];
  std::size_t length = std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &parts);
  length += static_cast<std::size_t>(
      std::snprintf(stamp + length, sizeof stamp - length, "_%06ld",
                    static_cast<long>(now.time_of_day().fractional_seconds())));
  return inName + u" " + utility::UTF8to16(UTF8String(stamp, stamp + length)) + u".txt";
}

bool ConsoleLogFile::GetLogFilePath(UTF16String& outPath, bool inLast) const {
  if (!config::IsClientNameInitialized()) return false;
  threads::CheckedLock lock(Mutex());
  const UTF16String name = GetDefaultLogFileName(inLast);
  UTF16String path;
  const bool found = Quietly([&] {
    filesupport::Dir logs(filesupport::Dir::PrefDir(), u"logs");
    if (!logs.Exists()) logs.Create();
    if (!logs.Exists()) return;
    path = filesupport::File(logs, name).FullPath();
  });
  if (!found || path.empty()) return false;
  outPath = path;
  return true;
}

bool ConsoleLogFile::GetCurrentLogFilePath(UTF16String& outPath) const {
  threads::CheckedLock lock(Mutex());
  if (!mLogFile || !mStream) return false;
  outPath = mLogFile->FullPath();
  return true;
}

bool ConsoleLogFile::Exists() {
  threads::CheckedLock lock(Mutex());
  return mLogFile && mStream;
}

void ConsoleLogFile::OpenDefaultLog(bool inCreate) {
  mOpenAttempted = true;
  if (mLogFile) return;
  UTF16String path;
  if (!GetLogFilePath(path, false)) {
    mEarlyText.clear();
    return;
  }
  auto file = std::make_unique<filesupport::File>(path);
  const bool exists = file->Exists();
  // The log exists only on request: a file of its name, or the setting.
  if (!exists && !inCreate && !Setting("CreateLogFilesThatDoNotExist", false)) {
    mEarlyText.clear();
    return;
  }
  if (!Setting("AddTimestampToLogFileNames", false) && exists) {
    // The previous run's log is kept once as "-last"; a log that can't be
    // kept is appended to rather than emptied.
    UTF16String lastPath;
    if (GetLogFilePath(lastPath, true) && lastPath != path) {
      Quietly([&] {
        filesupport::File last(lastPath);
        if (last.Exists()) last.Delete();
        file->Rename(last.GetName());
      });
      file = std::make_unique<filesupport::File>(path);
    }
  }
  if (!OpenStream(std::move(file))) mEarlyText.clear();
}

bool ConsoleLogFile::OpenStream(std::unique_ptr<filesupport::File> inFile) {
  std::unique_ptr<filesupport::OByteStream> stream;
  const bool opened = Quietly([&] {
    if (!inFile->Exists()) inFile->Create(true);
    auto platform = std::make_unique<filesupport::OPlatformByteStream>(
        *inFile, filesupport::kPlatformStreamDefault);
    platform->CurPos(platform->Length());  // appended to, never emptied
    stream = std::move(platform);
  });
  if (!opened) return false;
  CloseLocked();
  mLogFile = std::move(inFile);
  mStream = std::move(stream);
  WriteHeader();
  return true;
}

bool ConsoleLogFile::CreateDefaultLogFile(UTF16String& outPath) {
  threads::CheckedLock lock(Mutex());
  outPath.clear();
  if (!GetLogFilePath(outPath, false)) return false;
  if (!mLogFile || !mStream) {
    mLogFile.reset();
    mStream.reset();
    OpenDefaultLog(true);
  }
  return mLogFile && mStream;
}

bool ConsoleLogFile::OpenLogFile(UTF8String const& inPath) {
  threads::CheckedLock lock(Mutex());
  if (inPath.empty()) return false;
  UTF16String path = utility::UTF8to16(inPath);
  if (path.find(u'/') == UTF16String::npos) {
    UTF16String current;
    if (!GetLogFilePath(current, false)) return false;
    path = filesupport::File(current).Parent().FullPath() + u"/" + path;
  }
  std::unique_ptr<filesupport::File> file;
  if (!Quietly([&] { file = std::make_unique<filesupport::File>(path); })) return false;
  mOpenAttempted = true;
  return OpenStream(std::move(file));
}

void ConsoleLogFile::CloseLogFile() {
  threads::CheckedLock lock(Mutex());
  CloseLocked();
}

void ConsoleLogFile::CloseLocked() {
  if (mStream) WriteFooter();
  mStream.reset();
  mLogFile.reset();
}

void ConsoleLogFile::WriteToLog(UTF8String const& inText, bool inPrefix) {
  if (inText.empty()) return;
  threads::CheckedLock lock(Mutex());
  // Before the client name is known there is no file name: text waits.
  if (!mOpenAttempted && config::IsClientNameInitialized()) OpenDefaultLog(false);
  WriteLocked(inText, inPrefix);
}

void ConsoleLogFile::WriteLocked(UTF8String const& inText, bool inPrefix) {
  if (mOpenAttempted && !mStream) return;
  if (inPrefix && !mNoPrefix) Write(Prefix());
  Write(inText);
}

void ConsoleLogFile::Write(UTF8String const& inText) {
  if (!mOpenAttempted) {
    if (mEarlyText.size() + inText.size() <= kEarlyTextLimit) mEarlyText += inText;
    return;
  }
  filesupport::OByteStream* const stream = mStream.get();
  if (stream == nullptr) return;
  const bool written = Quietly([&] {
    for (std::size_t done = 0; done < inText.size();) {
      const auto count = static_cast<std::uint32_t>(
          std::min<std::size_t>(inText.size() - done, std::size_t{1} << 30));
      stream->WriteBlock(inText.data() + done, count);
      done += count;
    }
  });
  if (!written) {
    // A log that can't be written (a full disk) is given up, silently.
    mStream.reset();
    mLogFile.reset();
  }
}

UTF8String ConsoleLogFile::Prefix() const {
  if (!mLogTimeInTicks) return LocalTimeText("%m/%d/%Y %H:%M:%S ");
  const std::uint32_t elapsed = TickCount() - mStartTick;
  return Bytes("Ticks = ") + Bytes(std::to_string(elapsed).c_str()) + Bytes("      ");
}

void ConsoleLogFile::WriteHeader() {
  UTF8String text = Banner("Log file created: ");
  text += mEarlyText;
  mEarlyText.clear();
  WriteLocked(text, false);
}

void ConsoleLogFile::WriteFooter() { WriteLocked(Banner("Log file closed: "), false); }

}  // namespace tvxcore::console
