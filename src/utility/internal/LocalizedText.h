// The library's own texts, looked up by their ZString key.
//
// The strings layer sits below config::Localizer, so it is handed the
// localizer's translation from above: config::Localizer::Set installs it.
#pragma once

#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::utility::internal {

// The localised text of a key of the form "$$$/path=default text". Until a
// translator is installed this is the default text after the first "=".
UTF16String LocalizedText(const char* key);

// Translates a whole key in the current language.
using TextTranslator = UTF16String (*)(const char* key);

// Installs the translator (null: default texts from now on). Called by
// config::Localizer::Set at start-up; safe against concurrent LocalizedText.
void SetTextTranslator(TextTranslator translator) noexcept;

}  // namespace tvxcore::utility::internal
