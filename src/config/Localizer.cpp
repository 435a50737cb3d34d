// The installed localizer. Installing one (Localizer::Set) also loads the
// library's dictionary from disk, so Set and LoadTVXDictionaries are defined
// in the files layer, in filesupport/LibraryDictionaries.cpp; nothing below
// that layer calls them.
#include "tvxcore/config/Localizer.h"

#include <stdexcept>

namespace tvxcore::config {

Localizer* Localizer::S_localizerP = nullptr;

Localizer::~Localizer() = default;

Localizer* Localizer::Get() {
  if (!S_localizerP) {
    throw std::logic_error(
        "tvxcore::config::Localizer not initialized. Check tvxcore/config/Localizer.h.");
  }
  return S_localizerP;
}

bool Localizer::Initialized() noexcept { return S_localizerP != nullptr; }

}  // namespace tvxcore::config
