// The language half of Locale: what the host said at start-up. The locales of
// text are the strings layer's (utility/Locale.cpp), and Locale::Initialize,
// which also loads the library's dictionaries, is the files layer's
// (filesupport/LibraryDictionaries.cpp).
#include "config/internal/ApplicationLanguage.h"

#include "base/NoDestructor.h"
#include "tvxcore/Locale.h"

namespace tvxcore {
namespace {

// Set at start-up, then only read: no lock, as for the localizer itself.
UTF16String& StoredLanguage() {
  static base::NoDestructor<UTF16String> language;
  return *language;
}

}  // namespace

void config::internal::StoreApplicationLanguage(const UTF16String& language) {
  StoredLanguage() = language;
}

bool Locale::IsInitialized() { return !StoredLanguage().empty(); }

UTF16String Locale::ApplicationLangauge() {
  const UTF16String& language = StoredLanguage();
  return language.empty() ? UTF16String(u"en_US") : language;
}

}  // namespace tvxcore
