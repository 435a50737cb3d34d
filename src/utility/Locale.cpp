// The locales of the library's text. The language half of Locale is config's
// (config/ApplicationLanguage.cpp); Locale::Initialize is the files layer's
// (filesupport/LibraryDictionaries.cpp).
#include "tvxcore/Locale.h"

#include <sstream>
#include <stdexcept>
#include <string>

#include "base/NoDestructor.h"
#include "platform/HostInfo.h"
#include "tvxcore/utility/UnicodeConversion.h"
#include "utility/internal/TextFacets.h"

namespace tvxcore {
namespace {

struct Reading {
  bool understood = false;
  double value = 0;
  std::size_t used = 0;
};

Reading ReadNumber(const std::string& inText, const std::locale* inLocale) {
  std::istringstream stream(inText);
  if (inLocale) stream.imbue(*inLocale);
  Reading reading;
  stream >> reading.value;
  if (stream.fail()) return Reading();
  reading.understood = true;
  reading.used = stream.eof() ? inText.size() : static_cast<std::size_t>(stream.tellg());
  return reading;
}

}  // namespace

const std::locale& Locale::Default() {
  // The classic locale, plus the character classes and number facets that the
  // standard library lacks for the library's UTF-8 and UTF-16 unit types.
  static const base::NoDestructor<std::locale> locale(
      utility::internal::WithTextFacets(std::locale::classic()));
  return *locale;
}

const std::locale& Locale::Native() {
  static const base::NoDestructor<std::locale> locale([] {
    try {
      return std::locale(platform::NativeLocaleName());
    } catch (const std::runtime_error&) {
      throw std::runtime_error("bad locale name");
    }
  }());
  return *locale;
}

double Locale::GetValueFromDisplayString(const UTF16String& inText) {
  if (inText.empty()) return 0;
  const UTF8String text8 = utility::UTF16to8(inText);
  const std::string text(text8.begin(), text8.end());
  const Reading native = ReadNumber(text, &Native());
  const Reading classic = ReadNumber(text, &std::locale::classic());
  if (!native.understood) return classic.understood ? classic.value : 0;
  if (!classic.understood) return native.value;
  if ((native.value < 0 && classic.value > 0) || (native.value > 0 && classic.value < 0)) {
    return classic.value;
  }
  return classic.used > native.used ? classic.value : native.value;
}

}  // namespace tvxcore
