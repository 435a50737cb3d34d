#include "utility/internal/NumberSeparators.h"

#include <atomic>
#include <cstdint>
#include <string>

#include "platform/NumberLocale.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxcore::utility::internal {
namespace {

// Both units and a "fetched" bit in one word: two first callers may both
// fetch, and store the same value.
constexpr std::uint64_t kFetched = std::uint64_t{1} << 32;
std::atomic<std::uint64_t> S_separators{0};

UTF16Char FirstUnit(const std::string& text, UTF16Char fallback) {
  if (text.empty()) return fallback;
  const UTF16String wide = UTF8to16(UTF8String(text.begin(), text.end()));
  return wide.empty() || wide[0] == 0 ? fallback : wide[0];
}

std::uint64_t Pack(NumberSeparators s) {
  return kFetched | (std::uint64_t{s.decimal} << 16) | s.thousands;
}

}  // namespace

NumberSeparators GetNumberSeparators() {
  std::uint64_t packed = S_separators.load(std::memory_order_relaxed);
  if ((packed & kFetched) == 0) {
    std::string decimal, thousands;
    NumberSeparators s{u'.', u','};
    if (platform::GetUserNumberSeparators(decimal, thousands)) {
      s.decimal = FirstUnit(decimal, u'.');
      s.thousands = FirstUnit(thousands, u',');
    }
    packed = Pack(s);
    S_separators.store(packed, std::memory_order_relaxed);
  }
  return {static_cast<UTF16Char>((packed >> 16) & 0xFFFF), static_cast<UTF16Char>(packed & 0xFFFF)};
}

void SetNumberSeparators(NumberSeparators separators) {
  S_separators.store(Pack(separators), std::memory_order_relaxed);
}

}  // namespace tvxcore::utility::internal
