// Reading and writing a 256 MiB file through the buffered streams over the
// platform file streams, beside std::ifstream/std::ofstream and stdio doing the
// same: in 64 KiB blocks, and as big-endian 32-bit integers one at a time
// (our value operators; 4-byte read()/write(); getc/putc and 4-byte
// fread/fwrite). The files live in a fresh temporary directory that is removed
// at the end.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tvxcore/filesupport/BufferedByteStreams.h"
#include "tvxcore/filesupport/ByteStreamOperators.h"
#include "tvxcore/filesupport/File.h"
#include "tvxcore/filesupport/PlatformByteStreams.h"

namespace fs = tvxcore::filesupport;

namespace {

constexpr std::uint64_t kFileSize = 256ull << 20;
constexpr std::uint32_t kBlock = 64u << 10;
constexpr std::uint64_t kValues = kFileSize / 4;
// Our wrappers' window and block: the library's usual pair for file work.
constexpr std::uint32_t kWindow = 64u << 10;
constexpr std::uint32_t kWindowBlock = 4u << 10;

std::filesystem::path S_dir;
std::filesystem::path S_source;  // kFileSize bytes, read by the reading cases
std::filesystem::path S_target;  // written by the writing cases

tvxcore::UTF16String Utf16(const std::filesystem::path& path) {
  const std::u16string wide = path.u16string();
  return tvxcore::UTF16String(wide.begin(), wide.end());
}

fs::File SourceFile() { return fs::File(Utf16(S_source)); }
fs::File TargetFile() { return fs::File(Utf16(S_target)); }

const std::vector<unsigned char>& Block() {
  static const std::vector<unsigned char> block = [] {
    std::vector<unsigned char> b(kBlock);
    std::mt19937 rng(42);
    for (auto& byte : b) byte = static_cast<unsigned char>(rng());
    return b;
  }();
  return block;
}

void Account(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kFileSize));
}

std::uint32_t BigEndian(const unsigned char* b) {
  return (std::uint32_t{b[0]} << 24) | (std::uint32_t{b[1]} << 16) | (std::uint32_t{b[2]} << 8) |
         b[3];
}

void StoreBigEndian(std::uint32_t v, unsigned char* b) {
  b[0] = static_cast<unsigned char>(v >> 24);
  b[1] = static_cast<unsigned char>(v >> 16);
  b[2] = static_cast<unsigned char>(v >> 8);
  b[3] = static_cast<unsigned char>(v);
}

// ---- blocks: reading ------------------------------------------------------

void BM_ReadBlocks_Tvx(benchmark::State& state) {
  std::vector<unsigned char> buffer(kBlock);
  for (auto _ : state) {
    fs::IPlatformByteStream raw(SourceFile(), fs::kPlatformStreamDefault);
    fs::IBufferedByteStream in(raw, kWindow, kWindowBlock);
    std::uint64_t sum = 0;
    for (std::uint64_t done = 0; done < kFileSize; done += kBlock) {
      in.ReadBlock(buffer.data(), kBlock);
      sum += buffer[done % kBlock];
    }
    benchmark::DoNotOptimize(sum);
  }
  Account(state);
}

void BM_ReadBlocks_Ifstream(benchmark::State& state) {
  std::vector<char> buffer(kBlock);
  for (auto _ : state) {
    std::ifstream in(S_source, std::ios::binary);
    std::uint64_t sum = 0;
    for (std::uint64_t done = 0; done < kFileSize; done += kBlock) {
      in.read(buffer.data(), kBlock);
      sum += static_cast<unsigned char>(buffer[done % kBlock]);
    }
    benchmark::DoNotOptimize(sum);
  }
  Account(state);
}

void BM_ReadBlocks_Stdio(benchmark::State& state) {
  std::vector<unsigned char> buffer(kBlock);
  for (auto _ : state) {
    FILE* in = std::fopen(S_source.c_str(), "rb");
    std::uint64_t sum = 0;
    for (std::uint64_t done = 0; done < kFileSize; done += kBlock) {
      if (std::fread(buffer.data(), 1, kBlock, in) != kBlock) state.SkipWithError("short read");
      sum += buffer[done % kBlock];
    }
    std::fclose(in);
    benchmark::DoNotOptimize(sum);
  }
  Account(state);
}

// ---- blocks: writing ------------------------------------------------------

void BM_WriteBlocks_Tvx(benchmark::State& state) {
  const auto& block = Block();
  for (auto _ : state) {
    fs::File file = TargetFile();
    file.Create(false);  // the writing stream never creates; this also empties
    fs::OPlatformByteStream raw(file, fs::kPlatformStreamDefault);
    fs::OBufferedByteStream out(raw, kWindow, kWindowBlock);
    for (std::uint64_t done = 0; done < kFileSize; done += kBlock) {
      out.WriteBlock(block.data(), kBlock);
    }
    out.Flush();
  }
  Account(state);
}

void BM_WriteBlocks_Ofstream(benchmark::State& state) {
  const auto& block = Block();
  for (auto _ : state) {
    std::ofstream out(S_target, std::ios::binary | std::ios::trunc);
    for (std::uint64_t done = 0; done < kFileSize; done += kBlock) {
      out.write(reinterpret_cast<const char*>(block.data()), kBlock);
    }
  }
  Account(state);
}

void BM_WriteBlocks_Stdio(benchmark::State& state) {
  const auto& block = Block();
  for (auto _ : state) {
    FILE* out = std::fopen(S_target.c_str(), "wb");
    for (std::uint64_t done = 0; done < kFileSize; done += kBlock) {
      std::fwrite(block.data(), 1, kBlock, out);
    }
    std::fclose(out);
  }
  Account(state);
}

// ---- 32-bit values: reading -----------------------------------------------

void BM_ReadValues_Tvx(benchmark::State& state) {
  for (auto _ : state) {
    fs::IPlatformByteStream raw(SourceFile(), fs::kPlatformStreamDefault);
    fs::IBufferedByteStream in(raw, kWindow, kWindowBlock);
    std::uint32_t sum = 0;
    for (std::uint64_t i = 0; i < kValues; ++i) {
      std::uint32_t value;
      in >> value;
      sum += value;
    }
    benchmark::DoNotOptimize(sum);
  }
  Account(state);
}

void BM_ReadValues_IfstreamRead4(benchmark::State& state) {
  for (auto _ : state) {
    std::ifstream in(S_source, std::ios::binary);
    std::uint32_t sum = 0;
    unsigned char bytes[4];
    for (std::uint64_t i = 0; i < kValues; ++i) {
      in.read(reinterpret_cast<char*>(bytes), 4);
      sum += BigEndian(bytes);
    }
    benchmark::DoNotOptimize(sum);
  }
  Account(state);
}

void BM_ReadValues_StdioGetc(benchmark::State& state) {
  for (auto _ : state) {
    FILE* in = std::fopen(S_source.c_str(), "rb");
    std::uint32_t sum = 0;
    for (std::uint64_t i = 0; i < kValues; ++i) {
      std::uint32_t value = 0;
      for (int k = 0; k < 4; ++k) value = (value << 8) | static_cast<std::uint32_t>(std::getc(in));
      sum += value;
    }
    std::fclose(in);
    benchmark::DoNotOptimize(sum);
  }
  Account(state);
}

void BM_ReadValues_StdioFread4(benchmark::State& state) {
  for (auto _ : state) {
    FILE* in = std::fopen(S_source.c_str(), "rb");
    std::uint32_t sum = 0;
    unsigned char bytes[4];
    for (std::uint64_t i = 0; i < kValues; ++i) {
      if (std::fread(bytes, 1, 4, in) != 4) state.SkipWithError("short read");
      sum += BigEndian(bytes);
    }
    std::fclose(in);
    benchmark::DoNotOptimize(sum);
  }
  Account(state);
}

// ---- 32-bit values: writing -----------------------------------------------

void BM_WriteValues_Tvx(benchmark::State& state) {
  for (auto _ : state) {
    fs::File file = TargetFile();
    file.Create(false);
    fs::OPlatformByteStream raw(file, fs::kPlatformStreamDefault);
    fs::OBufferedByteStream out(raw, kWindow, kWindowBlock);
    for (std::uint64_t i = 0; i < kValues; ++i) out << static_cast<std::uint32_t>(i * 2654435761u);
    out.Flush();
  }
  Account(state);
}

void BM_WriteValues_OfstreamWrite4(benchmark::State& state) {
  for (auto _ : state) {
    std::ofstream out(S_target, std::ios::binary | std::ios::trunc);
    unsigned char bytes[4];
    for (std::uint64_t i = 0; i < kValues; ++i) {
      StoreBigEndian(static_cast<std::uint32_t>(i * 2654435761u), bytes);
      out.write(reinterpret_cast<const char*>(bytes), 4);
    }
  }
  Account(state);
}

void BM_WriteValues_StdioPutc(benchmark::State& state) {
  for (auto _ : state) {
    FILE* out = std::fopen(S_target.c_str(), "wb");
    for (std::uint64_t i = 0; i < kValues; ++i) {
      const auto v = static_cast<std::uint32_t>(i * 2654435761u);
      std::putc(static_cast<int>(v >> 24), out);
      std::putc(static_cast<int>((v >> 16) & 0xFF), out);
      std::putc(static_cast<int>((v >> 8) & 0xFF), out);
      std::putc(static_cast<int>(v & 0xFF), out);
    }
    std::fclose(out);
  }
  Account(state);
}

void BM_WriteValues_StdioFwrite4(benchmark::State& state) {
  for (auto _ : state) {
    FILE* out = std::fopen(S_target.c_str(), "wb");
    unsigned char bytes[4];
    for (std::uint64_t i = 0; i < kValues; ++i) {
      StoreBigEndian(static_cast<std::uint32_t>(i * 2654435761u), bytes);
      std::fwrite(bytes, 1, 4, out);
    }
    std::fclose(out);
  }
  Account(state);
}

void MakeSource() {
  std::ofstream out(S_source, std::ios::binary | std::ios::trunc);
  const auto& block = Block();
  for (std::uint64_t done = 0; done < kFileSize; done += kBlock) {
    out.write(reinterpret_cast<const char*>(block.data()), kBlock);
  }
}

}  // namespace

BENCHMARK(BM_ReadBlocks_Tvx)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadBlocks_Ifstream)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadBlocks_Stdio)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteBlocks_Tvx)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteBlocks_Ofstream)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteBlocks_Stdio)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadValues_Tvx)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadValues_IfstreamRead4)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadValues_StdioGetc)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ReadValues_StdioFread4)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteValues_Tvx)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteValues_OfstreamWrite4)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteValues_StdioPutc)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WriteValues_StdioFwrite4)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
  S_dir = std::filesystem::temp_directory_path() /
          ("tvx-fileio-" + std::to_string(std::random_device{}()));
  std::filesystem::create_directories(S_dir);
  S_source = S_dir / "source.bin";
  S_target = S_dir / "target.bin";
  MakeSource();

  benchmark::Initialize(&argc, argv);
  int status = 0;
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    status = 1;
  } else {
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
  }
  std::error_code ignored;
  std::filesystem::remove_all(S_dir, ignored);
  return status;
}
