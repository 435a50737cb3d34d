// tvxhost's own implementations of what tvxcore leaves to its host: the
// concrete error manager and a dictionary localizer, installed at start-up in
// the library's order (error manager, locale, localizer, parser factory), and
// the one place where failures become text on the console.
#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>

#include "tvxcore/config/Errors.h"
#include "tvxcore/config/Localizer.h"
#include "tvxcore/debug/TraceHandler.h"

namespace tvxhost {

// What the host's error manager throws for a fatal error, and for a
// non-fatal one that no reporter defers. what() is the substituted text.
class HostError : public std::runtime_error {
 public:
  HostError(const std::string& text, tvxcore::config::ErrorLevel level, std::uint32_t module,
            std::int32_t number)
      : std::runtime_error(text), level(level), module(module), number(number) {}
  tvxcore::config::ErrorLevel level;
  std::uint32_t module;
  std::int32_t number;
};

// Throws HostError for an error that is fatal or not deferred, without
// printing it: whoever catches it prints it, once. An error that a
// DeferredErrorReporter defers is printed at once as
//   tvxhost: <text> (deferred)
// and not again when the reporter's Finish hands it back.
class HostErrorManager : public tvxcore::config::ErrorManager {
 public:
  void ReportError(tvxcore::config::ErrorLevel inLevel, const char* inKey, std::uint32_t inModule,
                   std::int32_t inErrorNumber, bool inRecordable,
                   const tvxcore::config::ReplacementValue& inValue1,
                   const tvxcore::config::ReplacementValue& inValue2,
                   const tvxcore::config::ReplacementValue& inValue3,
                   const tvxcore::config::ReplacementValue& inValue4) override;
  // Prints a HostError that reaches it and answers 1.
  long ExecuteFunctionWithTopLevelExceptionHandler(boost::function0<long> inFunction) override;
};

// Serves the texts of dictionary files in tvxhost's format:
//
//   UTF-8 text, one entry per line: <key>=<text>
//   <key> is the part of a literal before its first "=", e.g.
//     $$$/tvxcore/config/Error/test/fataltest=Dies ist ein schwerwiegender Fehler.
//   The text runs to the end of the line; "\n", "\t" and "\\" in it stand for
//   a line break, a tab and a backslash. Lines whose first non-blank character
//   is "#" and blank lines are ignored; so is a line without "=".
//   A later entry for a key replaces an earlier one.
//
// A path handed to LoadDictionary is read as given, or with ".txt" appended;
// for a regional language ("tvx_de_AT") the plain one ("tvx_de") is the
// fallback. A key no dictionary holds gives the default text after the
// literal's "=". Dictionaries are loaded at start-up; Translate may then run
// on any thread.
class DictionaryLocalizer : public tvxcore::config::Localizer {
 public:
  tvxcore::UTF16String Translate(const char* inKey) override;
  void LoadDictionary(const tvxcore::UTF16String& inPath) override;

  std::size_t EntryCount() const { return entries_.size(); }
  const std::string& LoadedFile() const { return loadedFile_; }

 private:
  std::map<std::string, std::string> entries_;
  std::string loadedFile_;
};

// Starts the library in the order every host keeps: (1) the error manager,
// (2) the language from --lang (if given) and the localizer, which loads the
// library dictionary "tvx_<lang>", (3) the client identity (company
// "tvxcore", client "tvxhost", internal version "1": the preferences folder
// is ~/.config/tvxcore/tvxhost/1), (4) the trace handlers: the chain the
// debug settings ask for (debug::TraceHandlerInstaller), which ends in the
// debugger and the console log, (5) the main thread, (6)
// the expat parser factory. Warns once when --lang names a language without
// a dictionary. With --verbose each step says so on stderr.
void StartHostServices();
// Undoes StartHostServices in the reverse order; the trace settings are
// saved and the console log closed with its footer on the way.
void StopHostServices();

// Runs `command` as a call on the main thread's event loop, and the loop
// until the command has returned, so that calls queued to the main thread
// meanwhile are served; without a registered main thread, directly. What the
// command throws reaches the caller.
int RunOnMainThreadLoop(const std::function<int()>& command);
// Runs the calls queued to the main thread so far (the interactive console,
// between lines).
void ServeMainThreadCalls();

DictionaryLocalizer& GetHostLocalizer();

// UTF-16 text as UTF-8 for the console. A path byte that isn't UTF-8 (the
// library keeps it as U+DC80..U+DCFF) is shown as \xNN; so are control
// characters when `escapeControls` is set.
std::string ToUtf8(const tvxcore::UTF16String& text, bool escapeControls = false);
// A translated text literal with "@0".."@2" filled in, as UTF-8.
std::string Localized(const char* literal, const tvxcore::UTF16String& at0 = {},
                      const tvxcore::UTF16String& at1 = {});

// The text of a failure for a person: a file or directory exception through
// filesupport::LocalizedMessage, a HostError or Failure as it stands.
std::string DescribeFailure(const std::exception& error);
// With --verbose, prints "tvxhost: <text>" on stderr.
void PrintVerbose(const std::string& text);
// Prints "tvxhost: <text>" on stderr.
void PrintError(const std::string& text);
// "512 bytes", "4.0 KiB", "79.4 GiB": binary units, one decimal.
std::string HumanBytes(unsigned long long bytes);
void PrintWarning(const std::string& text);

}  // namespace tvxhost

namespace tvxhost {

// Progress of long work on stderr: nothing for work done within half a
// second, then one line "<label>  42%" redrawn at most ten times a second,
// and wiped when the work ends. Used from one thread.
class Progress {
 public:
  explicit Progress(std::string label);
  ~Progress();
  void Update(double fraction);

 private:
  std::string label_;
  double started_;
  double drawn_ = -1;  // when the line was last drawn, -1 before the first
};

}  // namespace tvxhost
