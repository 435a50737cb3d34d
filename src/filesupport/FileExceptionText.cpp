#include "tvxcore/filesupport/FileExceptionText.h"

#include <cstring>

#include "tvxcore/config/Localizer.h"
#include "tvxcore/utility/StringUtils.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxcore::filesupport {
namespace {

// The literal in the user's language, or its own default text.
UTF16String Translated(const char* key) {
  if (key == nullptr) return UTF16String();
  if (config::Localizer::Initialized()) return config::Localizer::Get()->Translate(key);
  const char* text = std::strchr(key, '=');
  text = text != nullptr ? text + 1 : key;
  const auto* bytes = reinterpret_cast<const UTF8Char*>(text);
  return utility::UTF8to16(UTF8String(bytes, bytes + std::strlen(text)));
}

}  // namespace

UTF16String LocalizedMessage(const file_exception& error) {
  const auto* rename = dynamic_cast<const rename_file*>(&error);
  return utility::ReplaceInString(Translated(error.what()), error.GetFile().FullPath(),
                                  rename != nullptr ? rename->GetNewName() : UTF16String());
}

UTF16String LocalizedMessage(const dir_exception& error) {
  const auto* rename = dynamic_cast<const rename_dir*>(&error);
  return utility::ReplaceInString(Translated(error.what()), error.GetDir().FullPath(),
                                  rename != nullptr ? rename->GetNewName() : UTF16String());
}

bool LocalizedMessage(const std::exception& error, UTF16String& outText) {
  if (const auto* file = dynamic_cast<const file_exception*>(&error)) {
    outText = LocalizedMessage(*file);
    return true;
  }
  if (const auto* dir = dynamic_cast<const dir_exception*>(&error)) {
    outText = LocalizedMessage(*dir);
    return true;
  }
  return false;
}

}  // namespace tvxcore::filesupport
