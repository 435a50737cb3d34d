// UTF-8/UTF-16 conversions, UTF-8 counting and normalisation.
#include "tvxcore/utility/UnicodeConversion.h"

#include <unicode/unorm2.h>
#include <unicode/utypes.h>

#include <algorithm>
#include <vector>

#include "utility/internal/UnicodeKernels.h"

namespace tvxcore::utility {
namespace {

// Sequence length by lead byte, judged by the lead alone.
constexpr int SequenceLength(UTF8Char lead) {
  return lead < 0xC0   ? 1
         : lead < 0xE0 ? 2
         : lead < 0xF0 ? 3
         : lead < 0xF8 ? 4
         : lead < 0xFC ? 5
                       : 6;
}

// Texts of up to this many bytes are decoded on the stack.
constexpr std::size_t kStackUnits = 256;

UTF8String Encode(const UTF16Char* units, std::size_t count) {
  if (count == 0) return UTF8String();
  const internal::UTF16Measure m = internal::MeasureUTF16(units, count);
  // Four or more units end at the first zero unit; fewer keep their length,
  // the units from the first zero unit on giving zero bytes.
  const std::size_t initial = count < 4 ? count : m.limit;
  UTF8String result(initial + m.bytes - m.limit, UTF8Char{0});
  if (m.limit != 0) internal::EncodeUTF16(units, m.limit, result.data());
  return result;
}

}  // namespace

UTF16String AsciiToUTF16(const char* text, std::size_t count) {
  UTF16String result;
  if (text == nullptr || count == 0) return result;
  result.resize(count);
  for (std::size_t i = 0; i < count; ++i)
    result[i] =
        static_cast<UTF16Char>(static_cast<std::int16_t>(static_cast<signed char>(text[i])));
  return result;
}

int UTF16StrLen(const UTF16Char* text) noexcept {
  if (text == nullptr) return 0;
  int n = 0;
  while (text[n] != 0) ++n;
  return n;
}

// Both walks stop at a zero byte even inside a sequence, so that a text cut
// in the middle of a sequence is never read past its terminator: the cut
// sequence still counts as one character, and with the bytes that are there.
int GetUTF8CharacterCount(const UTF8Char* text, int byteLimit) noexcept {
  if (text == nullptr || byteLimit < 1) return 0;
  int position = 0;
  int count = 0;
  for (;;) {
    if (text[position] == 0) return count;
    const int length = SequenceLength(text[position]);
    if (length > 4) return -1;
    ++count;
    for (int i = 1; i < length; ++i) {
      if (text[position + i] == 0) return count;
    }
    position += length;
    if (position >= byteLimit) return count;
  }
}

int GetUTF8ByteCount(const UTF8Char* text, int characterCount) noexcept {
  if (text == nullptr || characterCount == 0) return 0;
  int bytes = 0;
  for (int done = 0; characterCount < 0 || done < characterCount; ++done) {
    if (text[bytes] == 0) return bytes;
    const int length = SequenceLength(text[bytes]);
    if (length > 4) return -1;
    for (int i = 1; i < length; ++i) {
      if (text[bytes + i] == 0) return bytes + i;
    }
    bytes += length;
  }
  return bytes;
}

UTF16String UTF8to16(const UTF8String& text, UnicodeErrorCode* error, std::size_t* unitCount) {
  UTF16String result;
  internal::UTF8DecodeResult r{0, 0, kUnicodeNoError};
  if (text.size() <= kStackUnits) {
    if (!text.empty()) {
      UTF16Char buffer[kStackUnits];
      r = internal::DecodeUTF8(text.data(), text.size(), buffer);
      result.assign(buffer, r.written);
    }
  } else {
    // Sized once from a count of the units, with the room the vector stores
    // may pass the last unit by; only that small slack is left unused.
    const std::size_t units = internal::CountUTF16Units(text.data(), text.size());
    result.resize(std::min(units + internal::kDecodeOverrun, text.size()));
    r = internal::DecodeUTF8(text.data(), text.size(), result.data());
    result.resize(r.written);
  }
  if (error != nullptr) *error = r.error;
  if (unitCount != nullptr) *unitCount = r.written;
  return result;
}

UTF8String UTF16to8(const UTF16String& text) { return Encode(text.data(), text.size()); }

UTF8String UTF16to8(const UTF16Char* text) {
  return Encode(text, static_cast<std::size_t>(UTF16StrLen(text)));
}

UTF16String NormalizedString(const UTF16String& text, UnicodeNormalizationForm form) {
  UErrorCode status = U_ZERO_ERROR;
  const UNormalizer2* normalizer = nullptr;
  switch (form) {
    case kUnicodeNormalizationDecomposed:
      normalizer = unorm2_getNFDInstance(&status);
      break;
    case kUnicodeNormalizationCompatibilityComposed:
      normalizer = unorm2_getNFKCInstance(&status);
      break;
    case kUnicodeNormalizationCompatibilityDecomposed:
      normalizer = unorm2_getNFKDInstance(&status);
      break;
    default:
      normalizer = unorm2_getNFCInstance(&status);
      break;
  }
  if (U_FAILURE(status) || normalizer == nullptr) return text;
  // The text is taken up to its first zero unit.
  const int length = UTF16StrLen(text.c_str());
  if (length == 0) return UTF16String();
  // Start from the input length and grow to the size the normaliser asks for;
  // give up after ten rounds.
  std::int32_t estimate = length;
  for (int round = 0; round < 10; ++round) {
    std::vector<UChar> buffer(static_cast<std::size_t>(estimate) + 1);
    status = U_ZERO_ERROR;
    const std::int32_t written =
        unorm2_normalize(normalizer, text.data(), length, buffer.data(),
                         static_cast<std::int32_t>(buffer.size()), &status);
    if (status == U_BUFFER_OVERFLOW_ERROR && written > estimate) {
      estimate = written;
      continue;
    }
    if (U_FAILURE(status)) return text;
    return UTF16String(buffer.data(), static_cast<std::size_t>(written));
  }
  return text;
}

}  // namespace tvxcore::utility
