// What reaches the debugger's output: DebugTrace, the default trace handler
// and SafeTraceStream, seen through the platform's capture seam (as though a
// debugger were attached).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/TestSeams.h"
#include "tvxcore/debug/SafeTraceStream.h"
#include "tvxcore/debug/TraceHandler.h"

namespace {

namespace dbg = tvxcore::debug;
namespace seams = tvxcore::platform::seams;

std::vector<std::string>& Written() {
  static std::vector<std::string> written;
  return written;
}

void Capture(const char* data, std::size_t size) { Written().emplace_back(data, size); }

class DebuggerOutput : public ::testing::Test {
 protected:
  void SetUp() override {
    Written().clear();
    seams::SetDebuggerOutputCapture(&Capture);
  }
  void TearDown() override { seams::SetDebuggerOutputCapture(nullptr); }
};

TEST_F(DebuggerOutput, DebugTraceAndTheDefaultHandlerWriteTheTextAsItStands) {
  dbg::DebugTrace("plain\n");
  dbg::DebugTrace(reinterpret_cast<const unsigned char*>("gr\xC3\xBC\xC3\x9F"));
  dbg::RemoveMasterTraceHandler();
  dbg::Trace("through the default handler\n");
  dbg::TraceLine("Cat", 4, "line");
  ASSERT_EQ(Written().size(), 4u);
  Written()[3].erase(0, Written()[3].find('>'));
  EXPECT_EQ(Written(),
            (std::vector<std::string>{"plain\n", "gr\xC3\xBC\xC3\x9F",
                                      "through the default handler\n", "> <Cat> <4> line\n"}));
}

TEST_F(DebuggerOutput, SafeTraceStreamFormatsEachKind) {
  struct Row {
    void (*write)(dbg::SafeTraceStream&);
    std::string text;
  };
  const Row rows[] = {
      {[](dbg::SafeTraceStream& s) { s << "narrow \xE9"; }, "narrow \xC3\xA9"},
      {[](dbg::SafeTraceStream& s) { s << u"\u65E5\U0001F600"; }, "\xE6\x97\xA5\xF0\x9F\x98\x80"},
      {[](dbg::SafeTraceStream& s) {
         const unsigned short units[] = {0x41, 0xD800, 0x42, 0};
         s << units;
       },
       "A\xED\xA0\x80"
       "B"},
      {[](dbg::SafeTraceStream& s) { s << 1.5 << " " << 1e-5 << " " << 123456789.0; },
       "1.5 1e-05 1.23457e+08"},
      {[](dbg::SafeTraceStream& s) { s << -7L << "," << -8 << "," << 9u << "," << 10UL; },
       "-7,-8,9,10"},
      {[](dbg::SafeTraceStream& s) {
         s << 18446744073709551615ULL << " " << -9223372036854775807LL;
       },
       "18446744073709551615 -9223372036854775807"},
      {[](dbg::SafeTraceStream& s) { s << static_cast<const char*>(nullptr); }, ""},
  };
  for (const Row& row : rows) {
    Written().clear();
    {
      dbg::SafeTraceStream stream;
      row.write(stream);
      EXPECT_TRUE(Written().empty()) << "nothing leaves before the buffer fills";
    }
    const std::string all = Written().empty() ? std::string() : Written()[0];
    EXPECT_EQ(all, row.text);
    EXPECT_LE(Written().size(), 1u);
  }
}

TEST_F(DebuggerOutput, SafeTraceStreamWritesEvery511Units) {
  {
    dbg::SafeTraceStream stream;
    for (int i = 0; i < 1100; ++i) stream << (i % 10 == 0 ? "x" : "-");
    ASSERT_EQ(Written().size(), 2u);
    EXPECT_EQ(Written()[0].size(), 511u);
    EXPECT_EQ(Written()[1].size(), 511u);
    EXPECT_EQ(Written()[1][0], '-') << "the second text starts at unit 511";
  }
  ASSERT_EQ(Written().size(), 3u);
  EXPECT_EQ(Written()[2].size(), 1100u - 2 * 511u);
}

}  // namespace
