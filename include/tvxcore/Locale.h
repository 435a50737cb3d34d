// tvxcore/Locale.h: the application's language and the locales of the
// library's text.
//
// The host sets the language at start-up; the library's dictionaries follow
// it. Default() is the locale of every text stream of the library (numbers in
// the classic form); Native() is the user's own, for numbers the user types.
#pragma once

#include <locale>

#include "tvxcore/Export.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore {

// All members are static. Initialize belongs to start-up, on one thread,
// before the localizer is used; afterwards every member may be read from any
// thread. The two locales are made on first use and live until process exit.
class TVXCORE_EXPORT Locale {
 public:
  Locale() = delete;

  // Makes Default() the global locale, stores the language (for example "de"
  // or "fr_FR"; empty means "not known") and, when a localizer is installed and
  // the language isn't empty, loads the library's dictionary for it.
  static void Initialize(const UTF16String& inLanguage);

  // Whether a language has been stored.
  static bool IsInitialized();

  // The stored language, or "en_US" while none is stored.
  static UTF16String ApplicationLangauge();

  // The classic locale, kept from first use.
  static const std::locale& Default();

  // The user's locale (from the environment), kept from first use. A locale
  // name the runtime refuses throws std::runtime_error("bad locale name").
  static const std::locale& Native();

  // A number as the user typed it, read once in the user's locale and once in
  // the classic one. Empty or unreadable text gives 0; readings of opposite sign
  // give the classic one; otherwise the reading that used more of the text wins
  // (the user's locale on a tie).
  static double GetValueFromDisplayString(const UTF16String& inText);
};

}  // namespace tvxcore
