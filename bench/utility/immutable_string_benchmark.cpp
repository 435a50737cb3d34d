// Interning a text that is already interned, as a program that keys its data
// by interned names does all the time: tvxcore's ImmutableString against a
// mutex-guarded std::unordered_set<std::string> and boost::flyweight, on one
// and two threads. Every contender holds each text once for the whole run,
// so a lookup finds it and dropping the result frees nothing.
#include <benchmark/benchmark.h>

#include <boost/flyweight.hpp>
#include <mutex>
#include <string>
#include <unordered_set>
#include <vector>

#include "tvxcore/utility/ImmutableString.h"

namespace {

using tvxcore::utility::ImmutableString;

constexpr int kTexts = 1024;

const std::vector<std::string>& Texts() {
  static const std::vector<std::string> texts = [] {
    std::vector<std::string> t;
    for (int i = 0; i < kTexts; ++i)
      t.push_back("com.example.setting." + std::to_string(i * 7919) + ".value");
    return t;
  }();
  return texts;
}

void BM_Intern_ImmutableString(benchmark::State& state) {
  static const std::vector<ImmutableString> held = [] {
    std::vector<ImmutableString> h;
    for (const std::string& t : Texts()) h.push_back(ImmutableString::CreateDynamic(t));
    return h;
  }();
  const std::vector<std::string>& texts = Texts();
  std::size_t i = static_cast<std::size_t>(state.thread_index()) * 97;
  for (auto _ : state) {
    ImmutableString s = ImmutableString::CreateDynamic(texts[i++ % kTexts]);
    benchmark::DoNotOptimize(s.Bytes());
  }
  benchmark::DoNotOptimize(held.data());
}

std::mutex g_setLock;
std::unordered_set<std::string>& InternSet() {
  static std::unordered_set<std::string> set(Texts().begin(), Texts().end());
  return set;
}

const std::string* InternInSet(const std::string& text) {
  std::lock_guard<std::mutex> lock(g_setLock);
  return &*InternSet().insert(text).first;
}

void BM_Intern_MutexUnorderedSet(benchmark::State& state) {
  InternSet();
  const std::vector<std::string>& texts = Texts();
  std::size_t i = static_cast<std::size_t>(state.thread_index()) * 97;
  for (auto _ : state) benchmark::DoNotOptimize(InternInSet(texts[i++ % kTexts]));
}

void BM_Intern_BoostFlyweight(benchmark::State& state) {
  static const std::vector<boost::flyweight<std::string>> held = [] {
    std::vector<boost::flyweight<std::string>> h;
    for (const std::string& t : Texts()) h.emplace_back(t);
    return h;
  }();
  const std::vector<std::string>& texts = Texts();
  std::size_t i = static_cast<std::size_t>(state.thread_index()) * 97;
  for (auto _ : state) {
    boost::flyweight<std::string> s(texts[i++ % kTexts]);
    benchmark::DoNotOptimize(&s.get());
  }
  benchmark::DoNotOptimize(held.data());
}

// Copying and comparing interned strings: the cost a user pays most often.
void BM_CopyCompare_ImmutableString(benchmark::State& state) {
  static const ImmutableString a = ImmutableString::CreateDynamic(Texts()[1]);
  for (auto _ : state) {
    ImmutableString copy = a;
    benchmark::DoNotOptimize(copy == a);
  }
}

void BM_CopyCompare_BoostFlyweight(benchmark::State& state) {
  static const boost::flyweight<std::string> a(Texts()[1]);
  for (auto _ : state) {
    boost::flyweight<std::string> copy = a;
    benchmark::DoNotOptimize(copy == a);
  }
}

BENCHMARK(BM_Intern_ImmutableString)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_Intern_MutexUnorderedSet)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_Intern_BoostFlyweight)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_CopyCompare_ImmutableString)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_CopyCompare_BoostFlyweight)->Threads(1)->Threads(2)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
