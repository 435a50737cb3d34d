// Writing and reading a property list of 10,000 mixed values (nested three
// deep, fixed seed) as XML, beside libplist on the same data, pugixml parsing
// the same text (a DOM parse, no typing) and expat with empty handlers (the
// ceiling of any reader built on it). Also loading files with one very long
// token (20 and 200 MB attributes), beside pugixml and expat fed in pieces.
#include <benchmark/benchmark.h>
#include <expat.h>
#include <plist/plist.h>

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <list>
#include <map>
#include <memory>
#include <pugixml.hpp>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "tvxcore/config/Errors.h"
#include "tvxcore/proplist/PropList.h"
#include "tvxcore/proplist/PropListFiles.h"
#include "tvxcore/proplist/PropListUtils.h"
#include "tvxcore/proplist/PropListXMLHandler.h"
#include "tvxcore/utility/UnicodeConversion.h"
#include "tvxcore/xml/ExpatParser.h"

using namespace tvxcore;
using tvxcore::proplist::PropList;

namespace {

constexpr int kTop = 10;
constexpr int kMiddle = 10;
constexpr int kLeaves = 100;  // 10 x 10 x 100 = 10,000 values

UTF8String U8(const std::string& s) { return UTF8String(s.begin(), s.end()); }

// The same data in both models.
struct Data {
  PropList list;
  plist_t peer = nullptr;
  UTF8String ourText;
  std::string peerText;

  Data() {
    std::mt19937 rng(20240611);
    peer = plist_new_dict();
    for (int t = 0; t < kTop; ++t) {
      std::string topKey = "section " + std::to_string(t);
      PropList* top = list.NewSubList(U8(topKey));
      plist_t peerTop = plist_new_dict();
      plist_dict_set_item(peer, topKey.c_str(), peerTop);
      for (int m = 0; m < kMiddle; ++m) {
        std::string midKey = "group-" + std::to_string(m);
        PropList* mid = top->NewSubList(U8(midKey));
        plist_t peerMid = plist_new_dict();
        plist_dict_set_item(peerTop, midKey.c_str(), peerMid);
        for (int l = 0; l < kLeaves; ++l) {
          std::string key = "value." + std::to_string(l);
          plist_t node = nullptr;
          switch (rng() % 8) {
            case 0: {
              std::string s = "text " + std::to_string(rng()) + " & <more>";
              mid->SetValue(U8(key), U8(s));
              node = plist_new_string(s.c_str());
              break;
            }
            case 1: {
              std::string s = "\xC3\xA9t\xC3\xA9 " + std::to_string(rng() % 1000);
              mid->SetValue(U8(key), utility::UTF8to16(U8(s)));
              node = plist_new_string(s.c_str());
              break;
            }
            case 2: {
              bool b = rng() & 1;
              mid->SetValue(U8(key), b);
              node = plist_new_bool(b);
              break;
            }
            case 3: {
              auto v = static_cast<std::int32_t>(rng());
              mid->SetValue(U8(key), v);
              node = plist_new_uint(static_cast<std::uint64_t>(static_cast<std::int64_t>(v)));
              break;
            }
            case 4: {
              unsigned long long v = (static_cast<unsigned long long>(rng()) << 32) | rng();
              mid->SetValue(U8(key), v);
              node = plist_new_uint(v);
              break;
            }
            case 5: {
              double v = std::uniform_real_distribution<double>(-1e6, 1e6)(rng);
              mid->SetValue(U8(key), v);
              node = plist_new_real(v);
              break;
            }
            case 6: {
              float v = std::uniform_real_distribution<float>(0, 1)(rng);
              mid->SetValue(U8(key), v);
              node = plist_new_real(v);
              break;
            }
            default: {
              std::list<double> values;
              node = plist_new_array();
              for (int i = 0; i < 4; ++i) {
                double v = std::uniform_real_distribution<double>(0, 100)(rng);
                values.push_back(v);
                plist_array_append_item(node, plist_new_real(v));
              }
              mid->SetValue(U8(key), values);
              break;
            }
          }
          plist_dict_set_item(peerMid, key.c_str(), node);
        }
      }
    }
    proplist::utils::WritePropList(ourText, list);
    char* xml = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(peer, &xml, &length);
    peerText.assign(xml, length);
    plist_to_xml_free(xml);
  }
  ~Data() { plist_free(peer); }
};

class BenchErrors : public config::ErrorManager {
 public:
  void ReportError(config::ErrorLevel, const char* key, std::uint32_t, std::int32_t, bool,
                   const config::ReplacementValue&, const config::ReplacementValue&,
                   const config::ReplacementValue&, const config::ReplacementValue&) override {
    throw std::runtime_error(key);
  }
};

Data& Shared() {
  static BenchErrors errors;
  static bool installed = [] {
    config::ErrorManager::Set(&errors);
    std::unique_ptr<xml::DocParserFactory> factory = std::make_unique<xml::ExpatParserFactory>();
    xml::SetParserFactory(factory);
    return true;
  }();
  (void)installed;
  static Data data;
  return data;
}

void SetBytes(benchmark::State& state, std::size_t bytes) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
  state.counters["text_bytes"] = static_cast<double>(bytes);
}

void BM_Write_Tvxcore(benchmark::State& state) {
  Data& d = Shared();
  UTF8String text;
  for (auto _ : state) {
    proplist::utils::WritePropList(text, d.list);
    benchmark::DoNotOptimize(text.data());
  }
  SetBytes(state, d.ourText.size());
}

void BM_Write_Libplist(benchmark::State& state) {
  Data& d = Shared();
  for (auto _ : state) {
    char* xml = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(d.peer, &xml, &length);
    benchmark::DoNotOptimize(xml);
    plist_to_xml_free(xml);
  }
  SetBytes(state, d.peerText.size());
}

void BM_Read_Tvxcore(benchmark::State& state) {
  Data& d = Shared();
  for (auto _ : state) {
    PropList list;
    proplist::utils::ReadPropList(d.ourText, list);
    benchmark::DoNotOptimize(list.IsEmpty());
  }
  SetBytes(state, d.ourText.size());
}

void BM_Read_Libplist(benchmark::State& state) {
  Data& d = Shared();
  for (auto _ : state) {
    plist_t read = nullptr;
    plist_from_xml(d.peerText.data(), static_cast<std::uint32_t>(d.peerText.size()), &read);
    benchmark::DoNotOptimize(read);
    plist_free(read);
  }
  SetBytes(state, d.peerText.size());
}

// The model alone: a deep copy of the list read above and its destruction,
// no text at all. What a read costs beyond this and expat's own parse is
// the reader's.
void BM_Copy_Tvxcore(benchmark::State& state) {
  Data& d = Shared();
  for (auto _ : state) {
    PropList copy(d.list);
    benchmark::DoNotOptimize(copy.IsEmpty());
  }
  SetBytes(state, d.ourText.size());
}

// The tree as the calls that build it through the model's public interface,
// with every value already in memory: keys and strings as UTF-8 bytes, UTF-16
// strings already converted, numbers already parsed, arrays already in lists.
// Replaying it costs what any reader on this model must pay for the tree, and
// nothing a reader adds (text, conversions, parsing, element names).
struct OpenList {};   // NewSubList(key), then build into it
struct CloseList {};  // back to the parent
using Value = std::variant<OpenList, CloseList, UTF8String, UTF16String, bool, std::int32_t,
                           unsigned long long, float, double, std::list<double>>;
struct Step {
  UTF8String key;
  Value value;
};

template <typename T>
bool Take(const PropList& list, const UTF8String& key, std::vector<Step>& out) {
  T value{};
  if (!list.GetValue(key, value)) return false;
  out.push_back({key, std::move(value)});
  return true;
}

// The steps that build `root` again, in map order (the order a reader meets
// the keys in the text), without recursion.
std::vector<Step> Script(const PropList& root) {
  std::vector<Step> steps;
  struct Level {
    const PropList* list;
    std::list<UTF8String> names;
  };
  std::vector<Level> stack(1);
  stack.back().list = &root;
  root.GetPropertyNames(stack.back().names);
  while (!stack.empty()) {
    Level& level = stack.back();
    if (level.names.empty()) {
      stack.pop_back();
      if (!stack.empty()) steps.push_back({{}, CloseList{}});
      continue;
    }
    UTF8String key = std::move(level.names.front());
    level.names.pop_front();
    if (PropList* sub = level.list->GetSubList(key)) {
      steps.push_back({key, OpenList{}});
      stack.emplace_back();
      stack.back().list = sub;
      sub->GetPropertyNames(stack.back().names);
      continue;
    }
    if (!Take<UTF8String>(*level.list, key, steps) && !Take<UTF16String>(*level.list, key, steps) &&
        !Take<bool>(*level.list, key, steps) && !Take<std::int32_t>(*level.list, key, steps) &&
        !Take<unsigned long long>(*level.list, key, steps) &&
        !Take<float>(*level.list, key, steps) && !Take<double>(*level.list, key, steps) &&
        !Take<std::list<double>>(*level.list, key, steps)) {
      throw std::logic_error("the benchmark's data holds a type the script doesn't know");
    }
  }
  return steps;
}

void Replay(const std::vector<Step>& steps, PropList& root) {
  std::vector<PropList*> stack{&root};
  for (const Step& step : steps) {
    PropList& list = *stack.back();
    std::visit(
        [&]<typename T>(const T& value) {
          if constexpr (std::is_same_v<T, OpenList>) {
            stack.push_back(list.NewSubList(step.key));
          } else if constexpr (std::is_same_v<T, CloseList>) {
            stack.pop_back();
          } else {
            list.SetValue(step.key, value);
          }
        },
        step.value);
  }
}

const std::vector<Step>& SharedScript() {
  static const std::vector<Step> steps = Script(Shared().list);
  return steps;
}

// expat with empty handlers over the text, as BM_Parse_ExpatEmptyHandlers.
XML_Status ParseEmpty(const UTF8String& text) {
  XML_Parser parser = XML_ParserCreateNS(nullptr, '\x01');
  XML_SetElementHandler(
      parser, [](void*, const XML_Char*, const XML_Char**) {}, [](void*, const XML_Char*) {});
  XML_SetCharacterDataHandler(parser, [](void*, const XML_Char*, int) {});
  auto status = XML_Parse(parser, reinterpret_cast<const char*>(text.data()),
                          static_cast<int>(text.size()), XML_TRUE);
  XML_ParserFree(parser);
  return status;
}

// The model built from values in memory and destroyed: a reader's share of
// the work that no reader can avoid.
void BM_Build_Tvxcore(benchmark::State& state) {
  Data& d = Shared();
  const std::vector<Step>& steps = SharedScript();
  for (auto _ : state) {
    PropList list;
    Replay(steps, list);
    benchmark::DoNotOptimize(list.IsEmpty());
  }
  SetBytes(state, d.ourText.size());
}

// The floor of a reader of this design, in one benchmark: expat's parse of
// the text with empty handlers, then the same tree built from values in
// memory and destroyed. ReadPropList's time over this is what the reader adds.
void BM_Floor_ExpatPlusBuild(benchmark::State& state) {
  Data& d = Shared();
  const std::vector<Step>& steps = SharedScript();
  for (auto _ : state) {
    benchmark::DoNotOptimize(ParseEmpty(d.ourText));
    PropList list;
    Replay(steps, list);
    benchmark::DoNotOptimize(list.IsEmpty());
  }
  SetBytes(state, d.ourText.size());
}

// The same read through a subclass of the reader that overrides nothing: a
// host's subclass gets the public UTF-16 events, the library's own reader
// takes expat's UTF-8 directly.
class SubclassedReader : public proplist::PropListXMLHandler {
 public:
  using PropListXMLHandler::PropListXMLHandler;
};

void BM_Read_TvxcoreUTF16Events(benchmark::State& state) {
  Data& d = Shared();
  for (auto _ : state) {
    PropList list;
    std::unique_ptr<xml::AbstractParseHandler> handler = std::make_unique<SubclassedReader>(&list);
    auto parser = xml::GetParser(handler);
    benchmark::DoNotOptimize(parser->ParseBuffer(d.ourText));
  }
  SetBytes(state, d.ourText.size());
}

// The parser layer alone: the library's expat parser driving a handler that
// ignores every event.
void BM_Parse_TvxcoreEmptyHandler(benchmark::State& state) {
  Data& d = Shared();
  for (auto _ : state) {
    std::unique_ptr<xml::AbstractParseHandler> handler =
        std::make_unique<xml::AbstractParseHandler>();
    auto parser = xml::GetParser(handler);
    benchmark::DoNotOptimize(parser->ParseBuffer(d.ourText));
  }
  SetBytes(state, d.ourText.size());
}

void BM_Parse_Pugixml(benchmark::State& state) {
  Data& d = Shared();
  for (auto _ : state) {
    pugi::xml_document doc;
    auto result = doc.load_buffer(d.ourText.data(), d.ourText.size());
    benchmark::DoNotOptimize(result.status);
  }
  SetBytes(state, d.ourText.size());
}

void BM_Parse_ExpatEmptyHandlers(benchmark::State& state) {
  Data& d = Shared();
  for (auto _ : state) benchmark::DoNotOptimize(ParseEmpty(d.ourText));
  SetBytes(state, d.ourText.size());
}

// Files with one long token: a "prop.map" whose attribute is state.range(0)
// MB long. A parser fed in fixed pieces rescans the unfinished token with
// every piece, which makes the parse quadratic in the token's length.
class LongTokenFile {
 public:
  explicit LongTokenFile(std::size_t megabytes)
      : path_(std::filesystem::temp_directory_path() /
              ("tvx-plist-bench-" + std::to_string(::getpid()) + "-" + std::to_string(megabytes) +
               ".xml")) {
    std::ofstream out(path_, std::ios::binary);
    out << "<?xml version='1.0'?>\n<prop.map version='4' pad='";
    const std::string block(1 << 20, 'x');
    for (std::size_t i = 0; i < megabytes; ++i) out << block;
    out << "'>\n<prop.list>\n<prop.pair>\n<key>k</key>\n<true/>\n</prop.pair>\n</prop.list>\n"
           "</prop.map>\n";
    size_ = static_cast<std::size_t>(out.tellp());
  }
  ~LongTokenFile() { std::filesystem::remove(path_); }
  const std::filesystem::path& Path() const { return path_; }
  std::size_t Size() const { return size_; }

  static LongTokenFile& Of(std::int64_t megabytes) {
    static std::map<std::int64_t, std::unique_ptr<LongTokenFile>> files;
    auto& file = files[megabytes];
    if (!file) file = std::make_unique<LongTokenFile>(static_cast<std::size_t>(megabytes));
    return *file;
  }

 private:
  std::filesystem::path path_;
  std::size_t size_ = 0;
};

void BM_LoadLongToken_Tvxcore(benchmark::State& state) {
  Shared();
  const LongTokenFile& file = LongTokenFile::Of(state.range(0));
  const std::string native = file.Path().string();
  const UTF16String path = utility::UTF8to16(UTF8String(native.begin(), native.end()));
  for (auto _ : state) {
    PropList list;
    proplist::utils::LoadPropList(path, list, false);
    if (list.GetPropertyType(U8("k")) != proplist::kPropListType_Bool) {
      state.SkipWithError("not read");
    }
  }
  SetBytes(state, file.Size());
}

// pugixml reading the same file into a DOM.
void BM_LoadLongToken_Pugixml(benchmark::State& state) {
  const LongTokenFile& file = LongTokenFile::Of(state.range(0));
  for (auto _ : state) {
    pugi::xml_document doc;
    auto result = doc.load_file(file.Path().c_str());
    if (!result) state.SkipWithError("not read");
  }
  SetBytes(state, file.Size());
}

// expat with empty handlers fed the file in 64 KiB pieces: the library's
// parser before it read files whole.
void BM_LoadLongToken_ExpatPieces64K(benchmark::State& state) {
  const LongTokenFile& file = LongTokenFile::Of(state.range(0));
  for (auto _ : state) {
    XML_Parser parser = XML_ParserCreateNS(nullptr, '\x01');
    XML_SetElementHandler(
        parser, [](void*, const XML_Char*, const XML_Char**) {}, [](void*, const XML_Char*) {});
    std::ifstream in(file.Path(), std::ios::binary);
    bool ok = true;
    for (;;) {
      void* buffer = XML_GetBuffer(parser, 64 * 1024);
      in.read(static_cast<char*>(buffer), 64 * 1024);
      const bool last = in.eof();
      ok = XML_ParseBuffer(parser, static_cast<int>(in.gcount()), last) == XML_STATUS_OK;
      if (!ok || last) break;
    }
    if (!ok) state.SkipWithError("not read");
    XML_ParserFree(parser);
  }
  SetBytes(state, file.Size());
}

BENCHMARK(BM_LoadLongToken_Tvxcore)
    ->Arg(20)
    ->Arg(200)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_LoadLongToken_Pugixml)
    ->Arg(20)
    ->Arg(200)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
// One iteration is seconds at 20 MB (and minutes at 200 MB, left out).
BENCHMARK(BM_LoadLongToken_ExpatPieces64K)
    ->Arg(20)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

BENCHMARK(BM_Write_Tvxcore)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Write_Libplist)->Unit(benchmark::kMillisecond);
// The fastest repetition beside the median: on a shared machine the other
// loads only ever add time.
double Fastest(const std::vector<double>& times) {
  return times.empty() ? 0 : *std::min_element(times.begin(), times.end());
}
#define READ_BENCHMARK(f) \
  BENCHMARK(f)->Unit(benchmark::kMillisecond)->ComputeStatistics("min", Fastest)

READ_BENCHMARK(BM_Read_Tvxcore);
READ_BENCHMARK(BM_Read_Libplist);
READ_BENCHMARK(BM_Read_TvxcoreUTF16Events);
READ_BENCHMARK(BM_Copy_Tvxcore);
READ_BENCHMARK(BM_Build_Tvxcore);
READ_BENCHMARK(BM_Floor_ExpatPlusBuild);
READ_BENCHMARK(BM_Parse_TvxcoreEmptyHandler);
READ_BENCHMARK(BM_Parse_Pugixml);
READ_BENCHMARK(BM_Parse_ExpatEmptyHandlers);

// The console report, followed by the read's ratios taken within this run:
// the median and the fastest of the CPU times of each benchmark's repetitions.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred) continue;
      // With --benchmark_report_aggregates_only only the aggregates come here.
      if (run.run_type == Run::RT_Iteration) {
        cpu_[run.run_name.function_name].push_back(run.GetAdjustedCPUTime());
      } else if (run.aggregate_name == "median" || run.aggregate_name == "min") {
        aggregates_[run.aggregate_name][run.run_name.function_name] = run.GetAdjustedCPUTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    for (const char* statistic : {"median", "min"}) {
      std::ostream& out = GetOutputStream();
      out << "CPU time ratios, " << statistic << " of the repetitions:\n";
      Ratio(statistic, "ReadPropList / floor (expat empty + build)", "BM_Read_Tvxcore",
            "BM_Floor_ExpatPlusBuild");
      Ratio(statistic, "libplist / ReadPropList", "BM_Read_Libplist", "BM_Read_Tvxcore");
      Ratio(statistic, "floor / (expat empty + build, run apart)", "BM_Floor_ExpatPlusBuild",
            "BM_Parse_ExpatEmptyHandlers", "BM_Build_Tvxcore");
    }
  }

 private:
  // The statistic of one benchmark's CPU time: its aggregate when the run
  // reported one, else computed from the repetitions (0 when it didn't run).
  double Statistic(const std::string& statistic, const std::string& name) const {
    if (auto s = aggregates_.find(statistic); s != aggregates_.end()) {
      if (auto it = s->second.find(name); it != s->second.end()) return it->second;
    }
    auto it = cpu_.find(name);
    if (it == cpu_.end() || it->second.empty()) return 0;
    std::vector<double> times = it->second;
    std::sort(times.begin(), times.end());
    if (statistic == std::string("min")) return times.front();
    const std::size_t n = times.size();
    return n % 2 ? times[n / 2] : (times[n / 2 - 1] + times[n / 2]) / 2;
  }
  void Ratio(const std::string& statistic, const char* label, const std::string& over,
             const std::string& under, const std::string& plus = {}) const {
    const double a = Statistic(statistic, over);
    const double b = Statistic(statistic, under);
    const double c = plus.empty() ? 0 : Statistic(statistic, plus);
    if (a <= 0 || b <= 0 || (!plus.empty() && c <= 0)) return;
    char line[128];
    std::snprintf(line, sizeof line, "  %-46s %.3f\n", label, a / (b + c));
    GetOutputStream() << line;
  }
  std::map<std::string, std::vector<double>> cpu_;
  std::map<std::string, std::map<std::string, double>> aggregates_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
