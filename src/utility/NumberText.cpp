// Number text: folding, the user's separators, formatting, parsing and the
// entry-field evaluator.
#include "tvxcore/utility/NumberText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "tvxcore/utility/TextStreams.h"
#include "tvxcore/utility/UnicodeConversion.h"
#include "utility/internal/LocalizedText.h"
#include "utility/internal/NumberSeparators.h"

namespace tvxcore::utility {
namespace {

constexpr std::uint64_t kMaximumPadding = std::uint64_t{1} << 20;
constexpr std::uint64_t kMaximumFractionDigits = 400;

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
    // Where value * 10^fractionDigits leaves the range of double, the value
    // has no digits that far after the point: rounding to the step would only
    // turn it into inf or nan.
    const double step = 1 / power;
    const double scaled = value / step;
    if (step > 0 && std::isfinite(scaled)) value = std::floor(scaled + 0.5) * step;
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

namespace {

// What strtol and strtoul with base 16 read, for a 32-bit long: white space,
// one optional sign, an optional "0x" or "0X" when a hex digit follows, then
// hex digits up to the first other unit. The magnitude saturates just above
// 2^32, which is all that either caller needs to tell overflow.
struct HexReading {
  bool negative = false;
  std::uint64_t magnitude = 0;
};

int HexDigit(UTF8Char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

HexReading ReadHex(const UTF16String& text) {
  const UTF8String narrow = UTF16to8(text);
  std::size_t i = 0;
  while (i < narrow.size() && (narrow[i] == ' ' || (narrow[i] >= '\t' && narrow[i] <= '\r'))) ++i;
  HexReading reading;
  if (i < narrow.size() && (narrow[i] == '+' || narrow[i] == '-')) {
    reading.negative = narrow[i] == '-';
    ++i;
  }
  if (i + 2 < narrow.size() && narrow[i] == '0' && (narrow[i + 1] == 'x' || narrow[i + 1] == 'X') &&
      HexDigit(narrow[i + 2]) >= 0) {
    i += 2;
  }
  constexpr std::uint64_t kSaturated = (std::uint64_t{1} << 32) + 1;
  for (int digit; i < narrow.size() && (digit = HexDigit(narrow[i])) >= 0; ++i) {
    reading.magnitude = std::min(reading.magnitude * 16 + static_cast<unsigned>(digit), kSaturated);
  }
  return reading;
}

}  // namespace

void HexStringToNumber(std::int32_t& result, const UTF16String& text) {
  const HexReading r = ReadHex(text);
  constexpr std::uint64_t kMax = std::numeric_limits<std::int32_t>::max();
  if (!r.negative) {
    result = static_cast<std::int32_t>(std::min(r.magnitude, kMax));
  } else if (r.magnitude > kMax) {
    result = std::numeric_limits<std::int32_t>::min();
  } else {
    result = -static_cast<std::int32_t>(r.magnitude);
  }
}

void HexStringToNumber(std::uint32_t& result, const UTF16String& text) {
  // As strtoul: overflow of the magnitude gives the largest value whatever the
  // sign; otherwise a minus sign negates modulo 2^32.
  const HexReading r = ReadHex(text);
  if (r.magnitude > std::numeric_limits<std::uint32_t>::max()) {
    result = std::numeric_limits<std::uint32_t>::max();
  } else {
    const auto m = static_cast<std::uint32_t>(r.magnitude);
    result = r.negative ? static_cast<std::uint32_t>(0u - m) : m;
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

bool IsKept(UTF16Char u) {
  return IsDigit(u) || u == u'(' || u == u')' || u == u'+' || u == u'-' || u == u'*' || u == u'/' ||
         u == u'.' || u == u',' || u == u'^' || u == u'e' || u == u'E';
}

// Binding strength: the split order of the evaluator, loosest first. The part
// of a text is split at the last operator of the loosest kind it holds, which
// is the tree a left-associative precedence parser builds.
int Strength(UTF16Char op) {
  switch (op) {
    case u'e':
    case u'E':
      return 0;
    case u'+':
    case u'-':
      return 1;
    case u'*':
      return 2;
    case u'/':
      return 3;
    default:
      return 4;  // ^
  }
}

double Combine(UTF16Char op, double left, double right) {
  switch (op) {
    case u'e':
    case u'E':
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

// The evaluator of Calculate, without recursion: the work of each nesting
// level lives in a frame on the heap, and the operators of one level are
// reduced with an operand and an operator stack, so neither the length nor
// the nesting of the text is bounded by the thread's stack.
//
// A level is a part of the text whose parentheses were stripped. Its operators
// are those at depth 0, counted from the level's start; "*", "/", "e", "E"
// and "^" are dropped when they open the level or follow another operator.
// The parts between the level's operators (operands) are either a whole
// parenthesised group, which becomes a nested level, or a number.
class Calculator {
 public:
  Calculator(UTF16String text, NumberFlags flags) : text_(std::move(text)), flags_(flags) {
    std::erase_if(text_, [](UTF16Char u) { return !IsKept(u); });
    // The closing parenthesis of each opening one (kNone when unclosed): the
    // first later position where the count of open ones is back to what it was.
    match_.assign(text_.size(), kNone);
    std::vector<std::size_t> open;
    for (std::size_t i = 0; i < text_.size(); ++i) {
      if (text_[i] == u'(') {
        open.push_back(i);
      } else if (text_[i] == u')' && !open.empty()) {
        match_[open.back()] = i;
        open.pop_back();
      }
    }
  }

  double Run() {
    std::size_t begin = 0, end = text_.size();
    StripLiterally(begin, end);
    PushLevel(begin, end);
    for (;;) {
      Level& level = levels_.back();
      const std::size_t opPos = NextOperator(level);
      // The operand before the operator: its dropped operators are left out.
      std::size_t first = level.operandStart;
      while (first < opPos && IsOperator(text_[first]) &&
             (first == level.begin || IsOperator(text_[first - 1]))) {
        ++first;
      }
      level.pendingPos = opPos;
      // An operand between operators is a part of its own and loses a pair
      // of parentheses around it; a level without operators was stripped
      // before its dropped operators were left out, and is a number.
      const bool wholeLevel = opPos == level.end && level.operandStart == level.begin;
      if (!wholeLevel && Strippable(first, opPos)) {
        std::size_t innerBegin = first + 1, innerEnd = opPos - 1;
        StripLiterally(innerBegin, innerEnd);
        PushLevel(innerBegin, innerEnd);
        continue;
      }
      double value = StringToNumber(text_.substr(first, opPos - first), flags_);
      // Hand the value to its level; a finished level hands its own result to
      // the level it is an operand of.
      for (;;) {
        Level& current = levels_.back();
        values_.push_back(value);
        const std::size_t at = current.pendingPos;
        if (at < current.end) {
          const UTF16Char op = text_[at];
          Reduce(current.opBase, Strength(op));
          ops_.push_back(op);
          current.next = at + 1;
          current.operandStart = at + 1;
          break;
        }
        Reduce(current.opBase, -1);
        value = values_.back();
        values_.pop_back();
        levels_.pop_back();
        if (levels_.empty()) return value;
      }
    }
  }

 private:
  static constexpr std::size_t kNone = UTF16String::npos;

  struct Level {
    std::size_t begin, end;  // the level's part of the text, parentheses stripped
    std::size_t next;        // where the search for the next operator goes on
    long depth;              // parenthesis depth at `next`, from the level's start
    std::size_t operandStart;
    std::size_t pendingPos;  // the operator after the operand in work, or `end`
    std::size_t opBase;      // the level's first entry on the operator stack
  };

  void PushLevel(std::size_t begin, std::size_t end) {
    levels_.push_back(Level{begin, end, begin, 0, begin, end, ops_.size()});
  }

  // Removes one enclosing pair at a time while the text is "(" ... ")" and the
  // part inside never closes more than it opened.
  void StripLiterally(std::size_t& begin, std::size_t& end) const {
    while (end - begin > 1 && text_[begin] == u'(' && text_[end - 1] == u')' &&
           (match_[begin] == kNone || match_[begin] >= end - 1)) {
      ++begin;
      --end;
    }
  }

  bool Strippable(std::size_t begin, std::size_t end) const {
    return end > begin + 1 && text_[begin] == u'(' && text_[end - 1] == u')' &&
           (match_[begin] == kNone || match_[begin] >= end - 1);
  }

  // The position of the next operator of `level` at depth 0, or its end.
  // Groups that open at depth 0 or deeper are skipped whole; after a stray
  // ")" the depth is negative and the text is walked unit by unit.
  std::size_t NextOperator(Level& level) const {
    std::size_t i = level.next;
    long depth = level.depth;
    std::size_t found = level.end;
    while (i < level.end) {
      const UTF16Char u = text_[i];
      if (u == u'(') {
        if (depth >= 0) {
          const std::size_t close = match_[i];
          if (close == kNone || close >= level.end) {
            i = level.end;  // the rest of the level is deeper
            break;
          }
          i = close + 1;
        } else {
          ++depth;
          ++i;
        }
        continue;
      }
      if (u == u')') {
        --depth;
      } else if (depth == 0 && IsOperator(u)) {
        const bool dropped =
            u != u'+' && u != u'-' && (i == level.begin || IsOperator(text_[i - 1]));
        if (!dropped) {
          found = i;
          break;
        }
      }
      ++i;
    }
    level.next = i;
    level.depth = depth;
    return found;
  }

  // Applies the stacked operators of the current level that bind at least as
  // strongly as `strength` (all of them for -1).
  void Reduce(std::size_t opBase, int strength) {
    while (ops_.size() > opBase && Strength(ops_.back()) >= strength) {
      const UTF16Char op = ops_.back();
      ops_.pop_back();
      const double right = values_.back();
      values_.pop_back();
      values_.back() = Combine(op, values_.back(), right);
    }
  }

  UTF16String text_;
  NumberFlags flags_;
  std::vector<std::size_t> match_;
  std::vector<Level> levels_;
  std::vector<double> values_;
  std::vector<UTF16Char> ops_;
};

}  // namespace

double Calculate(UTF16String text, NumberFlags flags) {
  if (!flags.IsSet(kNumberPlainInput)) DeInternationalizeNum(text);
  flags.Set(kNumberPlainInput);
  return Calculator(std::move(text), flags).Run();
}

}  // namespace tvxcore::utility
