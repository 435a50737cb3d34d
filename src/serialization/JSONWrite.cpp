// The JSON writer: compact text, strings as they stand, with a stack of its
// own for the containers it is inside.
#include <charconv>
#include <cmath>
#include <cstdint>
#include <unordered_set>
#include <vector>

#include "tvxcore/serialization/JSON.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxcore::serialization {
namespace {

void Append(UTF8String& out, const char* text, std::size_t length) {
  out.append(reinterpret_cast<const UTF8Char*>(text), length);
}
void Append(UTF8String& out, std::string_view text) { Append(out, text.data(), text.size()); }

template <typename T>
void AppendNumber(UTF8String& out, T value) {
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  Append(out, buffer, static_cast<std::size_t>(result.ptr - buffer));
}

void AppendDouble(UTF8String& out, double value) {
  if (std::isnan(value)) return Append(out, "null");
  if (std::isinf(value)) return Append(out, value < 0 ? "-1e999" : "1e999");
  char buffer[40];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  const std::string_view text(buffer, static_cast<std::size_t>(result.ptr - buffer));
  Append(out, text);
  if (text.find_first_of(".e") == std::string_view::npos) Append(out, ".0");
}

void AppendString(UTF8String& out, const UTF8String& text) {
  out.push_back('"');
  out.append(text);
  out.push_back('"');
}

// Containers this deep are checked for being inside themselves, which only a
// tree built by hand can be; shallower ones can't hide a cycle for long.
constexpr std::size_t kCycleCheckDepth = 64;

class Writer {
 public:
  explicit Writer(UTF8String& out) : out_(out) {}
  void Write(const boost::any& root);

 private:
  struct Frame {
    const JSONArray* array;
    const JSONObject* object;
    std::size_t index;
    JSONObject::const_iterator member;
  };
  // Writes a scalar, or opens a container and pushes it.
  void Begin(const boost::any& value);
  bool OnPath(const void* container);

  UTF8String& out_;
  std::vector<Frame> stack_;
  std::unordered_set<const void*> path_;  // the open containers, past kCycleCheckDepth
};

bool Writer::OnPath(const void* container) {
  if (stack_.size() < kCycleCheckDepth) return false;
  if (path_.empty()) {
    for (const Frame& frame : stack_)
      path_.insert(frame.array ? static_cast<const void*>(frame.array) : frame.object);
  }
  return !path_.insert(container).second;
}

void Writer::Begin(const boost::any& value) {
  if (value.empty()) return;
  const std::type_info& type = value.type();
  if (type == typeid(JSONObject)) {
    const JSONObject* object = boost::unsafe_any_cast<JSONObject>(&value);
    if (OnPath(object)) return Append(out_, "<ERROR>");
    out_.push_back('{');
    stack_.push_back(Frame{nullptr, object, 0, object->begin()});
  } else if (type == typeid(JSONArray)) {
    const JSONArray* array = boost::unsafe_any_cast<JSONArray>(&value);
    if (OnPath(array)) return Append(out_, "<ERROR>");
    out_.push_back('[');
    stack_.push_back(Frame{array, nullptr, 0, {}});
  } else if (type == typeid(UTF8String)) {
    AppendString(out_, *boost::unsafe_any_cast<UTF8String>(&value));
  } else if (type == typeid(std::uint64_t)) {
    AppendNumber(out_, *boost::unsafe_any_cast<std::uint64_t>(&value));
  } else if (type == typeid(std::int64_t)) {
    AppendNumber(out_, *boost::unsafe_any_cast<std::int64_t>(&value));
  } else if (type == typeid(double)) {
    AppendDouble(out_, *boost::unsafe_any_cast<double>(&value));
  } else if (type == typeid(bool)) {
    Append(out_, *boost::unsafe_any_cast<bool>(&value) ? "true" : "false");
  } else {
    Append(out_, "<ERROR>");
  }
}

void Writer::Write(const boost::any& root) {
  Begin(root);
  while (!stack_.empty()) {
    Frame& frame = stack_.back();
    const JSONValue* next = nullptr;
    if (frame.array != nullptr) {
      if (frame.index < frame.array->size()) {
        if (frame.index != 0) out_.push_back(',');
        next = &(*frame.array)[frame.index++];
      } else {
        out_.push_back(']');
      }
    } else if (frame.member != frame.object->end()) {
      if (frame.member != frame.object->begin()) out_.push_back(',');
      AppendString(out_, frame.member->first);
      out_.push_back(':');
      next = &frame.member->second;
      ++frame.member;
    } else {
      out_.push_back('}');
    }
    if (next == nullptr) {
      if (!path_.empty())
        path_.erase(frame.array ? static_cast<const void*>(frame.array) : frame.object);
      stack_.pop_back();
    } else if (*next) {
      Begin(**next);  // may push, so `frame` is not used after this
    }
  }
}

}  // namespace

UTF8String GetJSONUTF8String(const boost::any& value) {
  UTF8String out;
  Writer(out).Write(value);
  return out;
}

UTF16String GetJSONString(const boost::any& value) {
  return utility::UTF8to16(GetJSONUTF8String(value));
}

}  // namespace tvxcore::serialization
