// Decodes arbitrary bytes as run-length code. Decoding must never crash and
// let no exception but eof_error escape; it must give what a plain reading of
// the block table gives, say whether the end cut a block, give the same bytes
// when the code arrives in pieces, and the writer's code of the result must
// decode to the result again.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>

#include "tvxcore/filesupport/AdapterByteStreams.h"
#include "tvxcore/filesupport/RLEByteStreams.h"

namespace fs = tvxcore::filesupport;

namespace {

[[noreturn]] void Fail() { __builtin_trap(); }

class StringRLEWriter : public fs::ORLEByteStream {
 public:
  using ORLEByteStream::ORLEByteStream;
  void OSFlush() override {}
  void Truncate(unsigned long long) override {}
};

// The block table read directly: what the code stands for, and whether it
// ends inside a block.
std::string Expected(const std::string& coded, bool& cut) {
  std::string plain;
  std::size_t at = 0;
  cut = false;
  while (at < coded.size()) {
    const auto header = static_cast<signed char>(coded[at++]);
    if (header == -128) continue;
    if (header >= 0) {
      const std::size_t count = static_cast<std::size_t>(header) + 1;
      const std::size_t present = std::min(count, coded.size() - at);
      plain.append(coded, at, present);
      at += present;
      cut = present < count;
    } else if (at < coded.size()) {
      plain.append(static_cast<std::size_t>(1 - header), coded[at++]);
    } else {
      cut = true;
    }
  }
  return plain;
}

std::string DecodeAll(fs::IRLEByteStream& in, bool& cut) {
  std::string plain;
  try {
    for (;;) plain += static_cast<char>(in.Get());
  } catch (const fs::eof_error&) {
    cut = in.InBlock();
  }
  return plain;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  // The first byte sets the size of the pieces the code arrives in.
  const std::size_t piece = 1 + data[0] % 17;
  std::string coded(reinterpret_cast<const char*>(data) + 1, size - 1);

  bool expectedCut = false;
  const std::string expected = Expected(coded, expectedCut);

  fs::IStringByteStream whole(coded);
  fs::IRLEByteStream fromWhole(whole);
  bool cut = false;
  if (DecodeAll(fromWhole, cut) != expected || cut != expectedCut) Fail();

  // In pieces: every eof_error before the last piece is retried.
  std::deque<unsigned char> arrived;
  fs::IDequeByteStream growing(arrived);
  fs::IRLEByteStream fromPieces(growing);
  std::string plain;
  std::size_t fed = 0;
  for (;;) {
    try {
      plain += static_cast<char>(fromPieces.Get());
    } catch (const fs::eof_error&) {
      if (fed == coded.size()) break;
      const std::size_t more = std::min(piece, coded.size() - fed);
      arrived.insert(arrived.end(), coded.begin() + static_cast<long>(fed),
                     coded.begin() + static_cast<long>(fed + more));
      fed += more;
    }
  }
  if (plain != expected || fromPieces.InBlock() != expectedCut) Fail();

  // The writer's code of the result is never longer than one header per
  // literal block of 128 and decodes to the result.
  std::string recoded;
  fs::OStringByteStream sink(recoded);
  StringRLEWriter out(sink);
  for (char c : expected) out.Put(static_cast<unsigned char>(c));
  out.Flush();
  if (recoded.size() > expected.size() + (expected.size() + 127) / 128) Fail();
  fs::IStringByteStream again(recoded);
  fs::IRLEByteStream fromRecoded(again);
  if (DecodeAll(fromRecoded, cut) != expected || cut) Fail();
  return 0;
}
