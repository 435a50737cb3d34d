// tvxhost's own implementations of what tvxcore leaves to its host: the
// concrete error manager and a dictionary localizer, installed at start-up in
// the library's order (error manager, locale, localizer).
#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>

#include "tvxcore/config/Errors.h"
#include "tvxcore/config/Localizer.h"

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

// Logs every report to stderr as
//   tvxhost: <fatal|non-fatal> error <module>/<number>: <text>
// then throws HostError when the error is fatal or not deferred. The top-level
// handler turns a HostError into the result 1.
class HostErrorManager : public tvxcore::config::ErrorManager {
 public:
  void ReportError(tvxcore::config::ErrorLevel inLevel, const char* inKey, std::uint32_t inModule,
                   std::int32_t inErrorNumber, bool inRecordable,
                   const tvxcore::config::ReplacementValue& inValue1,
                   const tvxcore::config::ReplacementValue& inValue2,
                   const tvxcore::config::ReplacementValue& inValue3,
                   const tvxcore::config::ReplacementValue& inValue4) override;
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
// A path handed to LoadDictionary is read as given, or with ".txt" appended.
// A key no dictionary holds gives the default text after the literal's "=".
// Dictionaries are loaded at start-up; Translate may then run on any thread.
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

// Installs the error manager, sets the language from --lang (if given) and
// installs the localizer, which loads the library dictionary "tvx_<lang>".
void StartHostServices();

DictionaryLocalizer& GetHostLocalizer();

// UTF-16 text as UTF-8 for the console.
std::string ToUtf8(const tvxcore::UTF16String& text);
tvxcore::UTF16String FromUtf8(const std::string& text);

}  // namespace tvxhost
