// tvxcore/config/Localizer.h: turning the library's text literals into the
// user's language.
//
// Every text the library can show is one literal "$$$/tvxcore/<path>=<English
// default>". The host installs a concrete Localizer that looks the key up in
// its dictionaries and falls back to the default after the first "=".
#pragma once

#include "tvxcore/Export.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::config {

// The host's translator of text literals. The library holds no concrete
// localizer and no dictionary format. The installed pointer is a plain global
// that is not owned: it is set at start-up and then read from any thread, so a
// concrete Translate must be safe to call concurrently.
class TVXCORE_EXPORT Localizer {
 public:
  Localizer() = default;
  Localizer(const Localizer&) = delete;
  Localizer& operator=(const Localizer&) = delete;
  virtual ~Localizer();

  // The text of `inKey` (a whole "$$$/...=default" literal) in the current
  // language. A key no dictionary knows should give the default text.
  virtual UTF16String Translate(const char* inKey) = 0;

  // Loads one dictionary file into the localizer. `inPath` names the file
  // without an extension; the format is the host's.
  virtual void LoadDictionary(const UTF16String& inPath) = 0;

  // The installed localizer. With none: std::logic_error "tvxcore::config::
  // Localizer not initialized. Check tvxcore/config/Localizer.h.".
  static Localizer* Get();

  // Installs a localizer (never deleted here) and, when it isn't null, loads
  // the library's dictionary for the current language at once. Null clears.
  static void Set(Localizer* inLocalizer);

  // Whether a localizer is installed.
  static bool Initialized() noexcept;

  // Loads the library's dictionary "tvx_<language>" from the "dict" folder of
  // the library's resources. Does nothing while no localizer is installed or
  // the language is not yet known.
  static void LoadTVXDictionaries();

 private:
  static Localizer* S_localizerP;
};

}  // namespace tvxcore::config
