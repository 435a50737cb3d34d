#include <gtest/gtest.h>

#include <sstream>
#include <string>

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

TEST(TextStreams, FormatAndParseNumbersInBothWidths) {
  oUTF16StringStream out16;
  out16 << 42 << u' ' << 1.5 << u" " << -7L << u" " << true;
  EXPECT_EQ(out16.str(), u"42 1.5 -7 1");
  oUTF8StringStream out8;
  out8 << 3.25 << static_cast<unsigned char>('!') << 1000000;
  EXPECT_EQ(out8.str(), UTF8String(AsciiToUTF8Impl("3.25!1000000")));
  iUTF8StringStream in8(UTF8String(AsciiToUTF8Impl(" 12 2.5e1 x")));
  int i = 0, hex = 0, seven = 0;
  double d = 0;
  in8 >> i >> d;
  EXPECT_EQ(i, 12);
  EXPECT_EQ(d, 25);
  iUTF16StringStream in16(u"0x1F");
  in16 >> std::hex >> hex;
  EXPECT_EQ(hex, 31);
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
  std::stringbuf log;
  std::streambuf* out = SetStreamBuffer(streams::Out, &log);
  streams::Out << "hello " << 7;
  SetStreamBuffer(streams::Out, out);
  EXPECT_EQ(log.str(), "hello 7");
}

}  // namespace
