// The JSON parser: one pass over the text with a stack of open containers
// of its own, so that no depth of nesting reaches the call stack.
#include <charconv>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include "serialization/internal/Values.h"
#include "tvxcore/serialization/JSON.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxcore::serialization {
namespace {

using internal::NewValue;
using internal::NewValueOf;

constexpr char kValueError[] = "ParseValue unexpected char";
constexpr char kPrimitiveError[] = "ParsePrimitive unexpected char";
constexpr char kArrayError[] = "ParseArray unexpected char";
constexpr char kObjectError[] = "ParseObject unexpected char";
constexpr char kAdvanceStringError[] = "AdvanceString: unexpected char";
constexpr char kEscapeStringError[] = "EscapeString: unexpected char";

// White space as the C locale's isspace has it: blank, \t, \n, \v, \f, \r.
constexpr bool IsSpace(UTF8Char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool IsDigit(UTF8Char c) { return c >= '0' && c <= '9'; }
constexpr bool IsNumberChar(UTF8Char c) {
  return IsDigit(c) || c == '.' || c == 'e' || c == 'E' || c == '+' || c == '-';
}

// The bytes at which the scan of a string stops: the closing quotation mark,
// a backslash, the zero byte and every byte of a multi-byte sequence.
struct StopTable {
  bool stop[256] = {};
  constexpr StopTable() {
    stop[static_cast<unsigned char>('"')] = stop[static_cast<unsigned char>('\\')] = stop[0] = true;
    for (int c = 0x80; c < 256; ++c) stop[c] = true;
  }
};
constexpr StopTable kStop;

// Whether any of the eight bytes in `w` is one the string scan stops at.
inline bool HasStop(std::uint64_t w) {
  constexpr std::uint64_t kOnes = 0x0101010101010101ull, kHigh = 0x8080808080808080ull;
  auto hasZero = [](std::uint64_t v) { return (v - kOnes) & ~v & kHigh; };
  return ((hasZero(w) | hasZero(w ^ (kOnes * '"')) | hasZero(w ^ (kOnes * '\\'))) | (w & kHigh)) !=
         0;
}

// The length of the UTF-8 sequence at `s` (s < end, *s >= 0x80) under the
// library's rules (those of utility::UTF8to16: no overlong forms, nothing
// above U+10FFFF, encoded surrogates accepted), or 0 when it is not one.
inline std::size_t SequenceLength(const UTF8Char* s, const UTF8Char* end) {
  const unsigned lead = s[0];
  const std::size_t left = static_cast<std::size_t>(end - s);
  auto cont = [](unsigned c) { return (c & 0xC0) == 0x80; };
  if (lead < 0xC2) return 0;
  if (lead < 0xE0) return left >= 2 && cont(s[1]) ? 2 : 0;
  if (lead < 0xF0) {
    if (left < 3 || !cont(s[1]) || !cont(s[2]) || (lead == 0xE0 && s[1] < 0xA0)) return 0;
    return 3;
  }
  if (lead > 0xF4 || left < 4 || !cont(s[1]) || !cont(s[2]) || !cont(s[3]) ||
      (lead == 0xF0 && s[1] < 0x90) || (lead == 0xF4 && s[1] >= 0x90))
    return 0;
  return 4;
}

constexpr bool IsEscapeLetter(UTF8Char c) {
  return c == '"' || c == '\\' || c == '/' || c == 'b' || c == 'f' || c == 'n' || c == 'r' ||
         c == 't' || c == 'u';
}

// The value of four hexadecimal digits at `s`, or -1.
inline long Hex4(const UTF8Char* s, const UTF8Char* end) {
  if (end - s < 4) return -1;
  long value = 0;
  for (int i = 0; i < 4; ++i) {
    const UTF8Char c = s[i];
    int digit;
    if (c >= '0' && c <= '9') {
      digit = c - '0';
    } else if (c >= 'a' && c <= 'f') {
      digit = c - 'a' + 10;
    } else if (c >= 'A' && c <= 'F') {
      digit = c - 'A' + 10;
    } else {
      return -1;
    }
    value = value * 16 + digit;
  }
  return value;
}

// Appends a code point (or a lone surrogate, in three bytes) as UTF-8.
void AppendUTF8(UTF8String& out, unsigned long cp) {
  if (cp < 0x80) {
    out.push_back(static_cast<UTF8Char>(cp));
  } else if (cp < 0x800) {
    const UTF8Char bytes[] = {static_cast<UTF8Char>(0xC0 | (cp >> 6)),
                              static_cast<UTF8Char>(0x80 | (cp & 0x3F))};
    out.append(bytes, 2);
  } else if (cp < 0x10000) {
    const UTF8Char bytes[] = {static_cast<UTF8Char>(0xE0 | (cp >> 12)),
                              static_cast<UTF8Char>(0x80 | ((cp >> 6) & 0x3F)),
                              static_cast<UTF8Char>(0x80 | (cp & 0x3F))};
    out.append(bytes, 3);
  } else {
    const UTF8Char bytes[] = {static_cast<UTF8Char>(0xF0 | (cp >> 18)),
                              static_cast<UTF8Char>(0x80 | ((cp >> 12) & 0x3F)),
                              static_cast<UTF8Char>(0x80 | ((cp >> 6) & 0x3F)),
                              static_cast<UTF8Char>(0x80 | (cp & 0x3F))};
    out.append(bytes, 4);
  }
}

// Powers of ten that a double holds exactly.
constexpr double kExactPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                   1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                   1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// The double nearest to digits * 10^exponent, `digits` being decimal digits
// without leading zeros (possibly none: zero).
double DecimalToDouble(const std::string& digits, long long exponent) {
  if (digits.empty()) return 0.0;
  const long long magnitude = static_cast<long long>(digits.size()) + exponent;
  if (magnitude > 400) return std::numeric_limits<double>::infinity();
  if (magnitude < -400) return 0.0;
  std::string text = digits;
  text += 'e';
  text += std::to_string(exponent);
  double value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec == std::errc::result_out_of_range)
    return magnitude > 0 ? std::numeric_limits<double>::infinity() : 0.0;
  return value;
}

class Parser {
 public:
  Parser(const UTF8Char* begin, const UTF8Char* end) : begin_(begin), p_(begin), end_(end) {}
  JSONValue Parse();

 private:
  // An open container. An array's elements wait on `elements_` from `first`
  // on, so that it is made at its end in one allocation of its exact size;
  // an object is made at its start and takes each member as it comes, while
  // `key` holds the key of the member whose value is being read.
  struct Frame {
    JSONValue object;
    JSONObject* members = nullptr;
    std::size_t first = 0;
    UTF8String key;
  };

  [[noreturn]] void Fail(const char* text) const {
    throw JSONParseError(text, static_cast<std::size_t>(p_ - begin_));
  }
  void SkipSpace() {
    while (p_ != end_ && IsSpace(*p_)) ++p_;
  }
  bool At(UTF8Char c) const { return p_ != end_ && *p_ == c; }

  // Moves over the string whose quotation mark is at p_ to just after its
  // closing one, checking escapes and UTF-8; its text lies in [first, last).
  // Returns whether it holds a backslash.
  bool AdvanceString(const UTF8Char*& first, const UTF8Char*& last);
  // The text of the string in [first, last), which holds escapes.
  void Unescape(const UTF8Char* first, const UTF8Char* last, UTF8String& out);
  void ReadString(UTF8String& out);
  // Reads `"key" :` of an object member, leaving p_ at its value.
  void ReadKey(UTF8String& key);

  JSONValue ParseString();
  JSONValue ParseNumber();
  JSONValue ParseNumberSlowly(const UTF8Char* start);
  JSONValue ParsePrimitive();

  const UTF8Char* const begin_;
  const UTF8Char* p_;
  const UTF8Char* const end_;
  std::vector<Frame> stack_;
  std::vector<JSONValue> elements_;
};

bool Parser::AdvanceString(const UTF8Char*& first, const UTF8Char*& last) {
  first = ++p_;
  bool escaped = false;
  for (;;) {
    while (end_ - p_ >= 8) {
      std::uint64_t w;
      std::memcpy(&w, p_, sizeof w);
      if (HasStop(w)) break;
      p_ += 8;
    }
    while (p_ != end_ && !kStop.stop[*p_]) ++p_;
    if (p_ == end_) Fail(kAdvanceStringError);
    const UTF8Char c = *p_;
    if (c == '"') break;
    if (c == '\\') {
      ++p_;
      if (p_ == end_ || !IsEscapeLetter(*p_)) Fail(kAdvanceStringError);
      ++p_;
      escaped = true;
    } else if (c == 0) {
      Fail(kAdvanceStringError);
    } else {
      const std::size_t length = SequenceLength(p_, end_);
      if (length == 0) Fail(kAdvanceStringError);
      p_ += length;
    }
  }
  last = p_++;
  return escaped;
}

void Parser::Unescape(const UTF8Char* s, const UTF8Char* last, UTF8String& out) {
  out.clear();
  out.reserve(static_cast<std::size_t>(last - s));
  while (s != last) {
    const void* found = std::memchr(s, '\\', static_cast<std::size_t>(last - s));
    if (found == nullptr) {
      out.append(s, last);
      return;
    }
    const UTF8Char* backslash = static_cast<const UTF8Char*>(found);
    out.append(s, backslash);
    s = backslash + 2;  // AdvanceString saw a letter after every backslash
    switch (backslash[1]) {
      case 'b':
        out.push_back('\b');
        break;
      case 'f':
        out.push_back('\f');
        break;
      case 'n':
        out.push_back('\n');
        break;
      case 'r':
        out.push_back('\r');
        break;
      case 't':
        out.push_back('\t');
        break;
      case 'u': {
        long unit = Hex4(s, last);
        if (unit < 0) {
          p_ = s;
          Fail(kEscapeStringError);
        }
        s += 4;
        unsigned long cp = static_cast<unsigned long>(unit);
        if (cp >= 0xD800 && cp <= 0xDBFF && last - s >= 6 && s[0] == '\\' && s[1] == 'u') {
          const long low = Hex4(s + 2, last);
          if (low >= 0xDC00 && low <= 0xDFFF) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + static_cast<unsigned long>(low - 0xDC00);
            s += 6;
          }
        }
        AppendUTF8(out, cp);
        break;
      }
      default:  // the quotation mark, the backslash and "/" stand for themselves
        out.push_back(backslash[1]);
        break;
    }
  }
}

void Parser::ReadString(UTF8String& out) {
  const UTF8Char *first, *last;
  if (AdvanceString(first, last)) {
    const UTF8Char* after = p_;
    Unescape(first, last, out);
    p_ = after;
  } else {
    out.assign(first, last);
  }
}

void Parser::ReadKey(UTF8String& key) {
  if (!At('"')) Fail(kObjectError);
  ReadString(key);
  SkipSpace();
  if (!At(':')) Fail(kObjectError);
  ++p_;
  SkipSpace();
}

JSONValue Parser::ParseString() {
  const UTF8Char *first, *last;
  if (!AdvanceString(first, last)) return NewValue(boost::any(UTF8String(first, last)));
  UTF8String text;
  const UTF8Char* after = p_;
  Unescape(first, last, text);
  p_ = after;
  return NewValue(boost::any(std::move(text)));
}

JSONValue Parser::ParsePrimitive() {
  const std::size_t left = static_cast<std::size_t>(end_ - p_);
  if (left >= 4 && std::memcmp(p_, "true", 4) == 0) {
    p_ += 4;
    return NewValue(boost::any(true));
  }
  if (left >= 5 && std::memcmp(p_, "false", 5) == 0) {
    p_ += 5;
    return NewValue(boost::any(false));
  }
  if (left >= 4 && std::memcmp(p_, "null", 4) == 0) {
    p_ += 4;
    return NewValue(boost::any(G_NullType));
  }
  Fail(kPrimitiveError);
}

// The usual forms: an integer of up to 19 digits, or digits, "." and digits
// with at most 19 digits in all and an exponent of up to three digits. All
// else (longer numbers, the rarer shapes) goes to ParseNumberSlowly.
JSONValue Parser::ParseNumber() {
  const UTF8Char* start = p_;
  const bool negative = *p_ == '-';
  if (negative) ++p_;
  const UTF8Char* digits = p_;
  std::uint64_t mantissa = 0;
  while (p_ != end_ && IsDigit(*p_)) mantissa = mantissa * 10 + (*p_++ - '0');
  const std::size_t integerDigits = static_cast<std::size_t>(p_ - digits);
  if (integerDigits == 0 || integerDigits > 19) return ParseNumberSlowly(start);
  if (p_ == end_ || !IsNumberChar(*p_)) {
    if (!negative) return NewValue(boost::any(static_cast<std::uint64_t>(mantissa)));
    if (mantissa <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
      return NewValue(boost::any(-static_cast<std::int64_t>(mantissa)));
    return ParseNumberSlowly(start);
  }
  long exponent = 0;
  if (*p_ == '.') {
    const UTF8Char* fraction = ++p_;
    while (p_ != end_ && IsDigit(*p_)) mantissa = mantissa * 10 + (*p_++ - '0');
    const std::size_t fractionDigits = static_cast<std::size_t>(p_ - fraction);
    if (fractionDigits == 0 || integerDigits + fractionDigits > 19) return ParseNumberSlowly(start);
    exponent = -static_cast<long>(fractionDigits);
  }
  if (p_ != end_ && (*p_ == 'e' || *p_ == 'E')) {
    ++p_;
    bool exponentNegative = false;
    if (p_ != end_ && (*p_ == '+' || *p_ == '-')) exponentNegative = *p_++ == '-';
    const UTF8Char* exponentDigits = p_;
    while (p_ != end_ && IsDigit(*p_)) ++p_;
    const std::size_t count = static_cast<std::size_t>(p_ - exponentDigits);
    if (count == 0 || count > 3) return ParseNumberSlowly(start);
    long written = 0;
    for (const UTF8Char* d = exponentDigits; d != p_; ++d) written = written * 10 + (*d - '0');
    exponent += exponentNegative ? -written : written;
  }
  if (p_ != end_ && IsNumberChar(*p_)) return ParseNumberSlowly(start);
  double value;
  if (mantissa <= (std::uint64_t{1} << 53) && exponent >= -22 && exponent <= 22) {
    // Both operands are exact, so the one rounding gives the nearest double.
    value = static_cast<double>(mantissa);
    value = exponent < 0 ? value / kExactPowers[-exponent] : value * kExactPowers[exponent];
  } else {
    const auto result = std::from_chars(reinterpret_cast<const char*>(start + negative),
                                        reinterpret_cast<const char*>(p_), value);
    if (result.ec != std::errc()) return ParseNumberSlowly(start);
  }
  return NewValue(boost::any(negative ? -value : value));
}

// Any run of number characters: "." switches to the fraction, "e" or "E" to
// the exponent, "+" and "-" after the first position set the exponent's
// sign. Digits are kept whole, so that the value is exact however many
// there are; the exponent saturates far beyond any double's range.
JSONValue Parser::ParseNumberSlowly(const UTF8Char* start) {
  enum class Part { kInteger, kFraction, kExponent };
  p_ = start;
  const bool negative = *p_ == '-';
  if (negative) ++p_;
  Part part = Part::kInteger;
  std::string digits;  // significant digits of integer and fraction
  long long fractionDigits = 0, exponent = 0;
  bool exponentNegative = false, isInteger = true;
  for (; p_ != end_ && IsNumberChar(*p_); ++p_) {
    const UTF8Char c = *p_;
    if (IsDigit(c)) {
      if (part == Part::kExponent) {
        if (exponent < 1000000000) exponent = exponent * 10 + (c - '0');
      } else {
        if (part == Part::kFraction) ++fractionDigits;
        if (!digits.empty() || c != '0') digits.push_back(static_cast<char>(c));
      }
    } else if (c == '.') {
      part = Part::kFraction;
      isInteger = false;
    } else if (c == 'e' || c == 'E') {
      part = Part::kExponent;
      isInteger = false;
    } else {
      exponentNegative = c == '-';
    }
  }
  if (isInteger) {
    std::uint64_t magnitude = 0;
    const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), magnitude);
    const bool fits = digits.empty() || result.ec == std::errc();
    if (fits && !negative) return NewValue(boost::any(magnitude));
    if (fits && magnitude <= std::uint64_t{1} << 63)
      return NewValue(boost::any(static_cast<std::int64_t>(0 - magnitude)));
    const double value = DecimalToDouble(digits, 0);
    return NewValue(boost::any(negative ? -value : value));
  }
  const double value =
      DecimalToDouble(digits, (exponentNegative ? -exponent : exponent) - fractionDigits);
  return NewValue(boost::any(negative ? -value : value));
}

JSONValue Parser::Parse() {
  SkipSpace();
  if (p_ == end_) return NewValue(boost::any());
  JSONValue value;
  for (;;) {
    // A value starts at p_. The text can end here only inside a container,
    // whose own check then fails.
    if (p_ == end_) Fail(stack_.back().members ? kObjectError : kArrayError);
    switch (*p_) {
      case '"':
        value = ParseString();
        break;
      case '-':
      case '0':
      case '1':
      case '2':
      case '3':
      case '4':
      case '5':
      case '6':
      case '7':
      case '8':
      case '9':
        value = ParseNumber();
        break;
      case 't':
      case 'f':
      case 'n':
        value = ParsePrimitive();
        break;
      case '[':
        ++p_;
        SkipSpace();
        if (!At(']')) {
          stack_.emplace_back().first = elements_.size();
          continue;  // on to the first element
        }
        ++p_;
        value = NewValue(boost::any(JSONArray()));
        break;
      case '{': {
        ++p_;
        SkipSpace();
        if (At('}')) {
          ++p_;
          value = NewValue(boost::any(JSONObject()));
          break;
        }
        Frame& frame = stack_.emplace_back();
        frame.object = NewValueOf<JSONObject>(frame.members);
        ReadKey(frame.key);
        continue;  // on to the first member's value
      }
      default:
        Fail(kValueError);
    }
    // `value` is whole: it goes into the container it belongs to, and every
    // container that ends right after it is closed and goes into its own.
    for (;;) {
      SkipSpace();
      if (stack_.empty()) {
        if (p_ != end_) Fail(kValueError);
        return value;
      }
      Frame& frame = stack_.back();
      if (frame.members == nullptr) {
        elements_.push_back(std::move(value));
        if (At(',')) {
          ++p_;
          SkipSpace();
          break;
        }
        if (!At(']')) Fail(kArrayError);
        ++p_;
        const auto first = elements_.begin() + static_cast<std::ptrdiff_t>(frame.first);
        value = NewValue(boost::any(
            JSONArray(std::make_move_iterator(first), std::make_move_iterator(elements_.end()))));
        elements_.erase(first, elements_.end());
      } else {
        frame.members->insert_or_assign(std::move(frame.key), std::move(value));
        if (At(',')) {
          ++p_;
          SkipSpace();
          ReadKey(frame.key);
          break;
        }
        if (!At('}')) Fail(kObjectError);
        ++p_;
        value = std::move(frame.object);
      }
      stack_.pop_back();
    }
  }
}

}  // namespace

JSONValue JSONParse(const UTF8Char* text, std::size_t length) {
  if (text == nullptr) return NewValue(boost::any());
  return Parser(text, text + length).Parse();
}

JSONValue JSONParse(const UTF8String& text) { return JSONParse(text.data(), text.size()); }

JSONValue JSONParse(const UTF8Char* text) {
  return JSONParse(text, text ? std::strlen(reinterpret_cast<const char*>(text)) : 0);
}

JSONValue JSONParse(const UTF16String& text) { return JSONParse(utility::UTF16to8(text)); }

}  // namespace tvxcore::serialization
