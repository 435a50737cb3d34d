// CRC-32 through OCRCByteStream::WriteBlock and through each of the library's
// kernels, beside zlib's crc32() and ISA-L's crc32_gzip_refl(), at 64 B,
// 4 KiB, 64 KiB and 1 MiB; and run-length coding and decoding of 1 MiB of
// text, of a raw image and of random bytes through ORLEByteStream and
// IRLEByteStream.
//
// Each CRC call takes the previous result as its start, as a caller summing a
// file block by block does, so short blocks measure the latency of one call.
#include <benchmark/benchmark.h>
#include <isa-l/crc.h>
#include <zlib.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "filesupport/internal/CRC32.h"
#include "tvxcore/filesupport/CRCByteStream.h"
#include "tvxcore/filesupport/MemoryByteStreams.h"
#include "tvxcore/filesupport/RLEByteStreams.h"

namespace fs = tvxcore::filesupport;
namespace internal = tvxcore::filesupport::internal;

namespace {

const std::vector<unsigned char>& RandomBytes() {
  static const std::vector<unsigned char> bytes = [] {
    std::vector<unsigned char> b(1 << 20);
    std::mt19937_64 random(42);
    for (auto& c : b) c = static_cast<unsigned char>(random());
    return b;
  }();
  return bytes;
}

// A sink that takes whatever it is given and keeps nothing: the CRC stream's
// own cost.
class NullSink : public fs::OByteStream {
 public:
  void Put(unsigned char) override {}
  void WriteBlock(const unsigned char*, std::uint32_t) override {}
  void CurPos(unsigned long long) override {}
  unsigned long long CurPos() const override { return 0; }
  void OSFlush() override {}
  void Truncate(unsigned long long) override {}
};

class CRCStream : public fs::OCRCByteStream {
 public:
  using OCRCByteStream::OCRCByteStream;
  void OSFlush() override {}
  void Truncate(unsigned long long) override {}
};

void Finish(benchmark::State& state, std::size_t size) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
}

void CRC_tvxcore(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  const unsigned char* data = RandomBytes().data();
  NullSink sink;
  CRCStream crc(sink);
  for (auto _ : state) {
    crc.WriteBlock(data, static_cast<std::uint32_t>(size));
    benchmark::DoNotOptimize(crc.Value());
  }
  Finish(state, size);
}

void CRC_kernel(benchmark::State& state, internal::CRC32Kernel kernel) {
  if (!internal::CRC32KernelSupported(kernel)) {
    state.SkipWithError("this processor lacks the kernel's instructions");
    return;
  }
  const auto size = static_cast<std::size_t>(state.range(0));
  const unsigned char* data = RandomBytes().data();
  std::uint32_t crc = 0xFFFFFFFFu;
  for (auto _ : state) {
    crc = internal::UpdateCRC32With(kernel, crc, data, size);
    benchmark::DoNotOptimize(crc);
  }
  Finish(state, size);
}

void CRC_zlib(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  const unsigned char* data = RandomBytes().data();
  uLong crc = crc32(0, nullptr, 0);
  for (auto _ : state) {
    crc = crc32(crc, data, static_cast<uInt>(size));
    benchmark::DoNotOptimize(crc);
  }
  Finish(state, size);
}

void CRC_isal(benchmark::State& state) {
  const auto size = static_cast<std::size_t>(state.range(0));
  const unsigned char* data = RandomBytes().data();
  std::uint32_t crc = 0;
  for (auto _ : state) {
    crc = crc32_gzip_refl(crc, data, size);
    benchmark::DoNotOptimize(crc);
  }
  Finish(state, size);
}

void CRCSizes(benchmark::internal::Benchmark* b) {
  for (long size : {64L, 4L << 10, 64L << 10, 1L << 20}) b->Arg(size);
}

BENCHMARK(CRC_tvxcore)->Apply(CRCSizes);
BENCHMARK_CAPTURE(CRC_kernel, slice_by_8, internal::CRC32Kernel::kSliceBy8)->Apply(CRCSizes);
BENCHMARK_CAPTURE(CRC_kernel, pclmulqdq, internal::CRC32Kernel::kPCLMUL)->Apply(CRCSizes);
BENCHMARK_CAPTURE(CRC_kernel, vpclmulqdq, internal::CRC32Kernel::kVPCLMUL)->Apply(CRCSizes);
BENCHMARK(CRC_zlib)->Apply(CRCSizes);
BENCHMARK(CRC_isal)->Apply(CRCSizes);

// --- Run-length coding -----------------------------------------------------

constexpr std::size_t kPlainSize = 1 << 20;

// English-like prose: words of a small vocabulary with spaces and
// punctuation; runs are rare (double letters, the odd double space).
std::vector<unsigned char> Text() {
  static const char* const kWords[] = {
      "the",    "of",     "and",   "a",        "to",      "in",     "is",    "you",
      "that",   "it",     "he",    "was",      "for",     "on",     "are",   "as",
      "with",   "his",    "they",  "at",       "be",      "this",   "have",  "from",
      "stream", "bytes",  "block", "run",      "literal", "header", "file",  "coding",
      "letter", "little", "all",   "possible", "between", "across", "bloom", "coffee"};
  std::mt19937 random(3);
  std::vector<unsigned char> text;
  while (text.size() < kPlainSize) {
    const char* word = kWords[random() % (sizeof kWords / sizeof kWords[0])];
    text.insert(text.end(), word, word + std::strlen(word));
    const unsigned r = random() % 20;
    const char* gap = r == 0 ? ".  " : r == 1 ? ",\n" : r == 2 ? ", " : " ";
    text.insert(text.end(), gap, gap + std::strlen(gap));
  }
  text.resize(kPlainSize);
  return text;
}

// A raw 8-bit RGBA image of 512 x 512 pixels stored planar, one channel
// after the other as run-length coded image formats keep them: a flat
// background, a flat rectangle, a horizontal gradient and a noisy photo-like
// patch, so long runs, short runs and literals all occur.
std::vector<unsigned char> Image() {
  constexpr int kSide = 512;
  constexpr std::size_t kPlane = kSide * kSide;
  std::vector<unsigned char> planes(4 * kPlane);
  std::mt19937 random(5);
  for (int y = 0; y < kSide; ++y) {
    for (int x = 0; x < kSide; ++x) {
      unsigned char rgba[4] = {240, 240, 235, 255};
      if (x > 40 && x < 200 && y > 60 && y < 300) {
        rgba[0] = 30, rgba[1] = 90, rgba[2] = 200;
      } else if (y >= 320 && y < 400) {
        rgba[0] = rgba[1] = rgba[2] = static_cast<unsigned char>(x / 2);
      } else if (x >= 256 && y < 300) {
        const int base = 100 + (x + y) / 8;
        for (int c = 0; c < 3; ++c)
          rgba[c] = static_cast<unsigned char>(base + static_cast<int>(random() % 9) - 4);
      }
      for (std::size_t c = 0; c < 4; ++c)
        planes[c * kPlane + static_cast<std::size_t>(y * kSide + x)] = rgba[c];
    }
  }
  return planes;
}

const std::vector<unsigned char>& Plain(int kind) {
  static const std::vector<unsigned char> sets[] = {Text(), Image(), RandomBytes()};
  return sets[kind];
}

// A growing memory sink with a block copy, as a caller coding into memory
// would write.
class VectorSink : public fs::OByteStream {
 public:
  void Put(unsigned char byte) override { bytes.push_back(byte); }
  void WriteBlock(const unsigned char* src, std::uint32_t count) override {
    bytes.insert(bytes.end(), src, src + count);
  }
  void CurPos(unsigned long long) override {}
  unsigned long long CurPos() const override { return bytes.size(); }
  void OSFlush() override {}
  void Truncate(unsigned long long) override {}

  std::vector<unsigned char> bytes;
};

class RLEWriter : public fs::ORLEByteStream {
 public:
  using ORLEByteStream::ORLEByteStream;
  void OSFlush() override {}
  void Truncate(unsigned long long) override {}
};

std::vector<unsigned char> Coded(const std::vector<unsigned char>& plain) {
  VectorSink sink;
  RLEWriter out(sink);
  out.WriteBlock(plain.data(), static_cast<std::uint32_t>(plain.size()));
  out.Flush();
  return sink.bytes;
}

void RLE_encode(benchmark::State& state) {
  const auto& plain = Plain(static_cast<int>(state.range(0)));
  VectorSink sink;
  sink.bytes.reserve(plain.size() * 2);
  for (auto _ : state) {
    sink.bytes.clear();
    RLEWriter out(sink);
    out.WriteBlock(plain.data(), static_cast<std::uint32_t>(plain.size()));
    out.Flush();
    benchmark::DoNotOptimize(sink.bytes.data());
  }
  state.counters["coded_ratio"] = static_cast<double>(sink.bytes.size()) / plain.size();
  Finish(state, plain.size());
}

void RLE_decode(benchmark::State& state) {
  const auto& plain = Plain(static_cast<int>(state.range(0)));
  const std::vector<unsigned char> coded = Coded(plain);
  std::vector<unsigned char> back(plain.size());
  for (auto _ : state) {
    fs::IBufferByteStream source(coded.data(), coded.size());
    fs::IRLEByteStream in(source);
    in.ReadBlock(back.data(), static_cast<std::uint32_t>(back.size()));
    benchmark::DoNotOptimize(back.data());
  }
  if (back != plain) state.SkipWithError("decoding gave other bytes");
  state.counters["coded_ratio"] = static_cast<double>(coded.size()) / plain.size();
  Finish(state, plain.size());
}

// Arg 0: text, 1: raw image, 2: random bytes.
BENCHMARK(RLE_encode)->ArgName("text0_image1_random2")->DenseRange(0, 2);
BENCHMARK(RLE_decode)->ArgName("text0_image1_random2")->DenseRange(0, 2);

}  // namespace

BENCHMARK_MAIN();
