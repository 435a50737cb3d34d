// tvxhost's one way of reading the command line. Every argument is parsed
// strictly: a number must be all of the text and in range, text must be
// valid UTF-8, nothing is wrapped, cut or guessed. Each failure throws
// UsageError with a message that names the argument and what it accepts.
#pragma once

#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "Host.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxhost {

// `text` for a message: quoted, control characters and bytes that aren't
// UTF-8 as \xNN, cut with "..." beyond 60 characters.
std::string Quoted(std::string_view text);

// The first byte of `text` that isn't part of a valid UTF-8 sequence
// (overlong forms and encoded surrogates are not valid), or npos.
std::size_t FindInvalidUtf8(std::string_view text);

// `text` as UTF-16; UsageError naming `what` when it isn't valid UTF-8.
tvxcore::UTF16String TextArg(std::string_view text, std::string_view what);

// A path as the kernel names it (any bytes but NUL); UsageError when empty.
tvxcore::UTF16String PathArg(std::string_view text, std::string_view what);

// A whole decimal number in [min, max]: digits with an optional leading "-",
// nothing else.
template <typename T>
T ParseInteger(std::string_view text, std::string_view what, T min = std::numeric_limits<T>::min(),
               T max = std::numeric_limits<T>::max()) {
  static_assert(std::is_integral_v<T>);
  auto fail = [&]() -> T {
    throw UsageError(std::string(what) + " must be a whole number from " + std::to_string(min) +
                     " to " + std::to_string(max) + ", not " + Quoted(text));
  };
  if (text.empty() || text.size() > 64) fail();
  // Parsed in the widest type of the same signedness, so that "-1" for an
  // unsigned type is out of range rather than malformed.
  using Wide = std::conditional_t<std::is_signed_v<T>, long long, unsigned long long>;
  const bool negative = text.front() == '-';
  Wide value{};
  std::from_chars_result result{};
  if (std::is_unsigned_v<T> && negative) {
    long long signedValue = 0;
    result = std::from_chars(text.data(), text.data() + text.size(), signedValue);
    if (result.ec == std::errc() && result.ptr == text.data() + text.size()) fail();  // below 0
  } else {
    result = std::from_chars(text.data(), text.data() + text.size(), value);
  }
  if (result.ec != std::errc() || result.ptr != text.data() + text.size()) fail();
  if (value < static_cast<Wide>(min) || value > static_cast<Wide>(max)) fail();
  return static_cast<T>(value);
}

// A finite decimal number of type T (float or double) in the classic form:
// "-12.5", "1e-3". Infinity, NaN, hexadecimal forms and values beyond T's
// range are refused.
template <typename T>
T ParseReal(std::string_view text, std::string_view what) {
  static_assert(std::is_floating_point_v<T>);
  const char* range = sizeof(T) == sizeof(float) ? "-3.4e38 to 3.4e38" : "-1.7e308 to 1.7e308";
  auto fail = [&]() -> T {
    throw UsageError(std::string(what) + " must be a decimal number such as 1234.5, from " + range +
                     ", not " + Quoted(text));
  };
  if (text.empty() || text.size() > 400) fail();
  T value{};
  const auto result =
      std::from_chars(text.data(), text.data() + text.size(), value, std::chars_format::general);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size() || !std::isfinite(value))
    fail();
  return value;
}

// The options and operands of one subcommand. Options may stand before,
// between or after the operands; "--" makes everything after it an operand.
// A word that begins with "-" and a digit or "." is a (negative) number, not
// an option. "--name=value" and "--name value" both give a value.
class ArgList {
 public:
  struct Option {
    std::string name;   // "--digits", or "-r"
    std::string alias;  // another spelling, or empty
    bool takesValue;
  };
  // `operands` names the operands in order for messages, e.g. {"<from>",
  // "<to>"}; a last name that ends in "..." takes any number (at least one).
  // Names in square brackets are optional.
  ArgList(const Args& args, const std::vector<Option>& options,
          const std::vector<std::string>& operands);

  bool Has(const std::string& option) const { return values_.count(option) != 0; }
  // The value of an option that takes one, or `fallback` when not given.
  const std::string& Value(const std::string& option, const std::string& fallback) const;
  const std::vector<std::string>& Operands() const { return operands_; }
  std::size_t Count() const { return operands_.size(); }
  const std::string& operator[](std::size_t index) const { return operands_[index]; }

 private:
  std::map<std::string, std::string> values_;
  std::vector<std::string> operands_;
};

}  // namespace tvxhost
