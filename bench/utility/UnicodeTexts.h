// Text generator shared by the Unicode benchmarks: five kinds of text (ASCII,
// Latin, CJK, emoji, mixed) made from a fixed seed, cut at a sequence boundary.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace tvxbench {

inline void Append(std::uint32_t cp, std::string& out) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

enum class Kind { kAscii, kLatin, kCJK, kEmoji, kMixed };
inline const char* KindName(Kind k) {
  switch (k) {
    case Kind::kAscii:
      return "ascii";
    case Kind::kLatin:
      return "latin";
    case Kind::kCJK:
      return "cjk";
    case Kind::kEmoji:
      return "emoji";
    default:
      return "mixed";
  }
}

// Words of letters from the kind's repertoire separated by blanks; "mixed"
// draws each word from a different script (mostly ASCII and Latin, some CJK,
// an emoji now and then), as in user-visible text of an international app.
inline std::uint32_t Letter(Kind k, std::mt19937& r) {
  static const std::uint32_t latin[] = {0xE9, 0xE8, 0xE0, 0xFC, 0xF6,
                                        0xE4, 0xDF, 0xE7, 0xF1, 0x107};
  switch (k) {
    case Kind::kAscii:
      return 'a' + r() % 26;
    case Kind::kLatin:
      return r() % 5 == 0 ? latin[r() % 10] : 'a' + r() % 26;
    case Kind::kCJK:
      return 0x4E00 + r() % 0x5000;
    case Kind::kEmoji:
      return 0x1F300 + r() % 0x300;
    default:
      return 'a';
  }
}
inline std::string MakeText(Kind kind, std::size_t bytes) {
  std::mt19937 r(20240611);
  std::string out;
  while (out.size() < bytes + 8) {
    Kind wordKind = kind;
    if (kind == Kind::kMixed) {
      const unsigned pick = r() % 20;
      wordKind = pick < 9    ? Kind::kAscii
                 : pick < 15 ? Kind::kLatin
                 : pick < 19 ? Kind::kCJK
                             : Kind::kEmoji;
    }
    const int letters = 2 + static_cast<int>(r() % 8);
    for (int i = 0; i < letters; ++i) Append(Letter(wordKind, r), out);
    if (wordKind != Kind::kCJK && wordKind != Kind::kEmoji) out += ' ';
  }
  // Cut back to a sequence boundary at or below the size.
  std::size_t n = bytes;
  while (n > 0 && (static_cast<unsigned char>(out[n]) & 0xC0) == 0x80) --n;
  return out.substr(0, n);
}

}  // namespace tvxbench
