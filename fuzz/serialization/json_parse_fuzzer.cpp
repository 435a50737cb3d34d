// Arbitrary bytes through JSONParse. Each input either gives a value or one
// of the parser's six errors at an offset inside the text, in bounded time
// and stack whatever its nesting; the zero-terminated form agrees with the
// sized one on text without a zero byte. A value whose strings the writer
// can carry (no quotation mark, backslash or zero byte, no null) writes text
// that parses back and writes again the same, so no number changes on the
// way.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tvxcore/serialization/JSON.h"

using namespace tvxcore;
using namespace tvxcore::serialization;

namespace {

bool Carriable(const UTF8String& text) {
  for (UTF8Char c : text)
    if (c == '"' || c == '\\' || c == 0) return false;
  return true;
}

// Whether the writer's text of `root` reads back: every string and key
// carriable and no null, walked with a stack of its own.
bool WritesBack(const JSONValue& root) {
  std::vector<const boost::any*> todo{root.get()};
  while (!todo.empty()) {
    const boost::any* value = todo.back();
    todo.pop_back();
    if (const auto* array = boost::any_cast<JSONArray>(value)) {
      for (const JSONValue& item : *array) todo.push_back(item.get());
    } else if (const auto* object = boost::any_cast<JSONObject>(value)) {
      for (const auto& [key, item] : *object) {
        if (!Carriable(key)) return false;
        todo.push_back(item.get());
      }
    } else if (const auto* text = boost::any_cast<UTF8String>(value)) {
      if (!Carriable(*text)) return false;
    } else if (boost::any_cast<NullType>(value)) {
      return false;
    }
  }
  return true;
}

// The text of the parser's error, or "" when the text parses.
std::string Outcome(const UTF8Char* data, std::size_t size, bool sized, JSONValue& value) {
  static const char* const kErrors[] = {
      "ParseValue unexpected char",     "ParsePrimitive unexpected char",
      "ParseArray unexpected char",     "ParseObject unexpected char",
      "AdvanceString: unexpected char", "EscapeString: unexpected char"};
  try {
    value = sized ? JSONParse(data, size) : JSONParse(data);
    if (!value) std::abort();
    return "";
  } catch (const JSONParseError& error) {
    if (error.Offset() > size) std::abort();
    for (const char* text : kErrors)
      if (std::strcmp(error.what(), text) == 0) return text;
    std::abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  JSONValue value;
  const std::string error = Outcome(data, size, true, value);
  if (std::memchr(data, 0, size) == nullptr) {
    const UTF8String terminated(data, data + size);
    JSONValue again;
    if (Outcome(terminated.c_str(), size, false, again) != error) std::abort();
  }
  if (!error.empty() || !WritesBack(value)) return 0;
  const UTF8String text = GetJSONUTF8String(*value);
  JSONValue back;
  if (!Outcome(text.data(), text.size(), true, back).empty()) std::abort();
  if (GetJSONUTF8String(*back) != text) std::abort();
  return 0;
}
