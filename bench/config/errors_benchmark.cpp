// The cost of the error road: routing one report through ThrowError (with and
// without a deferred reporter on the thread, and from several threads at
// once), against calling the manager directly; and building the message with
// SubstituteErrorMessage and ZString, against snprintf of the same text.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>

#include "tvxcore/ZString.h"
#include "tvxcore/config/Errors.h"
#include "tvxcore/config/Localizer.h"

namespace {

using tvxcore::UTF16String;
using tvxcore::config::ErrorLevel;
using tvxcore::config::ReplacementValue;

class CountingManager : public tvxcore::config::ErrorManager {
 public:
  void ReportError(ErrorLevel, const char*, std::uint32_t, std::int32_t, bool,
                   const ReplacementValue&, const ReplacementValue&, const ReplacementValue&,
                   const ReplacementValue&) override {
    benchmark::DoNotOptimize(++reports);
  }
  long reports = 0;
};

class DefaultTextLocalizer : public tvxcore::config::Localizer {
 public:
  UTF16String Translate(const char* inKey) override {
    const char* text = std::strchr(inKey, '=');
    text = text ? text + 1 : inKey;
    return UTF16String(text, text + std::strlen(text));
  }
  void LoadDictionary(const UTF16String&) override {}
};

CountingManager g_manager;
DefaultTextLocalizer g_localizer;
const ReplacementValue kNone;
constexpr const char* kKey =
    "$$$/tvxcore/config/Error/test/nonfataltest=This is a non-fatal exception. int:^1, uint:^2, "
    "double:^3";

struct Install {
  Install() {
    tvxcore::config::ErrorManager::Set(&g_manager);
    tvxcore::config::Localizer::Set(&g_localizer);
  }
} g_install;

void BM_DirectManagerCall(benchmark::State& state) {
  tvxcore::config::ErrorManager* manager = &g_manager;
  benchmark::DoNotOptimize(manager);
  for (auto _ : state) {
    manager->ReportError(tvxcore::config::kErrorLevel_NonFatal, kKey, 100, 20, true, kNone, kNone,
                         kNone, kNone);
  }
}
BENCHMARK(BM_DirectManagerCall);

void BM_ThrowErrorNoReporter(benchmark::State& state) {
  for (auto _ : state) {
    tvxcore::config::ThrowError(tvxcore::config::kErrorLevel_NonFatal, kKey, 100, 20, true, kNone,
                                kNone, kNone, kNone);
  }
}
BENCHMARK(BM_ThrowErrorNoReporter)->ThreadRange(1, 2)->UseRealTime();

void BM_ThrowErrorIntoReporter(benchmark::State& state) {
  tvxcore::config::DeferredErrorReporter reporter(false);
  const ReplacementValue value(42);
  for (auto _ : state) {
    tvxcore::config::ThrowError(tvxcore::config::kErrorLevel_NonFatal, kKey, 100, 20, true, value,
                                kNone, kNone, kNone);
  }
  benchmark::DoNotOptimize(reporter.GetErrorCount());
}
BENCHMARK(BM_ThrowErrorIntoReporter)->ThreadRange(1, 2)->UseRealTime();

void BM_SubstituteErrorMessage(benchmark::State& state) {
  const ReplacementValue v1(-2147483648LL), v2(4294967295ULL), v3(29.2334);
  for (auto _ : state) {
    benchmark::DoNotOptimize(tvxcore::config::SubstituteErrorMessage(kKey, v1, v2, v3, kNone));
  }
}
BENCHMARK(BM_SubstituteErrorMessage);

void BM_SnprintfSameMessage(benchmark::State& state) {
  char buffer[256];
  long long v1 = -2147483648LL;
  unsigned long long v2 = 4294967295ULL;
  double v3 = 29.2334;
  benchmark::DoNotOptimize(v1);
  for (auto _ : state) {
    int n =
        std::snprintf(buffer, sizeof buffer,
                      "This is a non-fatal exception. int:%lld, uint:%llu, double:%g", v1, v2, v3);
    benchmark::DoNotOptimize(n);
    benchmark::DoNotOptimize(buffer);
  }
}
BENCHMARK(BM_SnprintfSameMessage);

void BM_ZStringTwoPaths(benchmark::State& state) {
  const UTF16String from(u"/home/user/projects/cut/scene 12.tvx");
  const UTF16String to(u"/home/user/projects/cut/scene 12 (old).tvx");
  for (auto _ : state) {
    benchmark::DoNotOptimize(tvxcore::ZString(
        "$$$/tvxcore/filesupport/Rename=Could not rename the file '@0' to '@1'.", from, to));
  }
}
BENCHMARK(BM_ZStringTwoPaths);

void BM_SnprintfTwoPaths(benchmark::State& state) {
  char buffer[256];
  const char* from = "/home/user/projects/cut/scene 12.tvx";
  const char* to = "/home/user/projects/cut/scene 12 (old).tvx";
  benchmark::DoNotOptimize(from);
  for (auto _ : state) {
    int n =
        std::snprintf(buffer, sizeof buffer, "Could not rename the file '%s' to '%s'.", from, to);
    benchmark::DoNotOptimize(n);
    benchmark::DoNotOptimize(buffer);
  }
}
BENCHMARK(BM_SnprintfTwoPaths);

}  // namespace

BENCHMARK_MAIN();
