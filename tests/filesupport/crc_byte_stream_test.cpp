// The CRC-32 pass-through stream: known sums, blocks and bytes alike, and
// everything passed on to the inner stream untouched.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "support/CompletedStream.h"
#include "tvxcore/filesupport/AdapterByteStreams.h"
#include "tvxcore/filesupport/CRCByteStream.h"

namespace fs = tvxcore::filesupport;

namespace {

using tvxtest::RecordingSink;
using StringCRCStream = tvxtest::Completed<fs::OCRCByteStream>;
using tvxtest::Bytes;

// Bytes of a pattern that no short period repeats.
std::string Pattern(std::size_t count) {
  std::string bytes(count, '\0');
  for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<char>((i * 7 + i / 251) % 256);
  return bytes;
}

// The sum of `text` given byte by byte, or in one block.
std::uint32_t Sum(const std::string& text, bool byBlock = false) {
  std::string sink;
  fs::OStringByteStream out(sink);
  StringCRCStream crc(out);
  if (byBlock) {
    crc.WriteBlock(Bytes(text), static_cast<std::uint32_t>(text.size()));
  } else {
    for (char c : text) crc.Put(static_cast<unsigned char>(c));
  }
  return crc.Value();
}

TEST(OCRCByteStream, GivesTheCRC32OfZlibAndPNG) {
  // The sums zlib's crc32() gives; the kernels meet the byte table in the
  // internal tests.
  const struct {
    std::string bytes;
    std::uint32_t crc;
  } rows[] = {
      {"", 0},
      {"123456789", 0xCBF43926u},
      {Pattern(100000), 0x72AFC085u},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::to_string(row.bytes.size()) + " bytes");
    EXPECT_EQ(Sum(row.bytes), row.crc);
    EXPECT_EQ(Sum(row.bytes, true), row.crc);
  }
}

TEST(OCRCByteStream, PassesBytesOnAsTheyCameAndPositionsToTheInnerStream) {
  RecordingSink sink;
  sink.pos = 77;
  StringCRCStream crc(sink);
  crc.Put('1');
  crc.WriteBlock(Bytes("2345"), 4);
  crc.WriteBlock(Bytes(""), 0);
  crc.CurPos(12);
  EXPECT_EQ(crc.CurPos(), 77u);
  crc.WriteBlock(Bytes("6789"), 4);
  EXPECT_EQ(sink.log.calls, "P1 W2345 W @12 W6789");
  EXPECT_EQ(crc.Value(), 0xCBF43926u) << "seeking doesn't touch the sum";
}

}  // namespace
