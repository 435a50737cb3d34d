// Calculate returns a number for any text, in bounded time and stack, and for
// texts short enough to evaluate recursively it returns exactly what the
// straightforward recursive form of its splitting rules returns.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <utility>

#include "tvxcore/utility/NumberText.h"

namespace {

using tvxcore::UTF16Char;
using tvxcore::UTF16String;
using namespace tvxcore::utility;

bool IsOperator(UTF16Char u) {
  return u == u'+' || u == u'-' || u == u'*' || u == u'/' || u == u'e' || u == u'E' || u == u'^';
}

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

// The rules as written, one recursion per split and per stripped pair.
double Reference(UTF16String text, NumberFlags flags) {
  std::erase_if(text, [](UTF16Char u) {
    return !((u >= u'0' && u <= u'9') || u == u'(' || u == u')' || u == u'+' || u == u'-' ||
             u == u'*' || u == u'/' || u == u'.' || u == u',' || u == u'^' || u == u'e' ||
             u == u'E');
  });
  if (text.size() < 2) return StringToNumber(text, flags);
  while (text.size() > 1 && text.front() == u'(' && text.back() == u')') {
    UTF16String inner = text.substr(1, text.size() - 2);
    if (!Balanced(inner)) break;
    text = std::move(inner);
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
      } else if (IsOperator(u)) {
        if (i == 0 || IsOperator(text[i - 1])) {
          text.erase(i, 1);
          continue;
        }
        (u == u'*' ? times : u == u'/' ? divide : u == u'^' ? power : exponent) = i;
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
  const double left = split == 0 ? 0 : Reference(text.substr(0, split), flags);
  const double right = Reference(text.substr(split + 1), flags);
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

// Short enough for the recursion of Reference on any thread's stack.
constexpr std::size_t kCompareUpTo = 1500;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Bytes map onto the characters the evaluator reads, plus a few it drops
  // (the last entry is the zero unit).
  static const char16_t kAlphabet[] = u"0123456789()+-*/.,^eE x\uFF11\u3002";
  UTF16String text;
  for (std::size_t i = 1; i < size; ++i) text.push_back(kAlphabet[data[i] % 26]);
  NumberFlags flags = size > 0 ? data[0] & 0x7F : 0;
  const double result = Calculate(text, flags);
  if (text.size() <= kCompareUpTo) {
    UTF16String prepared = text;
    if (!flags.IsSet(kNumberPlainInput)) DeInternationalizeNum(prepared);
    flags.Set(kNumberPlainInput);
    const double expected = Reference(prepared, flags);
    if (std::memcmp(&result, &expected, sizeof result) != 0 &&
        !(std::isnan(result) && std::isnan(expected))) {
      std::abort();
    }
  }
  return 0;
}
