// Number text: folding, the user's separators, formatting, parsing and the
// entry-field evaluator.
#include "tvxcore/utility/NumberText.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>

#include "tvxcore/utility/TextStreams.h"
#include "tvxcore/utility/UnicodeConversion.h"
#include "utility/internal/LocalizedText.h"
#include "utility/internal/NumberSeparators.h"

namespace tvxcore::utility {
namespace {

constexpr std::uint64_t kMaximumPadding = std::uint64_t{1} << 20;
constexpr std::uint64_t kMaximumFractionDigits = 400;
constexpr int kMaximumCalculateDepth = 256;

bool IsDigit(UTF16Char u) { return u >= u'0' && u <= u'9'; }

// printf-style formatting, independent of any locale.
std::string Fixed(double value, int precision) {
  std::string out(330 + static_cast<std::size_t>(precision), '\0');
  const auto r = std::to_chars(out.data(), out.data() + out.size(), value, std::chars_format::fixed,
                               precision);
  out.resize(static_cast<std::size_t>(r.ptr - out.data()));
  return out;
}
std::string Exponent(double value, int precision) {
  char buffer[64];
  const auto r = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::scientific,
                               precision);
  return std::string(buffer, r.ptr);
}

}  // namespace

bool ToNumericCase(UTF16Char& unit) {
  if (unit >= 0xFF01 && unit <= 0xFF1F) {
    unit = static_cast<UTF16Char>(unit + 288);
    return true;
  }
  return false;
}

bool ToNumericCase(UTF16String& text) {
  bool changed = false;
  for (auto& unit : text) changed |= ToNumericCase(unit);
  return changed;
}

void ConvertFullWidthAndIdeographicCharacters(UTF16String& text) {
  for (auto& u : text) {
    if (u == 0x2212) {
      u = u'-';
    } else if (u == 0x3000) {
      u = u' ';
    } else if (u == 0x3001) {
      u = u',';
    } else if (u == 0x3002) {
      u = u'.';
    } else if (u >= 0xFF01 && u <= 0xFF5E) {
      u = static_cast<UTF16Char>(u + 288);
    }
    if (u >= 0x0660 && u <= 0x0669) u = static_cast<UTF16Char>(u - 1584);
  }
}

bool HasNumericChars(UTF16String& text, NumberFlags flags) {
  if (flags.IsSet(kNumberPlainInput)) {
    for (UTF16Char u : text) {
      if (IsDigit(u)) return true;
    }
    return false;
  }
  UTF16String folded = text;
  ConvertFullWidthAndIdeographicCharacters(folded);
  for (UTF16Char u : folded) {
    if (IsDigit(u)) return true;
  }
  return false;
}

void DeInternationalizeNum(UTF16String& text) {
  ConvertFullWidthAndIdeographicCharacters(text);
  const internal::NumberSeparators s = internal::GetNumberSeparators();
  for (auto& u : text) {
    if (u == s.decimal) {
      u = u'.';
    } else if (s.thousands != 0 && u == s.thousands) {
      u = u',';
    }
  }
}

void InternationalizeNum(UTF16String& text) {
  const internal::NumberSeparators s = internal::GetNumberSeparators();
  for (std::size_t i = 0; i + 1 < text.size(); ++i) {
    if (!IsDigit(text[i + 1])) continue;
    if (text[i] == u'.') {
      text[i] = s.decimal;
    } else if (text[i] == u',') {
      text[i] = s.thousands;
    }
  }
}

UTF16String NumberToString(double value, std::uint64_t minimumIntegerDigits,
                           std::uint64_t fractionDigits, NumberFlags flags,
                           std::int32_t maximumLength) {
  if (std::isnan(value)) {
    return internal::LocalizedText("$$$/tvxui/controls/UI_NumberEdit/NANDisplayString=nan");
  }
  if (minimumIntegerDigits > kMaximumPadding) minimumIntegerDigits = kMaximumPadding;
  if (fractionDigits > kMaximumFractionDigits) fractionDigits = kMaximumFractionDigits;
  const int precision = static_cast<int>(fractionDigits);

  bool isZero;
  if (fractionDigits == 0) {
    isZero = value == 0;
  } else {
    isZero = std::fabs(value) < 5.0 / std::pow(10.0, static_cast<double>(fractionDigits + 1));
    if (isZero) value = 0;
  }
  bool negative = false;
  if (!isZero && value < 0) {
    value = -value;
    negative = true;
  }

  std::string text;
  bool exponentForm = false;
  if (fractionDigits == 0) {
    if (value <= static_cast<double>(std::numeric_limits<std::int32_t>::max())) {
      text = std::to_string(static_cast<std::int64_t>(std::floor(value + 0.5)));
    } else {
      text = Exponent(value, 6);
      exponentForm = true;
    }
  } else {
    // 10 to the power -fractionDigits, by squaring, then the reciprocal.
    double power = 1, base = 10;
    for (std::uint64_t e = fractionDigits; e != 0; e >>= 1) {
      if (e & 1) power *= base;
      base *= base;
    }
    const double step = 1 / power;
    value = std::floor(value / step + 0.5) * step;
    text = Fixed(value, precision);
  }

  const std::size_t limit = maximumLength > 0 ? static_cast<std::size_t>(maximumLength) - 1 : 0;
  if (!exponentForm) {
    const std::size_t point = text.find('.');
    std::size_t integerDigits = point == std::string::npos ? text.size() : point;
    const std::size_t rest = text.size() - integerDigits;
    const std::size_t padded = std::max<std::size_t>(integerDigits, minimumIntegerDigits);
    const std::size_t grouped =
        flags.IsSet(kNumberGroupThousands) && padded > 0 ? padded + (padded - 1) / 3 : padded;
    if (grouped + rest <= limit) {
      if (integerDigits < minimumIntegerDigits) {
        text.insert(0, minimumIntegerDigits - integerDigits,
                    flags.IsSet(kNumberPlainInput) ? ' ' : '0');
        integerDigits = minimumIntegerDigits;
      }
      if (flags.IsSet(kNumberGroupThousands) && integerDigits > 3) {
        std::size_t first = integerDigits % 3;
        if (first == 0) first = 3;
        std::string result = text.substr(0, first);
        for (std::size_t i = first; i < integerDigits; i += 3) {
          result += ',';
          result.append(text, i, 3);
        }
        result.append(text, integerDigits, std::string::npos);
        text = std::move(result);
      }
    } else {
      text.assign(limit + 1, ' ');  // too long: forces the exponent form below
    }
  }
  if (text.size() > limit) {
    text = Exponent(value, 6);
    if (text.size() > limit) text = Exponent(value, 0);
    exponentForm = true;
  }

  if (negative) {
    text.insert(0, 1, '-');
  } else if (flags.IsSet(kNumberForcePlus)) {
    if (!(isZero && flags.IsSet(kNumberNoPlusOnZero))) text.insert(0, 1, '+');
  } else if (flags.IsSet(kNumberLeadingBlank)) {
    text.insert(0, 1, ' ');
  }

  if (!exponentForm && flags.IsSet(kNumberKeepCommas) && text.find('.') != std::string::npos) {
    while (!text.empty() && text.back() == '0') text.pop_back();
    if (!text.empty() && text.back() == '.') text.pop_back();
  }

  UTF16String result = UTF8to16(UTF8String(text.begin(), text.end()));
  if (!flags.IsSet(kNumberRawOutput)) InternationalizeNum(result);
  return result;
}

namespace {

template <typename T>
void Parse(T& result, UTF16String text, NumberFlags flags) {
  if (!flags.IsSet(kNumberPlainInput)) DeInternationalizeNum(text);
  if (!flags.IsSet(kNumberKeepCommas)) std::erase(text, u',');
  iUTF8StringStream stream(UTF16to8(text));
  T value = 0;
  stream >> value;
  result = value;
}

}  // namespace

double StringToNumber(const UTF16String& text, NumberFlags flags) {
  double value = 0;
  Parse(value, text, flags);
  return value;
}
void StringToNumber(double& result, const UTF16String& text, NumberFlags flags) {
  Parse(result, text, flags);
}
void StringToNumber(float& result, const UTF16String& text, NumberFlags flags) {
  Parse(result, text, flags);
}
void StringToNumber(std::int64_t& result, const UTF16String& text, NumberFlags flags) {
  Parse(result, text, flags);
}
void StringToNumber(std::uint64_t& result, const UTF16String& text, NumberFlags flags) {
  Parse(result, text, flags);
}
void StringToNumber(std::int32_t& result, const UTF16String& text, NumberFlags flags) {
  Parse(result, text, flags);
}
void StringToNumber(std::uint32_t& result, const UTF16String& text, NumberFlags flags) {
  Parse(result, text, flags);
}

void HexStringToNumber(std::int32_t& result, const UTF16String& text) {
  const UTF8String narrow = UTF16to8(text);
  const long long value = std::strtoll(reinterpret_cast<const char*>(narrow.c_str()), nullptr, 16);
  if (value > std::numeric_limits<std::int32_t>::max()) {
    result = std::numeric_limits<std::int32_t>::max();
  } else if (value < std::numeric_limits<std::int32_t>::min()) {
    result = std::numeric_limits<std::int32_t>::min();
  } else {
    result = static_cast<std::int32_t>(value);
  }
}

void HexStringToNumber(std::uint32_t& result, const UTF16String& text) {
  const UTF8String narrow = UTF16to8(text);
  const char* p = reinterpret_cast<const char*>(narrow.c_str());
  // The magnitude decides overflow; a minus sign then negates modulo 2^32.
  while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;
  bool negative = false;
  if (*p == '+' || *p == '-') negative = *p++ == '-';
  if (*p == '+' || *p == '-') {  // a second sign: nothing parses
    result = 0;
    return;
  }
  const unsigned long long magnitude = std::strtoull(p, nullptr, 16);
  if (magnitude > std::numeric_limits<std::uint32_t>::max()) {
    result = std::numeric_limits<std::uint32_t>::max();
  } else {
    const auto m = static_cast<std::uint32_t>(magnitude);
    result = negative ? static_cast<std::uint32_t>(0u - m) : m;
  }
}

void ValidateForHex(UTF16String& text) {
  UTF16String kept;
  kept.reserve(text.size());
  for (UTF16Char u : text) {
    if (u >= u'a' && u <= u'f') u = static_cast<UTF16Char>(u - 32);
    if (IsDigit(u) || (u >= u'A' && u <= u'F')) kept.push_back(u);
  }
  text = std::move(kept);
}

namespace {

bool IsOperator(UTF16Char u) {
  return u == u'+' || u == u'-' || u == u'*' || u == u'/' || u == u'e' || u == u'E' || u == u'^';
}

// Parentheses of `text` never close below depth 0.
bool Balanced(const UTF16String& text) {
  long depth = 0;
  for (UTF16Char u : text) {
    if (u == u'(') {
      ++depth;
    } else if (u == u')' && --depth < 0) {
      return false;
    }
  }
  return true;
}

double Evaluate(UTF16String text, NumberFlags flags, int depth) {
  if (depth > kMaximumCalculateDepth) return 0;
  std::erase_if(text, [](UTF16Char u) {
    return !(IsDigit(u) || u == u'(' || u == u')' || u == u'+' || u == u'-' || u == u'*' ||
             u == u'/' || u == u'.' || u == u',' || u == u'^' || u == u'e' || u == u'E');
  });
  if (text.size() < 2) return StringToNumber(text, flags);
  while (text.size() > 1 && text.front() == u'(' && text.back() == u')') {
    UTF16String inner = text.substr(1, text.size() - 2);
    if (!Balanced(inner)) break;
    text = std::move(inner);
    if (++depth > kMaximumCalculateDepth) return 0;
  }

  constexpr std::size_t kNone = UTF16String::npos;
  std::size_t exponent = kNone, plus = kNone, minus = kNone, times = kNone, divide = kNone,
              power = kNone;
  long level = 0;
  for (std::size_t i = 0; i < text.size();) {
    const UTF16Char u = text[i];
    if (u == u'(') {
      ++level;
    } else if (u == u')') {
      --level;
    } else if (level == 0) {
      if (u == u'+') {
        plus = i;
        minus = kNone;
      } else if (u == u'-') {
        minus = i;
        plus = kNone;
      } else if (u == u'*' || u == u'/' || u == u'e' || u == u'E' || u == u'^') {
        if (i == 0 || IsOperator(text[i - 1])) {
          text.erase(i, 1);  // an operator without a left operand is dropped
          continue;
        }
        if (u == u'*') {
          times = i;
        } else if (u == u'/') {
          divide = i;
        } else if (u == u'^') {
          power = i;
        } else {
          exponent = i;
        }
      }
    }
    ++i;
  }

  std::size_t split = kNone;
  UTF16Char op = 0;
  for (auto [position, symbol] :
       {std::pair{exponent, u'e'}, std::pair{plus, u'+'}, std::pair{minus, u'-'},
        std::pair{times, u'*'}, std::pair{divide, u'/'}, std::pair{power, u'^'}}) {
    if (position != kNone) {
      split = position;
      op = symbol;
      break;
    }
  }
  if (split == kNone) return StringToNumber(text, flags);
  const double left = split == 0 ? 0 : Evaluate(text.substr(0, split), flags, depth + 1);
  const double right = Evaluate(text.substr(split + 1), flags, depth + 1);
  switch (op) {
    case u'e':
      return left * std::pow(10.0, right);
    case u'+':
      return left + right;
    case u'-':
      return left - right;
    case u'*':
      return left * right;
    case u'/':
      return right == 0 ? left : left / right;
    default:
      return std::pow(left, right);
  }
}

}  // namespace

double Calculate(UTF16String text, NumberFlags flags) {
  if (!flags.IsSet(kNumberPlainInput)) DeInternationalizeNum(text);
  flags.Set(kNumberPlainInput);
  return Evaluate(std::move(text), flags, 0);
}

}  // namespace tvxcore::utility
