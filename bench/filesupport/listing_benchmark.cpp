// Recursive listing of a generated tree of 100,000 files and of /usr/share:
// tvxcore's RecursiveFileIterator beside std::filesystem's
// recursive_directory_iterator and a bare openat/readdir walk (the floor).
// Each counts the files and touches each path, as a caller would: the walkers
// hand out a full path per file (tvxcore once as a File value, once as the
// borrowed path), the floor touches each name.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <random>
#include <string>

#include "tvxcore/filesupport/DirIterators.h"

namespace {

namespace fs = std::filesystem;
using tvxcore::filesupport::Dir;
using tvxcore::filesupport::FileHelper;
using tvxcore::filesupport::RecursiveFileIterator;

constexpr int kFiles = 100000;

// 10 x 10 x 10 directories of 100 files each, names of random length from a
// fixed seed.
const fs::path& Tree() {
  static const fs::path root = [] {
    fs::path dir = fs::temp_directory_path() / "tvx-listing-benchmark";
    fs::remove_all(dir);
    std::mt19937 random(20261121);
    std::uniform_int_distribution<int> length(4, 24);
    int made = 0;
    for (int a = 0; a < 10; ++a)
      for (int b = 0; b < 10; ++b)
        for (int c = 0; c < 10; ++c) {
          const fs::path leaf = dir / ("dir" + std::to_string(a)) / ("sub" + std::to_string(b)) /
                                ("leaf" + std::to_string(c));
          fs::create_directories(leaf);
          for (int f = 0; f < kFiles / 1000; ++f, ++made) {
            std::string name(static_cast<std::size_t>(length(random)), 'x');
            for (auto& ch : name) ch = static_cast<char>('a' + random() % 26);
            name.append("-").append(std::to_string(made)).append(".dat");
            const int fd = ::open((leaf / name).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
            if (fd >= 0) ::close(fd);
          }
        }
    return dir;
  }();
  return root;
}

std::size_t BareWalk(int parentFd, const char* name, std::size_t& bytes) {
  const int fd = ::openat(parentFd, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return 0;
  DIR* dir = ::fdopendir(fd);
  if (dir == nullptr) {
    ::close(fd);
    return 0;
  }
  std::size_t files = 0;
  while (dirent* entry = ::readdir(dir)) {
    const char* n = entry->d_name;
    if (n[0] == '.' && (n[1] == 0 || (n[1] == '.' && n[2] == 0))) continue;
    if (entry->d_type == DT_DIR)
      files += BareWalk(::dirfd(dir), n, bytes);
    else {
      ++files;
      bytes += std::strlen(n);
    }
  }
  ::closedir(dir);
  return files;
}

void Bare(benchmark::State& state, const fs::path& root) {
  std::size_t files = 0;
  for (auto _ : state) {
    std::size_t bytes = 0;
    files = BareWalk(AT_FDCWD, root.c_str(), bytes);
    benchmark::DoNotOptimize(bytes);
  }
  state.counters["files"] = static_cast<double>(files);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * files));
}

void StdFilesystem(benchmark::State& state, const fs::path& root) {
  std::size_t files = 0;
  for (auto _ : state) {
    files = 0;
    std::size_t bytes = 0;
    std::error_code error;
    for (fs::recursive_directory_iterator it(root, error), end; it != end; it.increment(error)) {
      if (it->is_directory(error)) continue;
      ++files;
      bytes += it->path().native().size();
    }
    benchmark::DoNotOptimize(bytes);
  }
  state.counters["files"] = static_cast<double>(files);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * files));
}

// tvxcore's recursive walk; `length` takes the iterator and answers the
// length of the current path the way a caller would get it.
template <typename PathLength>
void Tvxcore(benchmark::State& state, const fs::path& root, PathLength length) {
  const Dir dir(FileHelper(root.string()).Path());
  std::size_t files = 0;
  for (auto _ : state) {
    files = 0;
    std::size_t bytes = 0;
    for (RecursiveFileIterator it(dir, false); it != RecursiveFileIterator(); ++it) {
      ++files;
      bytes += length(it);
    }
    benchmark::DoNotOptimize(bytes);
  }
  state.counters["files"] = static_cast<double>(files);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * files));
}

// A File per entry.
void Tvxcore(benchmark::State& state, const fs::path& root) {
  Tvxcore(state, root,
          [](const RecursiveFileIterator& it) { return (*it).Helper().Path().size(); });
}

// The full path borrowed from the walk, without a File per entry.
void TvxcorePath(benchmark::State& state, const fs::path& root) {
  Tvxcore(state, root, [](const RecursiveFileIterator& it) { return it.CurrentPath().size(); });
}

void BM_Tree_BareReaddir(benchmark::State& state) { Bare(state, Tree()); }
void BM_Tree_StdFilesystem(benchmark::State& state) { StdFilesystem(state, Tree()); }
void BM_Tree_RecursiveFileIterator(benchmark::State& state) { Tvxcore(state, Tree()); }
void BM_Tree_RecursiveFileIteratorPath(benchmark::State& state) { TvxcorePath(state, Tree()); }
void BM_UsrShare_BareReaddir(benchmark::State& state) { Bare(state, "/usr/share"); }
void BM_UsrShare_StdFilesystem(benchmark::State& state) { StdFilesystem(state, "/usr/share"); }
void BM_UsrShare_RecursiveFileIterator(benchmark::State& state) { Tvxcore(state, "/usr/share"); }
void BM_UsrShare_RecursiveFileIteratorPath(benchmark::State& state) {
  TvxcorePath(state, "/usr/share");
}

BENCHMARK(BM_Tree_BareReaddir)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Tree_StdFilesystem)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Tree_RecursiveFileIterator)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Tree_RecursiveFileIteratorPath)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UsrShare_BareReaddir)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UsrShare_StdFilesystem)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UsrShare_RecursiveFileIterator)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_UsrShare_RecursiveFileIteratorPath)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::error_code ignored;
  fs::remove_all(fs::temp_directory_path() / "tvx-listing-benchmark", ignored);
  return 0;
}
