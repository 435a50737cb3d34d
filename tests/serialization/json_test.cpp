#include <gtest/gtest.h>

#include <boost/thread/thread.hpp>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <string_view>

#include "tvxcore/serialization/JSON.h"
#include "tvxcore/utility/UnicodeConversion.h"

using namespace tvxcore;
using namespace tvxcore::serialization;

namespace {

UTF8String U8(std::string_view text) {
  return UTF8String(reinterpret_cast<const UTF8Char*>(text.data()), text.size());
}
std::string Str(const UTF8String& text) { return std::string(text.begin(), text.end()); }
std::string Write(const JSONValue& value) { return Str(GetJSONUTF8String(*value)); }

// The text of the error JSONParse throws for `text`, or "" when it parses.
std::string ErrorOf(std::string_view text, std::size_t* offset = nullptr) {
  try {
    JSONParse(U8(text));
  } catch (const JSONParseError& error) {
    if (offset) *offset = error.Offset();
    return error.what();
  }
  return "";
}

// Runs `body` on a thread with a 256 KiB stack, where recursion per level of
// a deep tree would overflow at once.
template <typename Body>
void OnSmallStack(Body body) {
  boost::thread::attributes attributes;
  attributes.set_stack_size(256 * 1024);
  boost::thread thread(attributes, body);
  thread.join();
}

constexpr double kInf = std::numeric_limits<double>::infinity();

}  // namespace

TEST(JSON, NumbersHaveTheirKindAndNearestValue) {
  const std::string tinyFraction = "0." + std::string(10000, '0') + "1";
  const std::string longThird = "0." + std::string(10000, '3');
  struct Row {
    std::string text;
    char kind;          // u unsigned, s signed, d double
    long double value;  // holds every unsigned and signed 64-bit value exactly
  } rows[] = {
      {"5", 'u', 5},
      {"-5", 's', -5},
      {"5.0", 'd', 5},
      {"0", 'u', 0},
      {"007", 'u', 7},
      {"18446744073709551615", 'u', 18446744073709551615.0L},
      {"-9223372036854775808", 's', -9223372036854775808.0},
      {"18446744073709551616", 'd', 18446744073709551616.0},
      {"-9223372036854775809", 'd', -9223372036854775809.0},
      {"1E2", 'd', 100},
      {"1e-2", 'd', 0.01},
      {"0.30000000000000004", 'd', 0.30000000000000004},
      {"1.7976931348623157e308", 'd', 1.7976931348623157e308},
      {"4.9406564584124654e-324", 'd', 4.9406564584124654e-324},
      {"1e-400", 'd', 0},
      {"-1e999", 'd', -kInf},
      {"1e99999999999999999999", 'd', kInf},
      {tinyFraction, 'd', 0},
      {longThird, 'd', 1.0 / 3},
      // The scanner's own rules: a bare point or exponent, and a sign after
      // the first position, which sets the exponent's sign.
      {"1.", 'd', 1},
      {"1e", 'd', 1},
      {"-", 's', 0},
      {"1e5-", 'd', 1e-5},
      {"1-2", 'u', 12},
      {"2.5e-1+", 'd', 25},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.text.substr(0, 40));
    const JSONValue value = JSONParse(U8("[" + row.text + "]"));
    const boost::any& number = *boost::any_cast<const JSONArray&>(*value).at(0);
    switch (row.kind) {
      case 'u':
        EXPECT_EQ(boost::any_cast<std::uint64_t>(number), static_cast<std::uint64_t>(row.value));
        break;
      case 's':
        EXPECT_EQ(boost::any_cast<std::int64_t>(number), static_cast<std::int64_t>(row.value));
        break;
      default:
        EXPECT_EQ(boost::any_cast<double>(number), static_cast<double>(row.value));
    }
  }
}

TEST(JSON, BadTextThrowsItsErrorWhereItStops) {
  const std::string deepOpen(1000000, '[');
  struct Row {
    std::string text;
    const char* error;
    std::size_t offset;
  } rows[] = {
      {"[1,]", "ParseValue unexpected char", 3},
      {"{}}", "ParseValue unexpected char", 2},
      {"\xef\xbb\xbf{}", "ParseValue unexpected char", 0},
      {"tru", "ParsePrimitive unexpected char", 0},
      {"[1 2]", "ParseArray unexpected char", 3},
      {"[", "ParseArray unexpected char", 1},
      {deepOpen, "ParseArray unexpected char", 1000000},
      {"{", "ParseObject unexpected char", 1},
      {"{\"a\" 1}", "ParseObject unexpected char", 5},
      {"{\"a\":1", "ParseObject unexpected char", 6},
      {"{\"a\":", "ParseObject unexpected char", 5},
      {"\"abc", "AdvanceString: unexpected char", 4},
      {"\"\\x\"", "AdvanceString: unexpected char", 2},
      {"\"\xff\"", "AdvanceString: unexpected char", 1},
      {"\"\xc3\"", "AdvanceString: unexpected char", 1},
      {"\"\xc0\x80\"", "AdvanceString: unexpected char", 1},
      {"\"\xe0\x9f\xbf\"", "AdvanceString: unexpected char", 1},
      {"\"\xf4\x90\x80\x80\"", "AdvanceString: unexpected char", 1},
      {"\"ok \xe2\x82\"", "AdvanceString: unexpected char", 4},
      {std::string("\"a\0b\"", 5), "AdvanceString: unexpected char", 2},
      {"\"\\u12\"", "EscapeString: unexpected char", 3},
      {"\"\\uZZZZ\"", "EscapeString: unexpected char", 3},
      {"\"\\uD800\\u12x\"", "EscapeString: unexpected char", 9},
      // The whole string is checked before any escape is decoded.
      {"\"\\uZZZZ\\q\"", "AdvanceString: unexpected char", 8},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.text.substr(0, 40));
    std::size_t offset = 0;
    EXPECT_EQ(ErrorOf(row.text, &offset), row.error);
    EXPECT_EQ(offset, row.offset);
  }
  // Every error is a std::runtime_error.
  EXPECT_THROW(JSONParse(U8("]")), std::runtime_error);
}

TEST(JSON, EmptyTextIsAnEmptyValue) {
  for (const char* text : {"", " \t\n\v\f\r"}) {
    const JSONValue value = JSONParse(U8(text));
    ASSERT_TRUE(value);
    EXPECT_TRUE(value->empty());
  }
  EXPECT_TRUE(JSONParse(static_cast<const UTF8Char*>(nullptr))->empty());
  // The zero-terminated form ends at the first zero byte.
  const char text[] = "{\"a\":1}\0garbage";
  EXPECT_EQ(Write(JSONParse(reinterpret_cast<const UTF8Char*>(text))), "{\"a\":1}");
  EXPECT_EQ(ErrorOf(std::string_view(text, sizeof text - 1)), "ParseValue unexpected char");
}

TEST(JSON, StringsDecodeTheirEscapes) {
  const struct {
    const char* text;
    std::string bytes;
  } rows[] = {
      {"\"plain\"", "plain"},
      {"\"\\\"\\\\\\/\\b\\f\\n\\r\\t\"", "\"\\/\b\f\n\r\t"},
      {"\"\\u00e9\\u00C9\"", "\xc3\xa9\xc3\x89"},
      {"\"\\u20AC\"", "\xe2\x82\xac"},
      {"\"\\ud83d\\ude00\"", "\xf0\x9f\x98\x80"},
      {"\"\\ud800x\"", "\xed\xa0\x80x"},
      {"\"\\ud800\\u0041\"",
       "\xed\xa0\x80"
       "A"},
      {"\"\\udc00\"", "\xed\xb0\x80"},
      {"\"a\\u0000b\"", std::string("a\0b", 3)},
      {"\"tab\there \xc3\xa9 \xf0\x9f\x98\x80 \xed\xa0\x80\"",
       "tab\there \xc3\xa9 \xf0\x9f\x98\x80 \xed\xa0\x80"},
      {"\"a long text without escapes, past one eight-byte step\"",
       "a long text without escapes, past one eight-byte step"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(Str(boost::any_cast<const UTF8String&>(*JSONParse(U8(row.text)))), row.bytes);
  }
  // Every string the parser accepts converts to UTF-16 whole.
  const UTF8String text = boost::any_cast<UTF8String>(*JSONParse(U8(rows[9].text)));
  std::size_t units = 0;
  utility::UnicodeErrorCode error;
  utility::UTF8to16(text, &error, &units);
  EXPECT_EQ(error, utility::kUnicodeNoError);
}

TEST(JSON, WritesCompactTextThatReadsBack) {
  const struct {
    const char* text;
    const char* written;
  } rows[] = {
      {" { \"b\" : [ 1 , -2 , 3.5 , true , false ] , \"a\" : \"x\" } ",
       "{\"a\":\"x\",\"b\":[1,-2,3.5,true,false]}"},
      {"{\"k\":1,\"k\":2}", "{\"k\":2}"},
      {"[[],{},[[]],\"\"]", "[[],{},[[]],\"\"]"},
      {"[5.0,5e0,-0.0,0.1,1e21,1e-7,1e999,-1e999]", "[5.0,5.0,-0.0,0.1,1e+21,1e-07,1e999,-1e999]"},
      {"[18446744073709551615,-9223372036854775808]",
       "[18446744073709551615,-9223372036854775808]"},
      {"\"\\u00e9\"", "\"\xc3\xa9\""},
      // Kept as they stand: no escaping, and null is "<ERROR>".
      {"[\"a\\\"b\",null]", "[\"a\"b\",<ERROR>]"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    const std::string written = Write(JSONParse(U8(row.text)));
    EXPECT_EQ(written, row.written);
    if (written.find('<') == std::string::npos && written.find("a\"b") == std::string::npos) {
      EXPECT_EQ(Write(JSONParse(U8(written))), written);
    }
  }
  // Any double reads back bit for bit.
  std::mt19937_64 random(20240611);
  for (int i = 0; i < 20000; ++i) {
    const std::uint64_t bits = random();
    double value;
    std::memcpy(&value, &bits, sizeof value);
    if (!std::isfinite(value)) continue;
    const JSONValue back = JSONParse(GetJSONUTF8String(boost::any(value)));
    const double got = boost::any_cast<double>(*back);
    ASSERT_EQ(std::memcmp(&got, &value, sizeof got), 0) << Write(back);
  }
}

TEST(JSON, WriterMarksWhatItCannotWrite) {
  EXPECT_EQ(Str(GetJSONUTF8String(boost::any())), "");
  EXPECT_EQ(Str(GetJSONUTF8String(boost::any(G_NullType))), "<ERROR>");
  EXPECT_EQ(Str(GetJSONUTF8String(boost::any(7))), "<ERROR>");
  EXPECT_EQ(Str(GetJSONUTF8String(boost::any(std::nan("")))), "null");
  boost::any array = JSONArray();
  AppendToArray(array, boost::any(std::uint64_t{1}));
  AppendToArray(array, JSONValue());
  AppendToArray(array, MakeJSONValue(boost::any()));
  AppendToArray(array, boost::any(std::int64_t{-2}));
  EXPECT_EQ(Str(GetJSONUTF8String(array)), "[1,,,-2]");
  // An array inside itself ends in "<ERROR>" rather than running on.
  const JSONValue cycle = MakeJSONValue(JSONArray());
  AppendToArray(*cycle, cycle);
  const std::string text = Write(cycle);
  EXPECT_NE(text.find("[<ERROR>]"), std::string::npos);
  boost::any_cast<JSONArray&>(*cycle).clear();
}

TEST(JSON, BuildsAndQueriesObjects) {
  EXPECT_EQ(Write(BuildCall("open", "a.txt", 3, -1, 2.5, true, U8("u8"), u"\u00e9", nullptr)),
            "{\"method\":\"open\",\"params\":[\"a.txt\",3,-1,2.5,true,\"u8\",\"\xc3\xa9\",\"\"]}");
  EXPECT_EQ(Write(BuildCall("ping")), "{\"method\":\"ping\",\"params\":[]}");
  const JSONValue call = BuildCall("open", 3);
  const JSONValue three = boost::any_cast<const JSONArray&>(*GetVariantInObject(call, "params"))[0];
  EXPECT_EQ(boost::any_cast<std::uint64_t>(*three), 3u);

  boost::any object = JSONObject();
  AddToObject(object, U8("u8"), boost::any(std::uint64_t{1}));
  AddToObject(object, UTF16String(u"u16"), MakeJSONValue(boost::any(true)));
  AddToObject(object, "c", boost::any(2.5));
  AddToObject(object, std::string("std"), ToJSONValue("text"));
  AddToObject(object, "c", JSONParse(U8("[1]")));  // replaces
  EXPECT_EQ(Str(GetJSONUTF8String(object)), "{\"c\":[1],\"std\":\"text\",\"u16\":true,\"u8\":1}");
  const JSONObject& map = boost::any_cast<const JSONObject&>(object);
  EXPECT_TRUE(ObjectHasProperty(map, "u16"));
  EXPECT_FALSE(ObjectHasProperty(map, "none"));
  EXPECT_FALSE(GetVariantInObject(map, "none"));
  EXPECT_EQ(boost::any_cast<bool>(*GetVariantInObject(map, "u16")), true);

  // A value of the wrong kind fails with the cast error, whose text is "bad cast".
  const JSONValue array = JSONParse(U8("[]"));
  boost::any empty;
  const std::function<void()> wrong[] = {
      [&] { GetVariantInObject(array, "a"); },
      [&] { ObjectHasProperty(JSONValue(), "a"); },
      [&] { AddToObject(*array, "a", boost::any(1)); },
      [&] { AddToObject(empty, "a", JSONValue()); },
      [&] { AppendToArray(object, JSONValue()); },
      [&] { AppendToArray(empty, boost::any(1)); },
  };
  for (const auto& call : wrong) {
    try {
      call();
      ADD_FAILURE() << "no exception";
    } catch (const boost::bad_any_cast& error) {
      EXPECT_STREQ(error.what(), "bad cast");
    }
  }
}

TEST(JSON, ParsesFromUTF16) {
  const JSONValue value = JSONParse(UTF16String(u"{\"k\":\"\u00e9\u20ac\"}"));
  EXPECT_EQ(GetJSONString(*value), UTF16String(u"{\"k\":\"\u00e9\u20ac\"}"));
}

TEST(JSON, NestingAMillionDeepNeverRecurses) {
  static constexpr std::size_t kDepth = 1000000;
  std::string arrays(kDepth, '[');
  arrays.append(kDepth, ']');
  std::string objects;
  for (std::size_t i = 0; i < kDepth; ++i) objects += "{\"a\":";
  objects += "1";
  objects.append(kDepth, '}');
  for (const std::string* text : {&arrays, &objects}) {
    OnSmallStack([text] {
      JSONValue value = JSONParse(U8(*text));
      EXPECT_EQ(Write(value), *text);
      std::size_t depth = 0;
      for (JSONValue at = value; at && at->type() != typeid(std::uint64_t); ++depth) {
        if (const JSONArray* array = boost::any_cast<JSONArray>(at.get())) {
          at = array->empty() ? JSONValue() : array->front();
        } else {
          at = GetVariantInObject(at, "a");
        }
      }
      EXPECT_EQ(depth, kDepth);
    });
  }
}
