#include "HostServices.h"

#include <memory>

#include "tvxcore/xml/ExpatParser.h"

#include <fstream>
#include <iostream>

#include "Host.h"
#include "tvxcore/Locale.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxhost {
namespace {

std::string Unescape(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) {
      char next = text[i + 1];
      if (next == 'n' || next == 't' || next == '\\') {
        out += next == 'n' ? '\n' : next == 't' ? '\t' : '\\';
        ++i;
        continue;
      }
    }
    out += text[i];
  }
  return out;
}

HostErrorManager& Manager() {
  static HostErrorManager manager;
  return manager;
}

}  // namespace

std::string ToUtf8(const tvxcore::UTF16String& text) {
  const tvxcore::UTF8String bytes = tvxcore::utility::UTF16to8(text);
  return std::string(bytes.begin(), bytes.end());
}

tvxcore::UTF16String FromUtf8(const std::string& text) {
  return tvxcore::utility::UTF8to16(tvxcore::UTF8String(text.begin(), text.end()));
}

void HostErrorManager::ReportError(tvxcore::config::ErrorLevel inLevel, const char* inKey,
                                   std::uint32_t inModule, std::int32_t inErrorNumber, bool,
                                   const tvxcore::config::ReplacementValue& inValue1,
                                   const tvxcore::config::ReplacementValue& inValue2,
                                   const tvxcore::config::ReplacementValue& inValue3,
                                   const tvxcore::config::ReplacementValue& inValue4) {
  const std::string text = ToUtf8(
      tvxcore::config::SubstituteErrorMessage(inKey, inValue1, inValue2, inValue3, inValue4));
  const bool fatal = inLevel == tvxcore::config::kErrorLevel_Fatal;
  const bool deferred = IsErrorReportingDeferred();
  std::cerr << "tvxhost: " << (fatal ? "fatal" : "non-fatal") << " error " << inModule << '/'
            << inErrorNumber << (deferred ? " (deferred)" : "") << ": " << text << std::endl;
  if (fatal || !deferred) throw HostError(text, inLevel, inModule, inErrorNumber);
}

long HostErrorManager::ExecuteFunctionWithTopLevelExceptionHandler(
    boost::function0<long> inFunction) {
  try {
    return inFunction();
  } catch (const HostError&) {
    return 1;  // already logged by ReportError
  }
}

tvxcore::UTF16String DictionaryLocalizer::Translate(const char* inKey) {
  const std::string literal = inKey ? inKey : "";
  const auto equals = literal.find('=');
  const auto it = entries_.find(literal.substr(0, equals));
  if (it != entries_.end()) return FromUtf8(it->second);
  return FromUtf8(equals == std::string::npos ? literal : literal.substr(equals + 1));
}

void DictionaryLocalizer::LoadDictionary(const tvxcore::UTF16String& inPath) {
  const std::string base = ToUtf8(inPath);
  for (const std::string& path : {base, base + ".txt"}) {
    std::ifstream file(path, std::ios::binary);
    if (!file) continue;
    std::string line;
    while (std::getline(file, line)) {
      if (!line.empty() && line.back() == '\r') line.pop_back();
      const auto first = line.find_first_not_of(" \t");
      if (first == std::string::npos || line[first] == '#') continue;
      const auto equals = line.find('=');
      if (equals == std::string::npos) continue;
      entries_[line.substr(first, equals - first)] = Unescape(line.substr(equals + 1));
    }
    loadedFile_ = path;
    return;
  }
  std::cerr << "tvxhost: no dictionary at " << base << "(.txt); texts stay in English\n";
}

DictionaryLocalizer& GetHostLocalizer() {
  static DictionaryLocalizer localizer;
  return localizer;
}

void StartHostServices() {
  tvxcore::config::ErrorManager::Set(&Manager());
  tvxcore::Locale::Initialize(FromUtf8(GetOptions().language));
  tvxcore::config::Localizer::Set(&GetHostLocalizer());
  // Property lists and every other XML text are read through expat.
  std::unique_ptr<tvxcore::xml::DocParserFactory> factory =
      std::make_unique<tvxcore::xml::ExpatParserFactory>();
  tvxcore::xml::SetParserFactory(factory);
}

}  // namespace tvxhost
