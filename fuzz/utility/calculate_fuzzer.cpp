// Calculate returns a number for any text, in bounded time and stack.
#include <cstddef>
#include <cstdint>

#include "tvxcore/utility/NumberText.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Bytes map onto the characters the evaluator reads, plus a few it drops.
  static const char16_t kAlphabet[] = u"0123456789()+-*/.,^eE x\uFF11\u3002";
  tvxcore::UTF16String text;
  for (std::size_t i = 1; i < size; ++i) text.push_back(kAlphabet[data[i] % 26]);
  const unsigned short flags = size > 0 ? data[0] & 0x7F : 0;
  volatile double result = tvxcore::utility::Calculate(text, flags);
  (void)result;
  return 0;
}
