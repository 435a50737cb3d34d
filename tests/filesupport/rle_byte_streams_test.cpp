// The run-length coding streams: the code of known inputs byte for byte in
// both directions, round trips of random data, coded data cut short, and
// writes that fail.
#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "support/CompletedStream.h"
#include "tvxcore/filesupport/AdapterByteStreams.h"
#include "tvxcore/filesupport/RLEByteStreams.h"

namespace fs = tvxcore::filesupport;

namespace {

// The coding stream leaves OSFlush and Truncate to a derived class.
using StringRLEWriter = tvxtest::Completed<fs::ORLEByteStream>;
using tvxtest::Hex;
using tvxtest::RecordingSink;

std::string Bytes(std::initializer_list<int> values) {
  std::string bytes;
  for (int v : values) bytes += static_cast<char>(v);
  return bytes;
}

std::string Repeat(int byte, int count) { return std::string(count, static_cast<char>(byte)); }

std::string Encode(const std::string& plain, bool flush = true) {
  std::string coded;
  fs::OStringByteStream sink(coded);
  StringRLEWriter out(sink);
  for (char c : plain) out.Put(static_cast<unsigned char>(c));
  if (flush) out.Flush();
  return coded;
}

// Decodes all of `coded`; `cutInBlock` tells whether the end came inside a
// block.
std::string Decode(std::string coded, bool* cutInBlock = nullptr) {
  fs::IStringByteStream source(coded);
  fs::IRLEByteStream in(source);
  std::string plain;
  try {
    for (;;) plain += static_cast<char>(in.Get());
  } catch (const fs::eof_error&) {
    if (cutInBlock != nullptr) *cutInBlock = in.InBlock();
  }
  return plain;
}

std::string AllDifferent(int count) {
  std::string bytes;
  for (int i = 0; i < count; ++i) bytes += static_cast<char>(i);
  return bytes;
}

struct CodeRow {
  std::string plain;
  std::string coded;
};

const std::vector<CodeRow>& CodeTable() {
  static const std::vector<CodeRow> rows = {
      {"", ""},
      {"A", Bytes({0x00, 0x41})},
      {"AA", Bytes({0xFF, 0x41})},
      {"AB", Bytes({0x01, 0x41, 0x42})},
      {"ABB", Bytes({0x02, 0x41, 0x42, 0x42})},
      {"ABBB", Bytes({0x00, 0x41, 0xFE, 0x42})},
      {"AAB", Bytes({0xFF, 0x41, 0x00, 0x42})},
      {Repeat('A', 128), Bytes({0x81, 0x41})},
      {Repeat('A', 129), Bytes({0x81, 0x41, 0x00, 0x41})},
      {AllDifferent(128), Bytes({0x7F}) + AllDifferent(128)},
      {AllDifferent(129), Bytes({0x7F}) + AllDifferent(128) + Bytes({0x00, 0x80})},
      // Two equal bytes inside literals stay literals; three start a run.
      {"ABBA", Bytes({0x03, 0x41, 0x42, 0x42, 0x41})},
      {"ABCCCCD", Bytes({0x01, 0x41, 0x42, 0xFD, 0x43, 0x00, 0x44})},
      {"AAABBB", Bytes({0xFE, 0x41, 0xFE, 0x42})},
      // 127 literals and a pair: the pair fills the block to 128 literals.
      {AllDifferent(127) + "\x7E", Bytes({0x7F}) + AllDifferent(127) + "\x7E"},
      // 126 literals and three equal bytes: the run is cut out of the literals.
      {AllDifferent(126) + "\x7D\x7D", Bytes({0x7C}) + AllDifferent(125) + Bytes({0xFE, 0x7D})},
  };
  return rows;
}

TEST(RLEByteStreams, CodeKnownInputsByteForByteBothWays) {
  for (const CodeRow& row : CodeTable()) {
    SCOPED_TRACE("plain " + Hex(row.plain.substr(0, 12)) + " (" + std::to_string(row.plain.size()) +
                 " bytes)");
    EXPECT_EQ(Hex(Encode(row.plain)), Hex(row.coded));
    bool cut = true;
    EXPECT_EQ(Decode(row.coded, &cut), row.plain);
    EXPECT_FALSE(cut) << "a complete code ends between blocks";
  }
}

TEST(IRLEByteStream, AcceptsWhatTheWriterNeverWrites) {
  const struct {
    std::string coded;
    std::string plain;
  } rows[] = {
      {Bytes({0x80, 0x80, 0x00, 0x41}), "A"},
      {Bytes({0x80}), ""},
      {Bytes({0x00, 0x41, 0x80, 0xFF, 0x42, 0x80}), "ABB"},
      {Bytes({0x02, 0x41, 0x41, 0x41}), "AAA"},  // a run written as literals
      {Bytes({0x81, 0x80}), Repeat(0x80, 128)},  // a no-operation byte as a run's byte
      {Bytes({0x01, 0x80, 0x80}), Repeat(0x80, 2)},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Hex(Decode(row.coded)), Hex(row.plain)) << Hex(row.coded);
  }
}

TEST(ORLEByteStream, FullBlockGoesOutWithoutFlushAndNothingElseDoes) {
  // 128 bytes fill a block; what is held back, the writer's destructor
  // drops.
  EXPECT_EQ(Encode(AllDifferent(128), false), Bytes({0x7F}) + AllDifferent(128));
  EXPECT_EQ(Encode(Repeat('A', 128), false), Bytes({0x81, 0x41}));
  EXPECT_EQ(Encode(Repeat('A', 127), false), "");
  EXPECT_EQ(Encode("AB", false), "");
}

TEST(RLEByteStreams, RandomDataComesBackExactly) {
  std::mt19937 random(1234);
  // Kinds of data: any bytes, few symbols (many short runs), long runs.
  for (int round = 0; round < 300; ++round) {
    const int kind = round % 3;
    const int length = static_cast<int>(random() % 2000);
    std::string plain;
    while (static_cast<int>(plain.size()) < length) {
      const auto byte = static_cast<char>(kind == 0 ? random() % 256 : random() % 3);
      plain.append(kind == 2 ? 1 + random() % 300 : 1, byte);
    }
    ASSERT_EQ(Decode(Encode(plain)), plain) << "round " << round;
  }
}

TEST(IRLEByteStream, CodeCutShortEndsInEofErrorAndSaysWhere) {
  // Cut every code at every length: the bytes before the cut come back, the
  // end is eof_error, and InBlock() says whether a block was cut.
  for (const CodeRow& row : CodeTable()) {
    // Where each block of the code ends.
    std::vector<std::size_t> boundaries = {0};
    for (std::size_t at = 0; at < row.coded.size();) {
      const auto header = static_cast<signed char>(row.coded[at]);
      at += header >= 0 ? 2 + header : 2;
      boundaries.push_back(at);
    }
    for (std::size_t cut = 0; cut < row.coded.size(); ++cut) {
      bool cutInBlock = false;
      const std::string plain = Decode(row.coded.substr(0, cut), &cutInBlock);
      bool atBoundary = false;
      for (std::size_t b : boundaries) atBoundary = atBoundary || b == cut;
      EXPECT_EQ(cutInBlock, !atBoundary) << Hex(row.coded) << " cut at " << cut;
      EXPECT_EQ(plain, row.plain.substr(0, plain.size())) << "cut at " << cut;
    }
  }
}

TEST(IRLEByteStream, GoesOnWhereTheCodeBrokeOffWhenMoreArrives) {
  // The code arrives one byte at a time; every Get() that finds nothing yet is
  // retried once more has come.
  const std::string plain = "ABBBBBCD" + Repeat('x', 300) + AllDifferent(200);
  const std::string coded = Encode(plain);
  std::deque<unsigned char> arrived;
  fs::IDequeByteStream source(arrived);
  fs::IRLEByteStream in(source);
  std::string back;
  std::size_t fed = 0;
  while (back.size() < plain.size()) {
    try {
      back += static_cast<char>(in.Get());
    } catch (const fs::eof_error&) {
      ASSERT_LT(fed, coded.size());
      arrived.push_back(static_cast<unsigned char>(coded[fed++]));
    }
  }
  EXPECT_EQ(back, plain);
  EXPECT_EQ(fed, coded.size());
}

TEST(RLEByteStreams, HaveNoPositionsAndPassInnerFailuresThrough) {
  std::string coded = Bytes({0x00, 0x41});
  fs::IStringByteStream source(coded);
  fs::IRLEByteStream in(source);
  EXPECT_THROW(in.CurPos(), fs::byte_stream_exception);
  EXPECT_THROW(in.CurPos(0), fs::byte_stream_exception);
  EXPECT_THROW(in.AtTheEnd(), fs::byte_stream_exception);
  EXPECT_EQ(in.Length(), 0u);

  std::string sinkText;
  fs::OStringByteStream sink(sinkText);
  StringRLEWriter out(sink);
  EXPECT_THROW(out.CurPos(), fs::byte_stream_exception);
  EXPECT_THROW(out.CurPos(3), fs::byte_stream_exception);

  // A sink whose block write fails at the last byte's Put or at Flush: the
  // failing call leaves the held-back bytes as they were, so the same call
  // made again writes the whole block once the sink takes it (the sink keeps
  // the header it took the first time).
  const struct {
    const char* name;
    std::string plain;
    bool failsAtFlush;
    std::string calls;
  } failures[] = {
      {"lone byte", "Z", true, std::string("P\0 P\0 WZ", 8)},
      {"run keeps its length", "ZZZZZ", true, "P\xFC P\xFC WZ"},
      {"literals ended by a run", "abccc", false, "P\x01 P\x01 Wab P\xFE Wc"},
      {"full literal block", AllDifferent(128), false, "P\x7F P\x7F W" + AllDifferent(128)},
  };
  for (const auto& f : failures) {
    SCOPED_TRACE(f.name);
    RecordingSink failing;
    failing.failWrites = true;
    StringRLEWriter toFailing(failing);
    const std::string head = f.plain.substr(0, f.plain.size() - 1);
    for (char c : head) toFailing.Put(static_cast<unsigned char>(c));
    const auto last = static_cast<unsigned char>(f.plain.back());
    if (f.failsAtFlush) {
      toFailing.Put(last);
      EXPECT_THROW(toFailing.Flush(), fs::io_error);
    } else {
      EXPECT_THROW(toFailing.Put(last), fs::io_error);
    }
    failing.failWrites = false;
    if (!f.failsAtFlush) toFailing.Put(last);
    toFailing.Flush();
    EXPECT_EQ(failing.log.calls, f.calls);
  }
}

}  // namespace
