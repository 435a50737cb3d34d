// What the property-list fuzzers share: an error manager that turns every
// report into an exception, and the set-up that installs it with the expat
// parser.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tvxcore/config/Errors.h"
#include "tvxcore/xml/ExpatParser.h"

namespace plist_fuzz {

// A report of the library, caught where the fuzzer expects one.
struct Reported {
  std::string key;
};

class ThrowingManager : public tvxcore::config::ErrorManager {
 public:
  void ReportError(tvxcore::config::ErrorLevel, const char* key, std::uint32_t, std::int32_t, bool,
                   const tvxcore::config::ReplacementValue&,
                   const tvxcore::config::ReplacementValue&,
                   const tvxcore::config::ReplacementValue&,
                   const tvxcore::config::ReplacementValue&) override {
    throw Reported{key ? key : ""};
  }
};

// Installs the throwing manager and the expat parser; call once.
inline bool Setup() {
  static ThrowingManager manager;
  tvxcore::config::ErrorManager::Set(&manager);
  std::unique_ptr<tvxcore::xml::DocParserFactory> factory =
      std::make_unique<tvxcore::xml::ExpatParserFactory>();
  tvxcore::xml::SetParserFactory(factory);
  return true;
}

}  // namespace plist_fuzz
