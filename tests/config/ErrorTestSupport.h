// Test doubles for the error road: a localizer that serves a small in-memory
// dictionary (and the default text for any other key), and an error manager
// that records every report.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "tvxcore/config/Errors.h"
#include "tvxcore/config/Localizer.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxtest {

using tvxcore::UTF16String;
using tvxcore::config::ErrorLevel;
using tvxcore::config::ReplacementValue;

inline UTF16String U(const std::string& text) {
  return tvxcore::utility::UTF8to16(tvxcore::UTF8String(text.begin(), text.end()));
}
inline std::string S(const UTF16String& text) {
  const tvxcore::UTF8String bytes = tvxcore::utility::UTF16to8(text);
  return std::string(bytes.begin(), bytes.end());
}

class MapLocalizer : public tvxcore::config::Localizer {
 public:
  std::map<std::string, std::string> entries;  // key (before "=") -> text
  std::vector<std::string> loadedPaths;

  UTF16String Translate(const char* inKey) override {
    const std::string literal = inKey ? inKey : "";
    const auto equals = literal.find('=');
    const auto it = entries.find(literal.substr(0, equals));
    if (it != entries.end()) return U(it->second);
    return U(equals == std::string::npos ? literal : literal.substr(equals + 1));
  }
  void LoadDictionary(const UTF16String& inPath) override { loadedPaths.push_back(S(inPath)); }
};

struct Report {
  ErrorLevel level;
  std::string key;
  std::uint32_t module;
  std::int32_t number;
  bool recordable;
  ReplacementValue values[4];
  bool deferred;
};

struct RecordedFailure {
  std::string key;
};

class RecordingErrorManager : public tvxcore::config::ErrorManager {
 public:
  void ReportError(ErrorLevel inLevel, const char* inKey, std::uint32_t inModule,
                   std::int32_t inNumber, bool inRecordable, const ReplacementValue& inValue1,
                   const ReplacementValue& inValue2, const ReplacementValue& inValue3,
                   const ReplacementValue& inValue4) override {
    const bool deferred = IsErrorReportingDeferred();
    {
      std::lock_guard<std::mutex> lock(mutex_);
      reports_.push_back(Report{inLevel,
                                inKey,
                                inModule,
                                inNumber,
                                inRecordable,
                                {inValue1, inValue2, inValue3, inValue4},
                                deferred});
    }
    if (throwWhenNotDeferred && !deferred) throw RecordedFailure{inKey};
  }
  bool PurgeMemory(unsigned long long) override { return purgeAnswers-- > 0; }
  long ExecuteFunctionWithTopLevelExceptionHandler(boost::function0<long> inFunction) override {
    try {
      return inFunction();
    } catch (const RecordedFailure&) {
      return 1;
    }
  }
  std::vector<Report> Reports() {
    std::lock_guard<std::mutex> lock(mutex_);
    return reports_;
  }

  bool throwWhenNotDeferred = false;
  int purgeAnswers = 0;  // PurgeMemory returns true this many times

 private:
  std::mutex mutex_;
  std::vector<Report> reports_;
};

}  // namespace tvxtest
