// JSONParse beside the parsers a user would pick instead, on three generated
// documents shaped like the usual JSON test files: twitter-like (objects,
// strings with escapes and non-ASCII text), canada-like (numbers: long
// coordinate arrays) and citm-like (many small objects, integers and nulls).
// Every iteration parses the whole text and destroys what it built.
//
// BM_JSONBuildFloor builds the same tree as JSONParse without reading any
// text: from a list of already decoded events it makes every value, string,
// key and container the parser makes, through the public calls. It is what
// the value model (one boost::shared_ptr<boost::any> per value) costs by
// itself, the floor of any parser that returns this model.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <rapidjson/document.h>
#include <simdjson.h>
#include <nlohmann/json.hpp>

#include "tvxcore/serialization/JSON.h"

namespace {

using namespace tvxcore;
using namespace tvxcore::serialization;

// ---------------------------------------------------------------------------
// Documents.

class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}
  std::uint64_t Below(std::uint64_t n) { return random_() % n; }
  bool Chance(int percent) { return static_cast<int>(Below(100)) < percent; }

  // A word of ASCII letters, or with `unicode` now and then a non-ASCII
  // word written raw or as \u escapes, as tweets in many languages are.
  std::string Words(int count, bool unicode) {
    static const char* const kAscii[] = {"the",      "media", "project", "render",
                                         "timeline", "clip",  "frame",   "audio",
                                         "export",   "color", "track",   "review"};
    static const char* const kRaw[] = {"caf\xc3\xa9", "\xe6\x98\xa0\xe5\x83\x8f",
                                       "\xd0\xb2\xd0\xb8\xd0\xb4\xd0\xb5\xd0\xbe"};
    static const char* const kEscaped[] = {"\\u6620\\u50cf\\u7de8\\u96c6", "\\u00e9t\\u00e9",
                                           "\\ud83c\\udfac"};
    std::string out;
    for (int i = 0; i < count; ++i) {
      if (i) out += ' ';
      if (unicode && Chance(15)) {
        out += Chance(50) ? kRaw[Below(3)] : kEscaped[Below(3)];
      } else {
        out += kAscii[Below(12)];
      }
    }
    return out;
  }
  std::string Quoted(const std::string& text) { return '"' + text + '"'; }
  std::string Number(std::uint64_t below) { return std::to_string(Below(below)); }

 private:
  std::mt19937_64 random_;
};

std::string Twitter() {
  Generator g(1);
  std::string out = "{\"statuses\":[";
  for (int i = 0; i < 100; ++i) {
    if (i) out += ',';
    const std::string id = std::to_string(505874924095815681ull + g.Below(1000000));
    auto user = [&] {
      return "{\"id\":" + g.Number(3000000000) + ",\"id_str\":\"" + g.Number(3000000000) +
             "\",\"name\":" + g.Quoted(g.Words(2, true)) +
             ",\"screen_name\":" + g.Quoted(g.Words(1, false)) +
             ",\"location\":" + g.Quoted(g.Words(1, true)) +
             ",\"description\":" + g.Quoted(g.Words(12, true)) + ",\"url\":" +
             (g.Chance(50) ? std::string("null")
                           : "\"http:\\/\\/t.co\\/" + g.Words(1, false) + "\"") +
             ",\"protected\":false,\"followers_count\":" + g.Number(100000) +
             ",\"friends_count\":" + g.Number(5000) + ",\"listed_count\":" + g.Number(100) +
             ",\"created_at\":\"Sun Jul 21 13:17:19 +0000 2013\",\"favourites_count\":" +
             g.Number(10000) + ",\"utc_offset\":null,\"time_zone\":null,\"geo_enabled\":" +
             (g.Chance(50) ? "true" : "false") +
             ",\"verified\":false,\"statuses_count\":" + g.Number(100000) +
             ",\"lang\":\"ja\",\"profile_background_color\":\"C0DEED\","
             "\"profile_image_url\":\"http:\\/\\/pbs.twimg.com\\/profile_images\\/" +
             g.Number(1000000000) +
             "\\/normal.jpeg\",\"default_profile\":" + (g.Chance(50) ? "true" : "false") +
             ",\"following\":false}";
    };
    std::string hashtags = "[";
    for (int h = 0, n = static_cast<int>(g.Below(3)); h < n; ++h) {
      hashtags += (h ? "," : "") + std::string("{\"text\":") + g.Quoted(g.Words(1, true)) +
                  ",\"indices\":[" + g.Number(140) + "," + g.Number(140) + "]}";
    }
    hashtags += "]";
    out +=
        "{\"metadata\":{\"result_type\":\"recent\",\"iso_language_code\":\"ja\"},"
        "\"created_at\":\"Sun Aug 31 00:29:15 +0000 2014\",\"id\":" +
        id + ",\"id_str\":\"" + id + "\",\"text\":" + g.Quoted(g.Words(20, true)) +
        ",\"source\":\"<a href=\\\"http:\\/\\/twitter.com\\/download\\/iphone\\\" "
        "rel=\\\"nofollow\\\">Twitter for iPhone<\\/a>\",\"truncated\":false,"
        "\"in_reply_to_status_id\":null,\"in_reply_to_user_id\":null,\"user\":" +
        user() + ",\"geo\":null,\"coordinates\":null,\"place\":null,\"contributors\":null," +
        (g.Chance(30) ? "\"retweeted_status\":{\"id\":" + id + ",\"text\":" +
                            g.Quoted(g.Words(15, true)) + ",\"user\":" + user() + "},"
                      : "") +
        "\"retweet_count\":" + g.Number(1000) + ",\"favorite_count\":" + g.Number(1000) +
        ",\"entities\":{\"hashtags\":" + hashtags +
        ",\"symbols\":[],\"urls\":[],\"user_mentions\":[]},\"favorited\":false,"
        "\"retweeted\":false,\"lang\":\"ja\"}";
  }
  out +=
      "],\"search_metadata\":{\"completed_in\":0.087,\"max_id\":505874924095815681,"
      "\"query\":\"%E4%B8%80\",\"count\":100,\"since_id\":0}}";
  return out;
}

std::string Canada() {
  Generator g(2);
  std::string out =
      "{\"type\":\"FeatureCollection\",\"features\":[{\"type\":\"Feature\",\"properties\":"
      "{\"name\":\"Canada\"},\"geometry\":{\"type\":\"Polygon\",\"coordinates\":[";
  std::uniform_real_distribution<double> lon(-141.0, -52.6), lat(41.7, 83.1);
  std::mt19937_64 random(3);
  char buffer[64];
  for (int ring = 0; ring < 480; ++ring) {
    if (ring) out += ',';
    out += '[';
    for (int point = 0, n = 100 + static_cast<int>(g.Below(260)); point < n; ++point) {
      // 15 to 17 significant digits, as coordinates converted from binary are.
      std::snprintf(buffer, sizeof buffer, "%s[%.15f,%.14f]", point ? "," : "", lon(random),
                    lat(random));
      out += buffer;
    }
    out += ']';
  }
  return out + "]}}]}";
}

std::string Citm() {
  Generator g(4);
  std::string out = "{\"areaNames\":{";
  for (int i = 0; i < 17; ++i) {
    out +=
        (i ? "," : "") + g.Quoted(std::to_string(205705993 + i)) + ":" + g.Quoted(g.Words(2, true));
  }
  out +=
      "},\"audienceSubCategoryNames\":{\"337100890\":\"Abonn\\u00e9\"},\"blockNames\":{},"
      "\"events\":{";
  for (int i = 0; i < 184; ++i) {
    const std::string id = std::to_string(138586341 + i * 7);
    out += (i ? "," : "") + g.Quoted(id) + ":{\"description\":null,\"id\":" + id + ",\"logo\":" +
           (g.Chance(50) ? std::string("null") : "\"\\/images\\/UE0AAAAACEKo6QAAAAZDSVRN\"") +
           ",\"name\":" + g.Quoted(g.Words(3, true)) +
           ",\"subTopicIds\":[337184269,337184283],\"subjectCode\":null,\"subtitle\":null,"
           "\"topicIds\":[324846099,107888604]}";
  }
  out += "},\"performances\":[";
  for (int i = 0; i < 243; ++i) {
    std::string prices = "[", seats = "[";
    for (int p = 0, n = 1 + static_cast<int>(g.Below(6)); p < n; ++p) {
      const std::string seat = std::to_string(338937295 + p);
      prices += (p ? "," : "") + std::string("{\"amount\":") + g.Number(100000) +
                ",\"audienceSubCategoryId\":337100890,\"seatCategoryId\":" + seat + "}";
      std::string areas = "[";
      for (int a = 0, m = 1 + static_cast<int>(g.Below(10)); a < m; ++a) {
        areas += (a ? "," : "") + std::string("{\"areaId\":") + std::to_string(205705993 + a) +
                 ",\"blockIds\":[]}";
      }
      seats += (p ? "," : "") + std::string("{\"areas\":") + areas +
               "],\"seatCategoryId\":" + seat + "}";
    }
    out +=
        (i ? "," : "") + std::string("{\"eventId\":") + std::to_string(138586341 + i * 7) +
        ",\"id\":" + std::to_string(339887544 + i) +
        ",\"logo\":null,\"name\":null,\"prices\":" + prices + "],\"seatCategories\":" + seats +
        "],\"seatMapImage\":null,\"start\":" + std::to_string(1372701600000ull + i * 86400000ull) +
        ",\"venueCode\":\"PLEYEL_PLEYEL\"}";
  }
  return out + "],\"seatCategoryNames\":{\"338937295\":\"1\\u00e8re cat\\u00e9gorie\"}}";
}

const std::string& Document(int which) {
  static const std::string kDocuments[] = {Twitter(), Canada(), Citm()};
  return kDocuments[which];
}

UTF8String U8(const std::string& text) {
  return UTF8String(reinterpret_cast<const UTF8Char*>(text.data()), text.size());
}

// ---------------------------------------------------------------------------
// The tree without the text: a list of decoded events that rebuilds it.

struct Event {
  enum Kind {
    kOpenArray,
    kOpenObject,
    kClose,
    kKey,
    kString,
    kUnsigned,
    kSigned,
    kDouble,
    kBool,
    kNull
  } kind;
  UTF8String text;
  std::uint64_t u = 0;
  std::int64_t s = 0;
  double d = 0;
  bool b = false;
};

// Flattens a tree into events (with its own stack, like everything here).
std::vector<Event> Flatten(const JSONValue& root) {
  std::vector<Event> events;
  struct Item {
    const boost::any* value;
    const UTF8String* key;
    bool close;
  };
  std::vector<Item> todo{{root.get(), nullptr, false}};
  while (!todo.empty()) {
    const Item item = todo.back();
    todo.pop_back();
    if (item.close) {
      events.push_back({Event::kClose, {}});
      continue;
    }
    if (item.key) events.push_back({Event::kKey, *item.key});
    const boost::any& v = *item.value;
    if (const auto* array = boost::any_cast<JSONArray>(&v)) {
      events.push_back({Event::kOpenArray, {}});
      todo.push_back({nullptr, nullptr, true});
      for (auto it = array->rbegin(); it != array->rend(); ++it)
        todo.push_back({it->get(), nullptr, false});
    } else if (const auto* object = boost::any_cast<JSONObject>(&v)) {
      events.push_back({Event::kOpenObject, {}});
      todo.push_back({nullptr, nullptr, true});
      for (auto it = object->rbegin(); it != object->rend(); ++it)
        todo.push_back({it->second.get(), &it->first, false});
    } else if (const auto* text = boost::any_cast<UTF8String>(&v)) {
      events.push_back({Event::kString, *text});
    } else if (const auto* u = boost::any_cast<std::uint64_t>(&v)) {
      Event e{Event::kUnsigned, {}};
      e.u = *u;
      events.push_back(e);
    } else if (const auto* s = boost::any_cast<std::int64_t>(&v)) {
      Event e{Event::kSigned, {}};
      e.s = *s;
      events.push_back(e);
    } else if (const auto* d = boost::any_cast<double>(&v)) {
      Event e{Event::kDouble, {}};
      e.d = *d;
      events.push_back(e);
    } else if (const auto* b = boost::any_cast<bool>(&v)) {
      Event e{Event::kBool, {}};
      e.b = *b;
      events.push_back(e);
    } else {
      events.push_back({Event::kNull, {}});
    }
  }
  return events;
}

// Builds the tree of `events` as the parser does: an array's elements wait
// on a stack and the array is made at its end at its exact size, an object
// is made when it opens and takes its members one by one, keys and strings
// are copied.
JSONValue Build(const std::vector<Event>& events) {
  struct Frame {
    JSONValue object;
    JSONObject* members;
    std::size_t first;
    UTF8String key;
  };
  std::vector<Frame> stack;
  std::vector<JSONValue> elements;
  JSONValue root;
  auto deliver = [&](JSONValue value) {
    if (stack.empty()) {
      root = std::move(value);
    } else if (stack.back().members == nullptr) {
      elements.push_back(std::move(value));
    } else {
      stack.back().members->insert_or_assign(std::move(stack.back().key), std::move(value));
    }
  };
  for (const Event& e : events) {
    switch (e.kind) {
      case Event::kOpenArray:
        stack.push_back({JSONValue(), nullptr, elements.size(), {}});
        break;
      case Event::kOpenObject: {
        JSONValue object = MakeJSONValue(JSONObject());
        JSONObject* members = boost::any_cast<JSONObject>(object.get());
        stack.push_back({std::move(object), members, 0, {}});
        break;
      }
      case Event::kClose: {
        JSONValue value;
        if (stack.back().members == nullptr) {
          const auto first = elements.begin() + static_cast<std::ptrdiff_t>(stack.back().first);
          value = MakeJSONValue(
              JSONArray(std::make_move_iterator(first), std::make_move_iterator(elements.end())));
          elements.erase(first, elements.end());
        } else {
          value = std::move(stack.back().object);
        }
        stack.pop_back();
        deliver(std::move(value));
        break;
      }
      case Event::kKey:
        stack.back().key.assign(e.text.data(), e.text.size());
        break;
      case Event::kString:
        deliver(MakeJSONValue(UTF8String(e.text.data(), e.text.size())));
        break;
      case Event::kUnsigned:
        deliver(MakeJSONValue(e.u));
        break;
      case Event::kSigned:
        deliver(MakeJSONValue(e.s));
        break;
      case Event::kDouble:
        deliver(MakeJSONValue(e.d));
        break;
      case Event::kBool:
        deliver(MakeJSONValue(e.b));
        break;
      case Event::kNull:
        deliver(MakeJSONValue(G_NullType));
        break;
    }
  }
  return root;
}

// ---------------------------------------------------------------------------

void BM_JSONParse_tvxcore(benchmark::State& state) {
  const UTF8String text = U8(Document(static_cast<int>(state.range(0))));
  for (auto _ : state) {
    JSONValue value = JSONParse(text);
    benchmark::DoNotOptimize(value.get());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_JSONBuildFloor(benchmark::State& state) {
  const std::string& text = Document(static_cast<int>(state.range(0)));
  const std::vector<Event> events = Flatten(JSONParse(U8(text)));
  for (auto _ : state) {
    JSONValue value = Build(events);
    benchmark::DoNotOptimize(value.get());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_JSONParse_nlohmann(benchmark::State& state) {
  const std::string& text = Document(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    nlohmann::json value = nlohmann::json::parse(text);
    benchmark::DoNotOptimize(&value);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_JSONParse_RapidJSON(benchmark::State& state) {
  const std::string& text = Document(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    rapidjson::Document value;
    value.Parse(text.c_str(), text.size());
    if (value.HasParseError()) state.SkipWithError("RapidJSON refused the document");
    benchmark::DoNotOptimize(&value);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

// The parser object is kept between iterations, as simdjson advises.
void BM_JSONParse_simdjsonDOM(benchmark::State& state) {
  const std::string& text = Document(static_cast<int>(state.range(0)));
  const simdjson::padded_string padded(text);
  simdjson::dom::parser parser;
  for (auto _ : state) {
    simdjson::dom::element value;
    if (parser.parse(padded).get(value)) state.SkipWithError("simdjson refused the document");
    benchmark::DoNotOptimize(&value);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void Documents(benchmark::internal::Benchmark* b) {
  b->ArgName("doc")->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMicrosecond);
}

BENCHMARK(BM_JSONParse_tvxcore)->Apply(Documents);
BENCHMARK(BM_JSONBuildFloor)->Apply(Documents);
BENCHMARK(BM_JSONParse_nlohmann)->Apply(Documents);
BENCHMARK(BM_JSONParse_RapidJSON)->Apply(Documents);
BENCHMARK(BM_JSONParse_simdjsonDOM)->Apply(Documents);

}  // namespace

// doc 0 twitter-like, 1 canada-like, 2 citm-like; their sizes first.
int main(int argc, char** argv) {
  const char* names[] = {"twitter-like", "canada-like", "citm-like"};
  for (int i = 0; i < 3; ++i)
    std::printf("doc %d: %s, %zu bytes\n", i, names[i], Document(i).size());
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
