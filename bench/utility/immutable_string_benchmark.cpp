// Interning a text that is already interned, as a program that keys its data
// by interned names does all the time: tvxcore's ImmutableString against a
// mutex-guarded std::unordered_set<std::string> and boost::flyweight, on one
// and two threads. Every contender holds each text once for the whole run,
// so a lookup finds it and dropping the result frees nothing.
//
// BM_Intern_TableFloor is ImmutableString's table written plainly with the
// standard library: the same 64 buckets and bucket function, a
// std::recursive_mutex and a std::set ordered by length then bytes per
// bucket, one count increment under the lock and one decrement outside it.
// No implementation of that table can be cheaper than this row.
#include <benchmark/benchmark.h>

#include <atomic>
#include <boost/flyweight.hpp>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <set>
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

namespace table_floor {

struct Record {
  std::atomic<std::uint32_t> refCount{0};
  std::size_t length = 0;
  std::string text;
};

struct Key {
  const char* bytes;
  std::size_t length;
};

int Order(const char* a, std::size_t aLength, const char* b, std::size_t bLength) {
  if (aLength != bLength) return aLength < bLength ? -1 : 1;
  return std::memcmp(a, b, aLength);
}

struct RecordOrder {
  using is_transparent = void;
  bool operator()(const Record* a, const Record* b) const {
    return Order(a->text.data(), a->length, b->text.data(), b->length) < 0;
  }
  bool operator()(const Key& a, const Record* b) const {
    return Order(a.bytes, a.length, b->text.data(), b->length) < 0;
  }
  bool operator()(const Record* a, const Key& b) const {
    return Order(a->text.data(), a->length, b.bytes, b.length) < 0;
  }
};

struct Bucket {
  std::recursive_mutex mutex;
  std::set<Record*, RecordOrder> records;
  std::set<Record*, RecordOrder> unused;
};

constexpr std::size_t kBuckets = 64;
Bucket g_buckets[kBuckets];

Bucket& BucketOf(const char* text, std::size_t length) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text);
  return g_buckets[(length + bytes[length - 1] + bytes[(2 * length) / 3]) % kBuckets];
}

Record* Create(const std::string& text) {
  Bucket& bucket = BucketOf(text.data(), text.size());
  std::lock_guard<std::recursive_mutex> lock(bucket.mutex);
  Record* record;
  auto found = bucket.records.find(Key{text.data(), text.size()});
  if (found != bucket.records.end()) {
    record = *found;
  } else {
    record = new Record;
    record->length = text.size();
    record->text = text;
    bucket.records.insert(record);
  }
  record->refCount.fetch_add(1, std::memory_order_relaxed);
  return record;
}

void Release(Record* record) {
  if (record->refCount.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  Bucket& bucket = BucketOf(record->text.data(), record->length);
  std::lock_guard<std::recursive_mutex> lock(bucket.mutex);
  bucket.unused.insert(record);
}

}  // namespace table_floor

void BM_Intern_TableFloor(benchmark::State& state) {
  static const std::vector<table_floor::Record*> held = [] {
    std::vector<table_floor::Record*> h;
    for (const std::string& t : Texts()) h.push_back(table_floor::Create(t));
    return h;
  }();
  const std::vector<std::string>& texts = Texts();
  std::size_t i = static_cast<std::size_t>(state.thread_index()) * 97;
  for (auto _ : state) {
    table_floor::Record* record = table_floor::Create(texts[i++ % kTexts]);
    benchmark::DoNotOptimize(record->text.data());
    table_floor::Release(record);
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
BENCHMARK(BM_Intern_TableFloor)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_Intern_MutexUnorderedSet)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_Intern_BoostFlyweight)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_CopyCompare_ImmutableString)->Threads(1)->Threads(2)->UseRealTime();
BENCHMARK(BM_CopyCompare_BoostFlyweight)->Threads(1)->Threads(2)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
