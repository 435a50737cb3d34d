// Writing and reading one million mixed values through the memory byte
// streams, beside std::ostringstream / std::istringstream doing the same
// big-endian encoding by hand. Arg 0: integers and strings; arg 1: one value
// in six a double, as framed decimal text.
#include <benchmark/benchmark.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "tvxcore/filesupport/AdapterByteStreams.h"
#include "tvxcore/filesupport/ByteStreamOperators.h"
#include "tvxcore/filesupport/MemoryByteStreams.h"

namespace fs = tvxcore::filesupport;

namespace {

constexpr int kValueCount = 1'000'000;

enum Kind : unsigned char { kBool, kInt16, kInt32, kInt64, kString, kDouble };

struct Value {
  Kind kind;
  std::int64_t integer;
  double real;
  std::string text;
};

const std::vector<Value>& Values(bool withDoubles) {
  static std::vector<Value> sets[2];
  std::vector<Value>& values = sets[withDoubles];
  if (!values.empty()) return values;
  std::mt19937_64 rng(20240611);
  values.reserve(kValueCount);
  for (int i = 0; i < kValueCount; ++i) {
    Value v{};
    v.kind = static_cast<Kind>(rng() % (withDoubles ? 6 : 5));
    v.integer = static_cast<std::int64_t>(rng());
    v.real = std::ldexp(static_cast<double>(rng() % 1000000), static_cast<int>(rng() % 40) - 20);
    if (v.kind == kString) v.text.assign(rng() % 17, static_cast<char>('a' + rng() % 26));
    values.push_back(std::move(v));
  }
  return values;
}

class CompleteBuffer : public fs::OBufferByteStream {
 public:
  using OBufferByteStream::OBufferByteStream;
  void OSFlush() override {}
  void Truncate(unsigned long long) override {}
};

void WriteTvx(fs::OByteStream& out, const std::vector<Value>& values) {
  for (const Value& v : values) {
    switch (v.kind) {
      case kBool:
        out << ((v.integer & 1) != 0);
        break;
      case kInt16:
        out << static_cast<short>(v.integer);
        break;
      case kInt32:
        out << static_cast<std::int32_t>(v.integer);
        break;
      case kInt64:
        out << static_cast<long long>(v.integer);
        break;
      case kString:
        out << v.text;
        break;
      case kDouble:
        out << v.real;
        break;
    }
  }
}

std::int64_t ReadTvx(fs::IByteStream& in, const std::vector<Value>& values) {
  std::int64_t sum = 0;
  bool b;
  short s;
  std::int32_t i;
  long long l;
  std::string text;
  double d;
  for (const Value& v : values) {
    switch (v.kind) {
      case kBool:
        in >> b;
        sum += b;
        break;
      case kInt16:
        in >> s;
        sum += s;
        break;
      case kInt32:
        in >> i;
        sum += i;
        break;
      case kInt64:
        in >> l;
        sum += l;
        break;
      case kString:
        in >> text;
        sum += static_cast<std::int64_t>(text.size());
        break;
      case kDouble:
        in >> d;
        sum += static_cast<std::int64_t>(d);
        break;
    }
  }
  return sum;
}

// The hand-written peer: the same bytes through the standard streams.
template <typename T>
void PutBig(std::ostream& out, T value) {
  char bytes[sizeof(T)];
  auto bits = static_cast<std::make_unsigned_t<T>>(value);
  for (int k = sizeof(T) - 1; k >= 0; --k, bits >>= 8) bytes[k] = static_cast<char>(bits & 0xFF);
  out.write(bytes, sizeof(T));
}

void PutText(std::ostream& out, const char* text, std::size_t size) {
  PutBig(out, static_cast<std::uint64_t>(size));
  out.write(text, static_cast<std::streamsize>(size));
}

void WriteStd(std::ostream& out, const std::vector<Value>& values) {
  char buffer[64];
  for (const Value& v : values) {
    switch (v.kind) {
      case kBool:
        out.put((v.integer & 1) != 0 ? 1 : 0);
        break;
      case kInt16:
        PutBig(out, static_cast<std::int16_t>(v.integer));
        break;
      case kInt32:
        PutBig(out, static_cast<std::int32_t>(v.integer));
        break;
      case kInt64:
        PutBig(out, v.integer);
        break;
      case kString:
        PutText(out, v.text.data(), v.text.size());
        break;
      case kDouble: {
        const auto r =
            std::to_chars(buffer, buffer + sizeof buffer, v.real, std::chars_format::general, 36);
        PutText(out, buffer, static_cast<std::size_t>(r.ptr - buffer));
        break;
      }
    }
  }
}

template <typename T>
T GetBig(std::istream& in) {
  unsigned char bytes[sizeof(T)];
  in.read(reinterpret_cast<char*>(bytes), sizeof(T));
  std::make_unsigned_t<T> bits = 0;
  for (unsigned char b : bytes) bits = static_cast<decltype(bits)>((bits << 8) | b);
  return static_cast<T>(bits);
}

std::int64_t ReadStd(std::istream& in, const std::vector<Value>& values) {
  std::int64_t sum = 0;
  std::string text;
  for (const Value& v : values) {
    switch (v.kind) {
      case kBool:
        sum += in.get() != 0;
        break;
      case kInt16:
        sum += GetBig<std::int16_t>(in);
        break;
      case kInt32:
        sum += GetBig<std::int32_t>(in);
        break;
      case kInt64:
        sum += GetBig<std::int64_t>(in);
        break;
      case kString:
      case kDouble: {
        text.resize(GetBig<std::uint64_t>(in));
        in.read(text.data(), static_cast<std::streamsize>(text.size()));
        if (v.kind == kString) {
          sum += static_cast<std::int64_t>(text.size());
        } else {
          double d = 0;
          std::from_chars(text.data(), text.data() + text.size(), d);
          sum += static_cast<std::int64_t>(d);
        }
        break;
      }
    }
  }
  return sum;
}

std::string Encoded(bool withDoubles) {
  std::string bytes;
  fs::OStringByteStream out(bytes);
  WriteTvx(out, Values(withDoubles));
  return bytes;
}

void Report(benchmark::State& state, std::size_t bytes) {
  state.SetItemsProcessed(state.iterations() * kValueCount);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}

void BM_Write_TvxStringStream(benchmark::State& state) {
  const auto& values = Values(state.range(0) != 0);
  std::string bytes;
  for (auto _ : state) {
    bytes.clear();
    fs::OStringByteStream out(bytes);
    WriteTvx(out, values);
    benchmark::DoNotOptimize(bytes.data());
  }
  Report(state, bytes.size());
}

void BM_Write_TvxBufferStream(benchmark::State& state) {
  const auto& values = Values(state.range(0) != 0);
  std::vector<unsigned char> block(Encoded(state.range(0) != 0).size());
  for (auto _ : state) {
    CompleteBuffer out(block.data(), block.size());
    WriteTvx(out, values);
    benchmark::DoNotOptimize(block.data());
  }
  Report(state, block.size());
}

void BM_Write_StdOStringStream(benchmark::State& state) {
  const auto& values = Values(state.range(0) != 0);
  std::size_t size = 0;
  for (auto _ : state) {
    std::ostringstream out;
    WriteStd(out, values);
    size = static_cast<std::size_t>(out.tellp());
    benchmark::DoNotOptimize(size);
  }
  Report(state, size);
}

void BM_Read_TvxStringStream(benchmark::State& state) {
  const auto& values = Values(state.range(0) != 0);
  std::string bytes = Encoded(state.range(0) != 0);
  for (auto _ : state) {
    fs::IStringByteStream in(bytes);
    benchmark::DoNotOptimize(ReadTvx(in, values));
  }
  Report(state, bytes.size());
}

void BM_Read_TvxBufferStream(benchmark::State& state) {
  const auto& values = Values(state.range(0) != 0);
  const std::string bytes = Encoded(state.range(0) != 0);
  for (auto _ : state) {
    fs::IBufferByteStream in(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    benchmark::DoNotOptimize(ReadTvx(in, values));
  }
  Report(state, bytes.size());
}

void BM_Read_StdIStringStream(benchmark::State& state) {
  const auto& values = Values(state.range(0) != 0);
  const std::string bytes = Encoded(state.range(0) != 0);
  for (auto _ : state) {
    std::istringstream in(bytes);
    benchmark::DoNotOptimize(ReadStd(in, values));
  }
  Report(state, bytes.size());
}

}  // namespace

BENCHMARK(BM_Write_TvxStringStream)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Write_TvxBufferStream)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Write_StdOStringStream)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Read_TvxStringStream)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Read_TvxBufferStream)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Read_StdIStringStream)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
