// Helpers shared by the property list and XML tests: literals of the library's
// string types, hostile documents, a list of every type and a fixture that
// installs the expat parser.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <list>
#include <string>
#include <string_view>

#include "tvxcore/proplist/PropList.h"
#include "tvxcore/proplist/PropListUtils.h"
#include "tvxcore/utility/StringTypes.h"
#include "tvxcore/xml/ExpatParser.h"

namespace tvxtest {

inline tvxcore::UTF8String U8(std::string_view text) {
  return tvxcore::UTF8String(reinterpret_cast<const tvxcore::UTF8Char*>(text.data()), text.size());
}
inline tvxcore::UTF16String U16(std::u16string_view text) {
  return tvxcore::UTF16String(text.data(), text.size());
}
inline std::string Str(const tvxcore::UTF8String& text) {
  return std::string(text.begin(), text.end());
}

// What the library writes for `list`, version included.
inline std::string WriteText(const tvxcore::proplist::PropList& list) {
  tvxcore::UTF8String text;
  tvxcore::proplist::utils::WritePropList(text, list);
  return Str(text);
}

// The text the writer gives for a pair, a list of pairs and an array.
inline std::string Pair(const std::string& key, const std::string& node) {
  return "<prop.pair>\n<key>" + key + "</key>\n" + node + "</prop.pair>\n";
}
inline std::string List(const std::string& pairs) {
  return "<prop.list>\n" + pairs + "</prop.list>\n";
}
inline std::string Array(const std::string& type, const std::string& items) {
  return "<array>\n<array.type>" + type + "</array.type>\n" + items + "</array>\n";
}

// `text` as UTF-16 little endian bytes behind a byte order mark.
inline std::string UTF16LE(std::u16string_view text) {
  std::string bytes = "\xFF\xFE";
  for (char16_t c : text) {
    bytes.push_back(static_cast<char>(c & 0xFF));
    bytes.push_back(static_cast<char>(c >> 8));
  }
  return bytes;
}

// A document type whose entity e8 stands for 10^9 characters, ten references
// at each of eight levels.
inline std::string EntityBombDoctype() {
  std::string doctype = "<!DOCTYPE m [<!ENTITY e0 'xxxxxxxxxx'>";
  for (int i = 1; i <= 8; ++i) {
    doctype += "<!ENTITY e" + std::to_string(i) + " '";
    for (int j = 0; j < 10; ++j) doctype += "&e" + std::to_string(i - 1) + ";";
    doctype += "'>";
  }
  return doctype + "]>";
}

// One value of every type under its own key, with extreme numbers, reserved
// characters, a sub-list, and in "empty" empty strings, an empty sub-list and
// empty arrays of text and of numbers.
inline void FillEveryType(tvxcore::proplist::PropList& list) {
  using tvxcore::UTF16String;
  using tvxcore::UTF8String;
  list.SetValue(U8("ustring"), U16(u"\u00e9t\u00e9 \"<&>\" \U0001F600"));
  list.SetValue(U8("string"), U8("a \"quoted\" <tag> & 'more'"));
  list.SetValue(U8("bool"), true);
  list.SetValue(U8("u16"), std::uint16_t{65535});
  list.SetValue(U8("u32"), std::uint32_t{4294967295u});
  list.SetValue(U8("i32"), std::int32_t{-2147483647 - 1});
  list.SetValue(U8("i64"), std::numeric_limits<long long>::min());
  list.SetValue(U8("u64"), std::numeric_limits<unsigned long long>::max());
  list.SetValue(U8("float"), -1.5e-3f);
  list.SetValue(U8("double"), 6.25e300);
  list.NewSubList(U8("sub"))->SetValue(U8("inner"), std::int32_t{7});
  list.SetValue(U8("a.ustring"), std::list<UTF16String>{U16(u"x<"), U16(u"\u4e2d")});
  list.SetValue(U8("a.string"), std::list<UTF8String>{U8("&"), UTF8String()});
  list.SetValue(U8("a.bool"), std::list<bool>{true, false});
  list.SetValue(U8("a.u16"), std::list<std::uint16_t>{1, 65535});
  list.SetValue(U8("a.u32"), std::list<std::uint32_t>{0, 4294967295u});
  list.SetValue(U8("a.i32"), std::list<std::int32_t>{-4});
  list.SetValue(U8("a.i64"), std::list<long long>{-5});
  list.SetValue(U8("a.u64"), std::list<unsigned long long>{6});
  list.SetValue(U8("a.float"), std::list<float>{0.25f, 3});
  list.SetValue(U8("a.double"), std::list<double>{0.5, -2, 1e10});
  tvxcore::proplist::PropList* empty = list.NewSubList(U8("empty"));
  empty->SetValue(U8("ustring"), UTF16String());
  empty->SetValue(U8("string"), UTF8String());
  empty->NewSubList(U8("sub"));
  empty->SetValue(U8("a.string"), std::list<UTF8String>{});
  empty->SetValue(U8("a.double"), std::list<double>{});
}

// Keys and values holding what XML 1.0 cannot carry: control characters, a
// zero, lone and reversed surrogates, the two noncharacters, stray bytes in
// UTF-8, a carriage return, and the writer's own escape character, alone and
// before hexadecimal digits.
inline void FillUnrepresentable(tvxcore::proplist::PropList& list) {
  using tvxcore::UTF16String;
  UTF16String units = U16(u"a\u0001b\u001F\u000B\u000C");
  units += {0, 0xD800, 0xDC00, 0xDBFF, 0xFFFE, 0xFFFF, u'\r', u'\n', u'\t', 0xE01B};
  units += U16(u"\uE01B0041\U0001F600");
  units += {0xDC00, 0xD800, 0xDFFF};
  list.SetValue(U8("ustring"), units);
  list.SetValue(U8("lone high at the end"), UTF16String(1, 0xD83D));
  list.SetValue(U8("string"), U8(std::string_view("x\x01\x00\x1F\r\xFF\xC3 \xED\xA0\x80\xEF\xBF\xBF"
                                                  "\xEE\x80\x9B\xEE\x80\x9B"
                                                  "00e9\xF4\x90\x80\x80\xC0\xAF\xE2\x82",
                                                  32)));
  list.SetValue(U8("key \x02\x7F\x1B \xEE\x80\x9B end \r"), true);
  list.SetValue(U8("\xFE"), std::int32_t{3});
  list.SetValue(U8("a.ustring"),
                std::list<UTF16String>{units, UTF16String(1, 0xDC00), UTF16String()});
  list.SetValue(U8("a.string"), std::list<tvxcore::UTF8String>{U8("\x01"), U8("\xFF\r")});
  list.NewSubList(U8("sub\x03"))->SetValue(U8("\x04"), U16(u"\u0005"));
}

inline void InstallExpat() {
  std::unique_ptr<tvxcore::xml::DocParserFactory> factory =
      std::make_unique<tvxcore::xml::ExpatParserFactory>();
  tvxcore::xml::SetParserFactory(factory);
}

// Installs the expat parser factory for the test and removes it afterwards.
class ExpatFactoryTest : public ::testing::Test {
 protected:
  void SetUp() override { InstallExpat(); }
  void TearDown() override { tvxcore::xml::ResetParserFactory(); }
};

}  // namespace tvxtest
