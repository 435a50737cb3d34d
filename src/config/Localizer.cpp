#include "tvxcore/config/Localizer.h"

#include <stdexcept>

#include "tvxcore/Locale.h"
#include "filesupport/internal/AuxiliaryResources.h"

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

void Localizer::Set(Localizer* inLocalizer) {
  S_localizerP = inLocalizer;
  if (inLocalizer) LoadTVXDictionaries();
}

bool Localizer::Initialized() noexcept { return S_localizerP != nullptr; }

void Localizer::LoadTVXDictionaries() {
  if (!S_localizerP || !Locale::IsInitialized()) return;
  UTF16String name = u"tvx_";
  name += Locale::ApplicationLangauge();
  // Any function of this library locates the library's own file.
  const void* self = reinterpret_cast<const void*>(&Localizer::LoadTVXDictionaries);
  S_localizerP->LoadDictionary(utility::GetAuxiliaryResourcesPath(self, name, u"dict"));
}

}  // namespace tvxcore::config
