#include "tvxcore/utility/StringUtils.h"

namespace tvxcore::utility {

UTF16String GetLineEnding(LineEndingType type) {
  switch (type) {
    case kLineEndingCRLF:
      return u"\r\n";
    case kLineEndingCR:
      return u"\r";
    case kLineEndingLF:
      return u"\n";
    default:
      return UTF16String();
  }
}

void ConvertLineEndings(LineEndingType type, UTF16String& text) {
  const UTF16String ending = GetLineEnding(type);
  UTF16String result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const UTF16Char u = text[i];
    if (u == u'\r') {
      if (i + 1 < text.size() && text[i + 1] == u'\n') ++i;
      result += ending;
    } else if (u == u'\n') {
      result += ending;
    } else {
      result.push_back(u);
    }
  }
  text = std::move(result);
}

void ReplaceAllStringInString(UTF16String& text, const UTF16String& from, const UTF16String& to) {
  if (from.empty()) return;
  UTF16String result;
  std::size_t start = 0;
  for (std::size_t found; (found = text.find(from, start)) != UTF16String::npos;
       start = found + from.size()) {
    result.append(text, start, found - start);
    result += to;
  }
  if (start == 0) return;
  result.append(text, start, UTF16String::npos);
  text = std::move(result);
}

UTF16String ReplaceInString(const UTF16String& pattern, const UTF16String& r0,
                            const UTF16String& r1, const UTF16String& r2, const UTF16String& r3,
                            const UTF16String& r4, const UTF16String& r5, const UTF16String& r6,
                            const UTF16String& r7, const UTF16String& r8, const UTF16String& r9) {
  const UTF16String* values[] = {&r0, &r1, &r2, &r3, &r4, &r5, &r6, &r7, &r8, &r9};
  UTF16String result;
  result.reserve(pattern.size());
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    const UTF16Char u = pattern[i];
    if (u != u'@' || i + 1 == pattern.size()) {
      result.push_back(u);
      continue;
    }
    const UTF16Char next = pattern[++i];
    if (next >= u'0' && next <= u'9') {
      result += *values[next - u'0'];
    } else if (next == u'@') {
      result.push_back(u'@');
    } else {
      result.push_back(u'@');
      result.push_back(next);
    }
  }
  return result;
}

UTF16String ReplaceInString(const UTF16String& pattern, const std::vector<UTF16String>& values) {
  const UTF16String empty;
  auto at = [&](std::size_t i) -> const UTF16String& {
    return i < values.size() ? values[i] : empty;
  };
  return ReplaceInString(pattern, at(0), at(1), at(2), at(3), at(4), at(5), at(6), at(7), at(8),
                         at(9));
}

std::size_t LocateSingleAmpersandInString(const UTF16String& text, bool displayPosition) {
  std::size_t pairs = 0;
  for (std::size_t i = 0; i + 1 < text.size(); ++i) {
    if (text[i] != u'&') continue;
    const UTF16Char next = text[i + 1];
    if (next == u'&') {
      ++pairs;
      ++i;
    } else if (next != u' ') {
      return displayPosition ? i - pairs : i;
    }
  }
  return static_cast<std::size_t>(-1);
}

void StripDisplayString(UTF16String& text, bool removeParenthesized) {
  if (removeParenthesized) {
    for (std::size_t i = 0; i + 3 < text.size(); ++i) {
      if (text[i] == u'(' && text[i + 1] == u'&' && text[i + 3] == u')') {
        text.erase(i, 4);
        break;
      }
    }
  }
  // One pass does what removing each mark as it is found would: a pair gives
  // one "&", a mark is dropped, an "&" that is last or before a blank stays.
  UTF16String result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const UTF16Char u = text[i];
    if (u != u'&' || i + 1 == text.size() || text[i + 1] == u' ') {
      result.push_back(u);
    } else if (text[i + 1] == u'&') {
      result.push_back(u'&');
      ++i;
    }
  }
  text = std::move(result);
}

}  // namespace tvxcore::utility
