// The start-up calls that read the library's dictionaries from disk:
// installing a localizer and setting the application's language. They live in
// the files layer because finding the dictionary is a question about files;
// the localizer itself and the language are config's.
#include "config/internal/ApplicationLanguage.h"
#include "filesupport/internal/AuxiliaryResources.h"
#include "tvxcore/Locale.h"
#include "tvxcore/config/Localizer.h"
#include "utility/internal/LocalizedText.h"

namespace tvxcore {
namespace {

UTF16String TranslateThroughLocalizer(const char* key) {
  return config::Localizer::Get()->Translate(key);
}

}  // namespace

void config::Localizer::Set(Localizer* inLocalizer) {
  S_localizerP = inLocalizer;
  // The strings layer's own texts (utility::internal::LocalizedText) follow.
  utility::internal::SetTextTranslator(inLocalizer ? &TranslateThroughLocalizer : nullptr);
  if (inLocalizer) LoadTVXDictionaries();
}

void config::Localizer::LoadTVXDictionaries() {
  if (!S_localizerP || !Locale::IsInitialized()) return;
  UTF16String name = u"tvx_";
  name += Locale::ApplicationLangauge();
  // Any function of this library locates the library's own file.
  const void* self = reinterpret_cast<const void*>(&Localizer::LoadTVXDictionaries);
  S_localizerP->LoadDictionary(
      filesupport::internal::GetAuxiliaryResourcesPath(self, name, u"dict"));
}

void Locale::Initialize(const UTF16String& inLanguage) {
  std::locale::global(Default());
  config::internal::StoreApplicationLanguage(inLanguage);
  config::Localizer::LoadTVXDictionaries();
}

}  // namespace tvxcore
