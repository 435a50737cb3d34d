// The cost of a quiet tracing site: a cached TVX_TRACE_ENABLED against a
// plain `if (flag)` branch and against spdlog's level check, the choice a
// user of another logger would make. Each loop clobbers memory, so every
// contender reads its state from memory on every pass.
#include <benchmark/benchmark.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

#include <memory>

#include "tvxcore/debug/Trace.h"

// A switch the compiler can't see through: visible to other files, so it
// is read from memory on every pass.
bool plainFlag = false;

namespace {

namespace dbg = tvxcore::debug;

void BM_QuietTraceSite(benchmark::State& state) {
  dbg::SetMasterTraceVolume(-1);  // no line passes, so every site stays quiet
  long lines = 0;
  for (auto _ : state) {
    if (TVX_TRACE_ENABLED("Bench", 3)) ++lines;
    benchmark::ClobberMemory();
  }
  benchmark::DoNotOptimize(lines);
}
BENCHMARK(BM_QuietTraceSite);

void BM_PlainFlag(benchmark::State& state) {
  long lines = 0;
  for (auto _ : state) {
    if (plainFlag) ++lines;
    benchmark::ClobberMemory();
  }
  benchmark::DoNotOptimize(lines);
}
BENCHMARK(BM_PlainFlag);

void BM_SpdlogLevelCheck(benchmark::State& state) {
  auto logger =
      std::make_shared<spdlog::logger>("bench", std::make_shared<spdlog::sinks::null_sink_st>());
  logger->set_level(spdlog::level::warn);
  long lines = 0;
  for (auto _ : state) {
    if (logger->should_log(spdlog::level::debug)) ++lines;
    benchmark::ClobberMemory();
  }
  benchmark::DoNotOptimize(lines);
}
BENCHMARK(BM_SpdlogLevelCheck);

// For scale: the enabled test itself, which a site pays once after a change.
void BM_TraceEnabledUncached(benchmark::State& state) {
  dbg::SetMasterTraceVolume(10);
  for (auto _ : state) benchmark::DoNotOptimize(dbg::TraceEnabled("Bench", 3, true));
}
BENCHMARK(BM_TraceEnabledUncached);

}  // namespace

BENCHMARK_MAIN();
