#include "tvxcore/ZString.h"

#include "tvxcore/config/Localizer.h"
#include "tvxcore/utility/StringUtils.h"

namespace tvxcore {

UTF16String ZString(const char* inKey, const UTF16String& in0, const UTF16String& in1,
                    const UTF16String& in2, const UTF16String& in3, const UTF16String& in4,
                    const UTF16String& in5, const UTF16String& in6, const UTF16String& in7,
                    const UTF16String& in8, const UTF16String& in9) {
  const UTF16String text = config::Localizer::Get()->Translate(inKey);
  return utility::ReplaceInString(text, in0, in1, in2, in3, in4, in5, in6, in7, in8, in9);
}

}  // namespace tvxcore
