// The application's language as Locale reports it; stored by Locale::Initialize.
#pragma once

#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::config::internal {

// Stores the language (empty: not known). Start-up only, on one thread.
void StoreApplicationLanguage(const UTF16String& language);

}  // namespace tvxcore::config::internal
