// Helpers shared by the utility tests.
#pragma once

#include <cstdio>
#include <string>

#include "tvxcore/utility/StringTypes.h"

namespace tvxtest {

// Code units as hex, so a failure shows exactly which units differ.
inline std::string Hex(const tvxcore::UTF16String& text) {
  std::string out;
  char buffer[8];
  for (tvxcore::UTF16Char c : text) {
    std::snprintf(buffer, sizeof buffer, "%s%04X", out.empty() ? "" : " ", unsigned(c));
    out += buffer;
  }
  return "[" + out + "]";
}

}  // namespace tvxtest
