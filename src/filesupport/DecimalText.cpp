// Locale-independent decimal text for the floating values of the byte stream
// encoding.
#include "filesupport/internal/DecimalText.h"

#include <charconv>
#include <locale>
#include <sstream>
#include <string>
#include <system_error>

namespace tvxcore::filesupport::internal {

namespace {

constexpr int kSignificantDigits = 36;

// 64 characters hold a sign, 36 digits, a point and a five-digit exponent.
template <typename T>
std::size_t Format(T value, DecimalBuffer& buffer) {
  const auto result = std::to_chars(buffer.text, buffer.text + sizeof buffer.text, value,
                                    std::chars_format::general, kSignificantDigits);
  return static_cast<std::size_t>(result.ptr - buffer.text);
}

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The prefix of `text` that a standard stream's extraction takes in as a
// number: after blanks, [+-]digits[.digits][(e|E)[+-]digits], where the
// exponent is taken only after a digit.
std::string_view ScanField(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && IsBlank(text[i])) ++i;
  const std::size_t start = i;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  bool sawDigit = false;
  bool sawPoint = false;
  for (; i < text.size(); ++i) {
    if (IsDigit(text[i])) {
      sawDigit = true;
    } else if (text[i] == '.' && !sawPoint) {
      sawPoint = true;
    } else {
      break;
    }
  }
  if (sawDigit && i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    ++i;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
    while (i < text.size() && IsDigit(text[i])) ++i;
  }
  return text.substr(start, i - start);
}

// Out of range, the standard extraction stores the largest finite value on
// overflow and what the C library's conversion gives on underflow (zero or a
// subnormal). Rare enough to let a classic-locale stream do exactly that.
template <typename T>
T ExtractOutOfRange(std::string_view field) {
  std::istringstream stream{std::string(field)};
  stream.imbue(std::locale::classic());
  T value{};
  stream >> value;
  return value;
}

template <typename T>
T Parse(std::string_view text) {
  const std::string_view field = ScanField(text);
  // from_chars takes a minus sign but not a plus.
  const std::string_view number = !field.empty() && field.front() == '+' ? field.substr(1) : field;
  const char* const first = number.data();
  const char* const last = first + number.size();
  T value{};
  const auto result = std::from_chars(first, last, value, std::chars_format::general);
  if (result.ptr != last) return T(0);  // "", ".", "1e", "1e+", "+-1": zero, as extracted
  if (result.ec == std::errc::result_out_of_range) return ExtractOutOfRange<T>(field);
  if (result.ec != std::errc()) return T(0);
  return value;
}

}  // namespace

std::size_t FormatDecimal(double value, DecimalBuffer& buffer) { return Format(value, buffer); }
std::size_t FormatDecimal(long double value, DecimalBuffer& buffer) {
  return Format(value, buffer);
}

float ParseDecimalFloat(std::string_view text) { return Parse<float>(text); }
double ParseDecimalDouble(std::string_view text) { return Parse<double>(text); }
long double ParseDecimalLongDouble(std::string_view text) { return Parse<long double>(text); }

}  // namespace tvxcore::filesupport::internal
