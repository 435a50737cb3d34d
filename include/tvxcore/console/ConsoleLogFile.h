// tvxcore/console/ConsoleLogFile.h: the per-user log file where trace lines
// land, in the folder "logs" of the preferences folder.
//
// The log exists only on request: it is written when a file of its name,
// "<client> Log.txt", is already in "logs" (an empty one will do) or when
// the debug database's "CreateLogFilesThatDoNotExist" is "true". When it
// opens, the previous run's log is kept once as "<client> Log-last.txt"
// (unless "AddTimestampToLogFileNames" is "true", when every run names a
// new file), and a header with the date starts the new one. Text written
// before config::SetClientName has run waits in memory (up to 1 MiB) and
// follows the header. Every line is prefixed with the milliseconds since
// the log object was made ("Ticks = 1234      "), or with the local date
// and time when "LogTimeInTicks" is "false", or with nothing when
// "AddUTCTimestampToTraces" is "true" (a timestamp is then already there).
//
// Failures are silent: a log that can't be made or written is dropped and
// the application runs on. Only std::bad_alloc leaves these functions. An
// existing log is never emptied before it has been kept under the "-last"
// name; when that can't be done, the new text is appended to it.
//
// Thread-safety: one process-wide recursive lock guards the whole class and
// is held across a whole WriteToLog, so two lines never interleave.
// GetInstance may be called from any thread; Terminate belongs to shutdown,
// after the last writer.
#pragma once

#include <cstdint>
#include <memory>

#include <boost/function.hpp>

#include "tvxcore/Export.h"
#include "tvxcore/base/ThreadAnnotations.h"
#include "tvxcore/threads/CheckedLocks.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::filesupport {
class File;
class OByteStream;
}  // namespace tvxcore::filesupport

namespace tvxcore::console {

class TVXCORE_EXPORT ConsoleLogFile {
 public:
  // The one instance, made on first use (and again after Terminate).
  static ConsoleLogFile* GetInstance();
  // Closes the log with its footer and destroys the instance.
  static void Terminate();

  ConsoleLogFile(const ConsoleLogFile&) = delete;
  ConsoleLogFile& operator=(const ConsoleLogFile&) = delete;

  // Appends `inText` as it stands (the caller supplies its line end), after
  // the prefix when `inPrefix`. Opens the default log at the first text
  // after the client name is known.
  void WriteToLog(UTF8String const& inText, bool inPrefix);
  // Switches to the file at the UTF-8 path `inPath` (a bare name is taken
  // in the "logs" folder): the file is made when missing and appended to
  // when not, and gets a header; the old log gets its footer. False, with
  // the old log still in use, when the file can't be made or opened.
  bool OpenLogFile(UTF8String const& inPath);
  // Writes the footer and closes; later text is dropped until OpenLogFile.
  void CloseLogFile();
  // Whether a log file is open.
  bool Exists();
  // Makes the default log's file when it is missing and opens it as at
  // start (keeping an older one as "-last"); a log already open stays. True
  // when a log is open at the end; `outPath` is the default log's path, or
  // empty when there is none.
  bool CreateDefaultLogFile(UTF16String& outPath);

  // The path of the default log, or with `inLast` of the previous run's,
  // in the "logs" folder (made when missing). False before the client name
  // is known and when the folder can't be made.
  bool GetLogFilePath(UTF16String& outPath, bool inLast) const;
  // The path of the file in use; false when none is open.
  bool GetCurrentLogFilePath(UTF16String& outPath) const;

  // "<inName> <local time as %Y%m%d-%H%M%S_%f>.txt", a name no earlier log
  // has (microseconds in the last part).
  static UTF16String GetTimestampedLogFileName(UTF16String const& inName);

  // The name the default log's file name is made from, instead of the
  // client name; empty for the client name.
  static void SetDefaultLogFileName(UTF16String const& inName);
  // A function that makes the whole file name from that name (for example
  // GetTimestampedLogFileName); it then names both the current and the
  // previous log. An empty function restores "<name> Log.txt".
  static void SetDefaultLogFileNameFn(
      boost::function<UTF16String(UTF16String const&)> const& inNameFn);

 private:
  ConsoleLogFile();
  ~ConsoleLogFile();

  static threads::BoostRecursiveMutex& Mutex();
  static UTF16String GetDefaultLogFileName(bool inLast) TVX_REQUIRES(Mutex());

  void OpenDefaultLog(bool inCreate) TVX_REQUIRES(Mutex());
  bool OpenStream(std::unique_ptr<filesupport::File> inFile) TVX_REQUIRES(Mutex());
  void CloseLocked() TVX_REQUIRES(Mutex());
  void WriteLocked(UTF8String const& inText, bool inPrefix) TVX_REQUIRES(Mutex());
  void Write(UTF8String const& inText) TVX_REQUIRES(Mutex());
  void WriteHeader() TVX_REQUIRES(Mutex());
  void WriteFooter() TVX_REQUIRES(Mutex());
  UTF8String Prefix() const TVX_REQUIRES(Mutex());

  std::unique_ptr<filesupport::File> mLogFile TVX_GUARDED_BY(Mutex());
  std::unique_ptr<filesupport::OByteStream> mStream TVX_GUARDED_BY(Mutex());
  const std::uint32_t mStartTick;
  bool mOpenAttempted TVX_GUARDED_BY(Mutex()) = false;
  bool mLogTimeInTicks TVX_GUARDED_BY(Mutex()) = true;
  bool mNoPrefix TVX_GUARDED_BY(Mutex()) = false;
  UTF8String mEarlyText TVX_GUARDED_BY(Mutex());

  static ConsoleLogFile* mInstance TVX_GUARDED_BY(Mutex());
  static UTF16String* sDefaultLogFileName TVX_GUARDED_BY(Mutex());
  static boost::function<UTF16String(UTF16String const&)>* sDefaultLogFileNameFn
      TVX_GUARDED_BY(Mutex());
};

}  // namespace tvxcore::console
