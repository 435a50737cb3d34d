#include "platform/NumberLocale.h"

#include <langinfo.h>
#include <locale.h>

namespace tvxcore::platform {

bool GetUserNumberSeparators(std::string& outDecimal, std::string& outThousands) {
  // The locale the user's environment names (LANG, LC_ALL, LC_NUMERIC), not
  // the process's current one, which a program may have left at "C".
  locale_t user = newlocale(LC_ALL_MASK, "", static_cast<locale_t>(0));
  if (user == static_cast<locale_t>(0)) {
    user = newlocale(LC_NUMERIC_MASK, "", static_cast<locale_t>(0));
    if (user == static_cast<locale_t>(0)) return false;
  }
  const char* decimal = nl_langinfo_l(RADIXCHAR, user);
  const char* thousands = nl_langinfo_l(THOUSEP, user);
  outDecimal = decimal != nullptr ? decimal : "";
  outThousands = thousands != nullptr ? thousands : "";
  freelocale(user);
  return true;
}

}  // namespace tvxcore::platform
