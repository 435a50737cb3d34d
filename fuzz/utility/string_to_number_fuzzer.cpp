// StringToNumber, HexStringToNumber and NumberToString never fail on any input.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "tvxcore/utility/NumberText.h"

using namespace tvxcore;
using namespace tvxcore::utility;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const unsigned short flags = data[0];
  UTF16String text;
  for (std::size_t i = 1; i + 1 < size; i += 2)
    text.push_back(static_cast<UTF16Char>(data[i] | (data[i + 1] << 8)));
  double d = StringToNumber(text, flags);
  float f;
  std::int64_t i64;
  std::uint64_t u64;
  std::int32_t i32;
  std::uint32_t u32;
  StringToNumber(f, text, flags);
  StringToNumber(i64, text, flags);
  StringToNumber(u64, text, flags);
  StringToNumber(i32, text, flags);
  StringToNumber(u32, text, flags);
  HexStringToNumber(i32, text);
  HexStringToNumber(u32, text);
  UTF16String hex = text;
  ValidateForHex(hex);
  for (UTF16Char u : hex) {
    if (!((u >= u'0' && u <= u'9') || (u >= u'A' && u <= u'F'))) std::abort();
  }
  // Format the parsed value back with digits and length from the input.
  const std::uint64_t digits = size > 2 ? data[1] % 40 : 2;
  const std::uint64_t minimum = size > 3 ? data[2] % 40 : 0;
  const std::int32_t maximum = size > 4 ? static_cast<std::int8_t>(data[3]) : 32;
  const UTF16String formatted = NumberToString(d, minimum, digits, flags, maximum);
  if (formatted.empty()) std::abort();
  return 0;
}
