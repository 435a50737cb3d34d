// Copying a 1 GiB file: BinaryCopier with the file source and sink (blocks of
// 1, 4 and 8 MiB), beside what a user would run instead: cp, cp followed by
// an fsync of the copy (the sink makes its copy durable before it takes the
// target's name), a bare copy_file_range loop, and the design's floor, a bare
// read/write loop with one user-space buffer of the same block size and an
// fsync at the end. Each case runs once per repetition; the medians of three
// are reported.
//
// The file is made in $TVX_BENCH_DIR, else in the temporary folder, and
// removed at the end. Without 3 GiB free there the benchmark says so and
// measures nothing.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <boost/make_shared.hpp>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <random>
#include <string>
#include <vector>

#include "tvxcore/filesupport/FileCopyStreams.h"

namespace {

namespace fs = std::filesystem;
using tvxcore::utility::BinaryCopier;

constexpr std::uint64_t kFileSize = 1ull << 30;
constexpr std::uint64_t kNeeded = 3ull << 30;

fs::path S_dir;
fs::path S_source;
fs::path S_target;

tvxcore::filesupport::File FileAt(const fs::path& path) {
  const std::u16string wide = path.u16string();
  return tvxcore::filesupport::File(tvxcore::UTF16String(wide.begin(), wide.end()));
}

void Account(benchmark::State& state) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * kFileSize));
}

// Untimed, before each copy: the previous copy is gone and the disk has
// written back everything, so no case pays for another's dirty pages.
void RemoveTarget() {
  std::error_code ignored;
  fs::remove(S_target, ignored);
  ::sync();
}

// Ends the benchmark with a message when a system call fails.
bool Check(benchmark::State& state, bool ok, const char* what) {
  if (!ok) state.SkipWithError(what);
  return ok;
}

void BM_BinaryCopier(benchmark::State& state) {
  const std::size_t blockSize = static_cast<std::size_t>(state.range(0)) << 20;
  for (auto _ : state) {
    state.PauseTiming();
    RemoveTarget();
    state.ResumeTiming();
    auto source = tvxcore::filesupport::FileCopySource::Create(FileAt(S_source), blockSize);
    auto sink = tvxcore::filesupport::FileCopySink::Create(FileAt(S_target));
    std::promise<BinaryCopier::State> ended;
    auto copier = BinaryCopier::CreateBinaryCopier(
        source, sink, [&ended](BinaryCopier::State end) { ended.set_value(end); }, {});
    copier->Start();
    if (!Check(state, ended.get_future().get() == BinaryCopier::State_Finished, "copy failed"))
      break;
  }
  Account(state);
}

void BM_Cp(benchmark::State& state) {
  const std::string command = "cp '" + S_source.string() + "' '" + S_target.string() + "'" +
                              (state.range(0) ? " && sync '" + S_target.string() + "'" : "");
  for (auto _ : state) {
    state.PauseTiming();
    RemoveTarget();
    state.ResumeTiming();
    if (!Check(state, std::system(command.c_str()) == 0, "cp failed")) break;
  }
  Account(state);
}

// Copies the source to a fresh target with `step` (bytes moved from one
// descriptor to the other, -1 on failure, 0 at the end), flushes it, and
// reports a failure as `what`. Each iteration starts with the target removed.
template <typename Step>
void RunDescriptorCopy(benchmark::State& state, const char* what, Step step) {
  for (auto _ : state) {
    state.PauseTiming();
    RemoveTarget();
    state.ResumeTiming();
    const int in = ::open(S_source.c_str(), O_RDONLY | O_CLOEXEC);
    const int out = ::open(S_target.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    bool ok = in >= 0 && out >= 0;
    while (ok) {
      const ssize_t moved = step(in, out);
      ok = moved >= 0;
      if (moved <= 0) break;
    }
    ok = ok && ::fsync(out) == 0;
    if (in >= 0) ::close(in);
    if (out >= 0) ::close(out);
    if (!Check(state, ok, what)) break;
  }
  Account(state);
}

void BM_CopyFileRange(benchmark::State& state) {
  RunDescriptorCopy(state, "copy_file_range failed", [](int in, int out) {
    return ::copy_file_range(in, nullptr, out, nullptr, 1u << 30, 0);
  });
}

void BM_ReadWriteLoop(benchmark::State& state) {
  std::vector<char> buffer(static_cast<std::size_t>(state.range(0)) << 20);
  RunDescriptorCopy(state, "read/write failed", [&buffer](int in, int out) -> ssize_t {
    const ssize_t got = ::read(in, buffer.data(), buffer.size());
    if (got <= 0) return got;
    return ::write(out, buffer.data(), static_cast<std::size_t>(got)) == got ? got : -1;
  });
}

void Configure(benchmark::internal::Benchmark* b) {
  b->Iterations(1)->Repetitions(3)->ReportAggregatesOnly(true)->UseRealTime()->Unit(
      benchmark::kMillisecond);
}

BENCHMARK(BM_BinaryCopier)->Arg(1)->Arg(4)->Arg(8)->Apply(Configure);
BENCHMARK(BM_ReadWriteLoop)->Arg(1)->Arg(4)->Arg(8)->Apply(Configure);
BENCHMARK(BM_CopyFileRange)->Apply(Configure);
BENCHMARK(BM_Cp)->Arg(0)->Arg(1)->ArgName("sync")->Apply(Configure);

bool MakeSource() {
  std::FILE* file = std::fopen(S_source.c_str(), "wb");
  if (!file) return false;
  std::vector<std::uint64_t> block((1u << 20) / sizeof(std::uint64_t));
  std::mt19937_64 random(7);
  bool ok = true;
  for (std::uint64_t written = 0; ok && written < kFileSize; written += 1u << 20) {
    for (auto& word : block) word = random();
    ok = std::fwrite(block.data(), 1, 1u << 20, file) == 1u << 20;
  }
  return std::fclose(file) == 0 && ok;
}

}  // namespace

int main(int argc, char** argv) {
  const char* dir = std::getenv("TVX_BENCH_DIR");
  const fs::path base = dir && *dir ? fs::path(dir) : fs::temp_directory_path();
  std::error_code error;
  const fs::space_info space = fs::space(base, error);
  if (error || space.available < kNeeded) {
    std::printf("copier_benchmark: skipped, %s has less than 3 GiB free (set TVX_BENCH_DIR)\n",
                base.c_str());
    return 0;
  }
  S_dir = base / ("tvx-copier-bench-" + std::to_string(::getpid()));
  fs::create_directories(S_dir);
  S_source = S_dir / "source.bin";
  S_target = S_dir / "target.bin";
  int status = 0;
  if (!MakeSource()) {
    std::printf("copier_benchmark: could not write %s\n", S_source.c_str());
    status = 1;
  } else {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
  }
  fs::remove_all(S_dir, error);
  return status;
}
