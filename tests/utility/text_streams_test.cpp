#include <dlfcn.h>
#include <gtest/gtest.h>

#include <iomanip>
#include <limits>
#include <sstream>
#include <string>
#include <tuple>

#include "tvxcore/utility/TextStreams.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace {

using tvxcore::UTF16Char;
using tvxcore::UTF16String;
using tvxcore::UTF8String;
using namespace tvxcore::utility;

// Collects each flushed text, so tests can see where the flushes fell.
class Recorder : public tvxcore::debug::UTF16StreamBufferImpl<UTF16Char> {
 public:
  ~Recorder() override { pubsync(); }
  std::vector<UTF16String> texts;

 protected:
  void Write(const UTF16Char* text) override { texts.emplace_back(text); }
};

TEST(TextStreams, TwoWayStringStreamsReadAndWrite) {
  int seven = 0;
  UTF16StringStream both(u"7");
  both >> seven;
  both.clear();
  both << 8;
  EXPECT_EQ(seven, 7);
  EXPECT_EQ(both.str(), u"8");
  UTF8StringStream both8;
  both8 << 9;
  EXPECT_EQ(both8.str(), UTF8String(AsciiToUTF8Impl("9")));
}

template <typename Stream>
void Fill(Stream& stream, char c) {
  stream.fill(static_cast<typename Stream::char_type>(c));
}

template <typename String>
std::string Narrowed(const String& text) {
  std::string narrow;
  for (auto unit : text) narrow.push_back(static_cast<char>(unit));
  return narrow;
}

template <typename String>
String Widened(const std::string& text) {
  return String(text.begin(), text.end());
}

TEST(TextStreams, NumbersFollowEveryFormatFlagAsANarrowClassicStreamDoes) {
  const auto cases = std::make_tuple(
      [](auto& s) { s << std::hex << std::showbase << std::uppercase << 255; },
      [](auto& s) { s << std::setw(8) << std::internal << -42 << 7; },  // width applies once
      [](auto& s) {
        Fill(s, '*');
        s << std::left << std::setw(6) << 1.5 << std::right << std::setw(4) << true;
      },
      [](auto& s) { s << std::setprecision(36) << 0.1 << 1e300L; },
      [](auto& s) { s << std::numeric_limits<unsigned long long>::max(); },
      [](auto& s) { s << std::numeric_limits<long long>::min(); },
      [](auto& s) { s << static_cast<short>(-3) << static_cast<unsigned short>(7) << 9u << 4L; },
      [](auto& s) { s << static_cast<const void*>(nullptr); });
  int index = 0;
  std::apply(
      [&](auto... write) {
        (
            [&] {
              std::ostringstream narrow;
              narrow.imbue(std::locale::classic());
              write(narrow);
              oUTF16StringStream wide;
              write(wide);
              oUTF8StringStream utf8;
              write(utf8);
              EXPECT_EQ(wide.str(), Widened<UTF16String>(narrow.str())) << "case " << index;
              EXPECT_EQ(Narrowed(utf8.str()), narrow.str()) << "case " << index;
              EXPECT_TRUE(wide.good() && utf8.good()) << "case " << index;
              ++index;
            }(),
            ...);
      },
      cases);
  // A fill outside ASCII pads as it stands.
  oUTF16StringStream wide;
  wide.fill(u'\u2007');
  wide << std::setw(4) << 7;
  EXPECT_EQ(wide.str(), u"\u2007\u2007\u20077");
}

template <typename T, typename Setup>
void ExpectReadsAsANarrowClassicStream(const std::string& text, T start, Setup setup) {
  const auto read = [&](auto& stream) {
    setup(stream);
    T value = start;
    stream >> value;
    return std::make_tuple(value, stream.rdstate());
  };
  std::istringstream narrow(text);
  narrow.imbue(std::locale::classic());
  const auto expected = read(narrow);
  iUTF16StringStream wide(Widened<UTF16String>(text));
  iUTF8StringStream utf8(Widened<UTF8String>(text));
  EXPECT_EQ(read(wide), expected) << text;
  EXPECT_EQ(read(utf8), expected) << text;
}

TEST(TextStreams, NumbersReadAsANarrowClassicStreamReadsThem) {
  const auto none = [](auto&) {};
  const auto hex = [](auto& s) { s >> std::hex; };
  const auto words = [](auto& s) { s >> std::boolalpha; };
  ExpectReadsAsANarrowClassicStream(" \t\n12 rest", 5, none);
  ExpectReadsAsANarrowClassicStream("-5", 5u, none);
  ExpectReadsAsANarrowClassicStream("0x1F", 5, hex);
  ExpectReadsAsANarrowClassicStream("2.5e1x", 1.0, none);
  ExpectReadsAsANarrowClassicStream(".5", 1.0f, none);
  ExpectReadsAsANarrowClassicStream("1e5000", 1.0L, none);
  ExpectReadsAsANarrowClassicStream("18446744073709551615", 5ull, none);
  ExpectReadsAsANarrowClassicStream("true", false, words);

  // Nothing but white space: 0 and failure, where a narrow stream fails
  // before it reads and leaves the value as it was.
  iUTF8StringStream blank(Widened<UTF8String>(" \t"));
  int untouched = 5;
  blank >> untouched;
  EXPECT_EQ(untouched, 0);
  EXPECT_TRUE(blank.fail() && blank.eof());

  // Units outside ASCII end a number, and stay in the stream.
  iUTF16StringStream wide(u"12\u00E9 \uFF13");
  int first = 0, second = 5;
  wide >> first;
  EXPECT_EQ(first, 12);
  EXPECT_EQ(wide.get(), u'\u00E9');
  wide >> second;
  EXPECT_EQ(second, 0);  // a full-width digit is no digit
  EXPECT_TRUE(wide.fail());
}

TEST(TextStreams, LibraryDefinesNoMembersOfStandardFacets) {
  // The standard library defines ctype and numpunct for char and wchar_t only;
  // completing them for the library's unit types would define members of
  // standard classes, which the library must not export (nor define at all).
  for (const char* symbol : {
           "_ZNKSt5ctypeIDsE8do_widenEc",  // char16_t
           "_ZNKSt5ctypeIDsE5do_isEtDs",   //
           "_ZNSt5ctypeIDsED2Ev",          //
           "_ZNKSt5ctypeIhE8do_widenEc",   // unsigned char
           "_ZNSt7__cxx118numpunctIDsE22_M_initialize_numpunctEP15__locale_struct",  //
           "_ZNSt7__cxx118numpunctIhE22_M_initialize_numpunctEP15__locale_struct",   //
       }) {
    EXPECT_EQ(dlsym(RTLD_DEFAULT, symbol), nullptr) << symbol;
  }
}

TEST(TextStreams, BufferHandsOverOnFullAreaAndFlushOnly) {
  Recorder recorder;
  UTF16OutputStream stream(&recorder);
  stream << UTF16String(1500, u'x');
  ASSERT_EQ(recorder.texts.size(), 1u);
  EXPECT_EQ(recorder.texts[0], UTF16String(1024, u'x'));
  stream.flush();
  ASSERT_EQ(recorder.texts.size(), 2u);
  EXPECT_EQ(recorder.texts[1], UTF16String(476, u'x'));
  stream.flush();  // nothing pending: nothing written
  stream << u"tail";
  EXPECT_EQ(recorder.texts.size(), 2u);
}

TEST(TextStreams, StdOutBufferEndsEveryFlushWithALineBreak) {
  ::testing::internal::CaptureStdout();
  {
    tvxcore::debug::UTF16StdOutStreamBuffer<UTF16Char> buffer;
    UTF16OutputStream stream(&buffer);
    stream << u"abc";
    stream.flush();
    stream << u"line\n";
    stream.flush();
    stream << u"gr\u00FC\u00DF " << 12;
  }  // the destructor flushes the rest
  std::fflush(stdout);
  EXPECT_EQ(::testing::internal::GetCapturedStdout(), "abc\nline\n\ngr\xC3\xBC\xC3\x9F 12\n");
}

TEST(TextStreams, DebugBufferWritesTheTextAsItStands) {
  ::testing::internal::CaptureStderr();
  {
    tvxcore::debug::DebugStreamBuffer<UTF16Char> buffer;
    UTF16OutputStream stream(&buffer);
    stream << u"one " << 1 << u'\n';
    stream.flush();
    stream << u"\u65E5";
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "one 1\n\xE6\x97\xA5");
}

TEST(TextStreams, SetStreamBufferResetsTheStreamAndReturnsThePreviousBuffer) {
  Recorder first, second;
  UTF16OutputStream stream(&first);
  stream << std::hex << std::showbase;
  stream.width(9);
  stream.setstate(std::ios::failbit);
  EXPECT_EQ(SetStreamBuffer(stream, &second), &first);
  EXPECT_TRUE(stream.good());
  stream << 255 << u' ' << 1.5;
  stream.flush();
  ASSERT_EQ(second.texts.size(), 1u);
  EXPECT_EQ(second.texts[0], u"255 1.5");
  EXPECT_TRUE(first.texts.empty());

  std::stringbuf a, b;
  std::ostream narrow(&a);
  narrow.precision(2);
  narrow << std::uppercase << std::hex;
  narrow.setstate(std::ios::badbit);
  EXPECT_EQ(SetStreamBuffer(narrow, &b), &a);
  EXPECT_TRUE(narrow.good());
  narrow << 3.14159 << ' ' << 255;
  EXPECT_EQ(b.str(), "3.14159 255");
  EXPECT_EQ(a.str(), "");
  EXPECT_EQ(SetStreamBuffer(narrow, nullptr), &b);
  EXPECT_TRUE(narrow.bad());
}

TEST(TextStreams, GlobalStreamsCanBeRedirected) {
  EXPECT_EQ(&streams::Out, &std::cout);
  EXPECT_EQ(&streams::Err, &std::cerr);
  EXPECT_EQ(&streams::Log, &std::clog);
  EXPECT_EQ(&streams::In, &std::cin);
  Recorder recorder;
  auto* previous = SetStreamBuffer(streams::UTF16Out, &recorder);
  ASSERT_NE(previous, nullptr);
  streams::UTF16Out << u"to the log " << 5;
  streams::UTF16Out.flush();
  SetStreamBuffer(streams::UTF16Out, previous);
  ASSERT_EQ(recorder.texts.size(), 1u);
  EXPECT_EQ(recorder.texts[0], u"to the log 5");
}

}  // namespace
