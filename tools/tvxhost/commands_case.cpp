// "tvxhost case": the library's case mapping of a text given on the command
// line, printed as UTF-8.

#include <iostream>
#include <string>

#include "Host.h"
#include "tvxcore/utility/CaseMapping.h"

namespace tvxhost {
namespace {

using tvxcore::UTF16String;

// UTF-8 to UTF-16; stops at the first bad sequence and keeps what came before.
UTF16String FromUtf8(const std::string& inText) {
  UTF16String out;
  const auto* p = reinterpret_cast<const unsigned char*>(inText.data());
  const auto* end = p + inText.size();
  while (p < end) {
    const unsigned lead = *p;
    int extra = lead < 0x80                   ? 0
                : lead >= 0xC2 && lead < 0xE0 ? 1
                : lead >= 0xE0 && lead < 0xF0 ? 2
                : lead >= 0xF0 && lead < 0xF5 ? 3
                                              : -1;
    if (extra < 0 || end - p <= extra) break;
    char32_t c = extra == 0 ? lead : lead & (0x3F >> extra);
    bool good = true;
    for (int i = 1; i <= extra; ++i) {
      if ((p[i] & 0xC0) != 0x80) good = false;
      c = (c << 6) | (p[i] & 0x3F);
    }
    const char32_t least[] = {0, 0x80, 0x800, 0x10000};
    if (!good || c < least[extra] || c > 0x10FFFF || (c >= 0xD800 && c < 0xE000)) break;
    if (c >= 0x10000) {
      out.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
      out.push_back(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
    } else {
      out.push_back(static_cast<char16_t>(c));
    }
    p += extra + 1;
  }
  return out;
}

// UTF-16 to UTF-8; a lone surrogate is written as its own three bytes.
std::string ToUtf8(const UTF16String& inText) {
  std::string out;
  for (std::size_t i = 0; i < inText.size(); ++i) {
    char32_t c = inText[i];
    if (c >= 0xD800 && c < 0xDC00 && i + 1 < inText.size() && inText[i + 1] >= 0xDC00 &&
        inText[i + 1] < 0xE000) {
      c = 0x10000 + ((c - 0xD800) << 10) + (inText[++i] - 0xDC00);
    }
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

int RunCase(const Args& inArgs) {
  if (inArgs.size() < 2) return UsageError("case");
  std::string text = inArgs[1];
  for (std::size_t i = 2; i < inArgs.size(); ++i) text += ' ' + inArgs[i];
  const UTF16String in = FromUtf8(text);
  namespace u = tvxcore::utility;
  UTF16String out;
  if (inArgs[0] == "upper") {
    out = u::UpperCase(in);
  } else if (inArgs[0] == "lower") {
    out = u::LowerCase(in);
  } else if (inArgs[0] == "fold") {
    out = u::FoldCase(in);
  } else if (inArgs[0] == "title") {
    out = u::TitleCase(in);
  } else {
    return UsageError("case");
  }
  std::cout << ToUtf8(out) << '\n';
  return 0;
}

const Registrar kCaseCommands(CommandGroup{
    "case",
    {"upper <text>    the text in upper case (sharp s becomes SS)",
     "lower <text>    the text in lower case", "fold <text>     the text folded for comparison",
     "title <text>    each word capitalised, the rest in lower case"},
    RunCase});

}  // namespace
}  // namespace tvxhost
