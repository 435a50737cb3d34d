// Writing and reading a property list of 10,000 mixed values (nested three
// deep, fixed seed) as XML, beside libplist on the same data, pugixml parsing
// the same text (a DOM parse, no typing) and expat with empty handlers (the
// ceiling of any reader built on it).
#include <benchmark/benchmark.h>
#include <expat.h>
#include <plist/plist.h>

#include <cstdint>
#include <list>
#include <pugixml.hpp>
#include <random>
#include <string>

#include "tvxcore/config/Errors.h"
#include "tvxcore/proplist/PropList.h"
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
  for (auto _ : state) {
    XML_Parser parser = XML_ParserCreateNS(nullptr, '\x01');
    XML_SetElementHandler(
        parser, [](void*, const XML_Char*, const XML_Char**) {}, [](void*, const XML_Char*) {});
    XML_SetCharacterDataHandler(parser, [](void*, const XML_Char*, int) {});
    auto status = XML_Parse(parser, reinterpret_cast<const char*>(d.ourText.data()),
                            static_cast<int>(d.ourText.size()), XML_TRUE);
    benchmark::DoNotOptimize(status);
    XML_ParserFree(parser);
  }
  SetBytes(state, d.ourText.size());
}

BENCHMARK(BM_Write_Tvxcore)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Write_Libplist)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Read_Tvxcore)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Read_Libplist)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Read_TvxcoreUTF16Events)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Parse_TvxcoreEmptyHandler)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Parse_Pugixml)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Parse_ExpatEmptyHandlers)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
