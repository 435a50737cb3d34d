// tvxhost json: JSON documents read with the library's parser, from a file
// or standard input. The host prints with its own printer, which escapes
// strings properly (the library's writer writes them as they stand); both
// walk the tree with a stack of their own, so any nesting prints.
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "Args.h"
#include "FileChecks.h"
#include "Host.h"
#include "HostServices.h"
#include "tvxcore/serialization/JSON.h"

namespace tvxhost {
namespace {

using tvxcore::UTF8String;
using namespace tvxcore::serialization;

// A document read in, with the name messages give it.
struct Source {
  std::string name;
  std::string text;
};

// Reads `arg`, or standard input for "-" and when no file is given.
Source Read(const ArgList& args, std::size_t index) {
  if (args.Count() <= index || args[index] == "-") {
    std::string text(std::istreambuf_iterator<char>(std::cin), {});
    if (std::cin.bad()) throw Failure("could not read standard input");
    return {"standard input", std::move(text)};
  }
  const std::string& arg = args[index];
  RequireFile(PathArg(arg, "<file>"));
  std::ifstream file(arg, std::ios::binary);
  if (!file) throw Failure("could not read " + Quoted(arg) + ": " + std::strerror(errno));
  std::string text(std::istreambuf_iterator<char>(file), {});
  if (file.bad()) throw Failure("could not read " + Quoted(arg) + ": " + std::strerror(errno));
  return {Quoted(arg), std::move(text)};
}

// The document's root value; a parse error names the line and column
// (in characters) where the parser stopped.
JSONValue Parse(const Source& source) {
  try {
    return JSONParse(UTF8String(source.text.begin(), source.text.end()));
  } catch (const JSONParseError& error) {
    const std::size_t offset = std::min(error.Offset(), source.text.size());
    std::size_t line = 1, column = 1;
    for (std::size_t i = 0; i < offset; ++i) {
      const auto c = static_cast<unsigned char>(source.text[i]);
      if (c == '\n') {
        ++line;
        column = 1;
      } else if ((c & 0xC0) != 0x80) {
        ++column;
      }
    }
    throw Failure(source.name + " is not valid JSON: " + error.what() + " at line " +
                  std::to_string(line) + ", column " + std::to_string(column) + " (byte " +
                  std::to_string(offset + 1) + ")");
  }
}

// A string as JSON: quotation mark, backslash and control characters
// escaped, a lone surrogate (which the parser keeps in three bytes) as its
// \u escape, everything else as it stands.
void AppendQuoted(std::string& out, const UTF8String& text) {
  static const char kHex[] = "0123456789abcdef";
  out += '"';
  for (std::size_t i = 0; i < text.size(); ++i) {
    const unsigned char c = text[i];
    switch (c) {
      case '"':
        out += "\\\"";
        continue;
      case '\\':
        out += "\\\\";
        continue;
      case '\b':
        out += "\\b";
        continue;
      case '\f':
        out += "\\f";
        continue;
      case '\n':
        out += "\\n";
        continue;
      case '\r':
        out += "\\r";
        continue;
      case '\t':
        out += "\\t";
        continue;
      default:
        break;
    }
    if (c < 0x20 || c == 0x7F) {
      out += "\\u00";
      out += kHex[c >> 4];
      out += kHex[c & 15];
    } else if (c == 0xED && i + 2 < text.size() && text[i + 1] >= 0xA0) {
      const unsigned unit = 0xD000 | ((text[i + 1] & 0x3F) << 6) | (text[i + 2] & 0x3F);
      out += "\\u";
      for (int shift = 12; shift >= 0; shift -= 4) out += kHex[(unit >> shift) & 15];
      i += 2;
    } else {
      out += static_cast<char>(c);
    }
  }
  out += '"';
}

void AppendNumber(std::string& out, double value) {
  if (std::isnan(value)) {
    out += "null";
    return;
  }
  if (std::isinf(value)) {
    out += value < 0 ? "-1e999" : "1e999";
    return;
  }
  char buffer[40];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  const std::string_view text(buffer, static_cast<std::size_t>(result.ptr - buffer));
  out += text;
  if (text.find_first_of(".e") == std::string_view::npos) out += ".0";
}

// A scalar's JSON text; false for a container (or an empty value).
bool AppendScalar(std::string& out, const boost::any& value) {
  if (const auto* text = boost::any_cast<UTF8String>(&value)) {
    AppendQuoted(out, *text);
  } else if (const auto* u = boost::any_cast<std::uint64_t>(&value)) {
    out += std::to_string(*u);
  } else if (const auto* s = boost::any_cast<std::int64_t>(&value)) {
    out += std::to_string(*s);
  } else if (const auto* d = boost::any_cast<double>(&value)) {
    AppendNumber(out, *d);
  } else if (const auto* b = boost::any_cast<bool>(&value)) {
    out += *b ? "true" : "false";
  } else if (boost::any_cast<NullType>(&value)) {
    out += "null";
  } else {
    return false;
  }
  return true;
}

// Indentation for a depth; beyond 32 levels it stays, so that a deeply
// nested document prints in time and space linear in its size.
std::string Indent(std::size_t depth) {
  return std::string(std::min<std::size_t>(depth, 32) * 2, ' ');
}

// Prints `root` indented by two spaces a level, one member or element a line.
void Pretty(const boost::any& root, std::ostream& stream) {
  struct Frame {
    const JSONArray* array;
    const JSONObject* object;
    std::size_t index;
    JSONObject::const_iterator member;
  };
  std::vector<Frame> stack;
  std::string out;
  auto flush = [&] {
    stream << out;
    out.clear();
  };
  // Writes a value that starts here: a scalar, or a container's opening.
  auto begin = [&](const boost::any& value) {
    if (AppendScalar(out, value)) return;
    if (const auto* array = boost::any_cast<JSONArray>(&value)) {
      out += array->empty() ? "[]" : "[";
      if (!array->empty()) stack.push_back({array, nullptr, 0, {}});
    } else if (const auto* object = boost::any_cast<JSONObject>(&value)) {
      out += object->empty() ? "{}" : "{";
      if (!object->empty()) stack.push_back({nullptr, object, 0, object->begin()});
    }
  };
  if (root.empty()) return;
  begin(root);
  while (!stack.empty()) {
    Frame& frame = stack.back();
    const std::size_t depth = stack.size();
    const JSONValue* next = nullptr;
    if (frame.array && frame.index < frame.array->size()) {
      out += frame.index == 0 ? "\n" : ",\n";
      out += Indent(depth);
      next = &(*frame.array)[frame.index++];
    } else if (frame.object && frame.member != frame.object->end()) {
      out += frame.member == frame.object->begin() ? "\n" : ",\n";
      out += Indent(depth);
      AppendQuoted(out, frame.member->first);
      out += ": ";
      next = &frame.member->second;
      ++frame.member;
    } else {
      out += '\n' + Indent(depth - 1) + (frame.array ? ']' : '}');
      stack.pop_back();
    }
    if (next != nullptr) {
      if (*next && !(*next)->empty()) {
        begin(**next);  // may push, so `frame` is not used after this
      } else {
        out += "null";
      }
    }
    if (out.size() > 65536) flush();
  }
  flush();
}

// What a value holds, for a person: "an object of 2 members".
std::string Describe(const boost::any& value) {
  if (const auto* array = boost::any_cast<JSONArray>(&value))
    return "an array of " + std::to_string(array->size()) +
           (array->size() == 1 ? " element" : " elements");
  if (const auto* object = boost::any_cast<JSONObject>(&value))
    return "an object of " + std::to_string(object->size()) +
           (object->size() == 1 ? " member" : " members");
  if (boost::any_cast<UTF8String>(&value)) return "a string";
  if (boost::any_cast<bool>(&value)) return "a boolean";
  if (boost::any_cast<NullType>(&value)) return "null";
  return "a number";
}

int Validate(const Args& raw) {
  const ArgList args(raw, {}, {"[<file>]"});
  const JSONValue root = Parse(Read(args, 0));
  if (root->empty()) {
    std::cout << "valid: no value (the text is empty)\n";
    return kExitSuccess;
  }
  // Counts values and the deepest nesting, with a stack of its own.
  std::size_t values = 0, deepest = 0;
  std::vector<std::pair<const boost::any*, std::size_t>> todo{{root.get(), 1}};
  while (!todo.empty()) {
    const auto [value, depth] = todo.back();
    todo.pop_back();
    ++values;
    if (const auto* array = boost::any_cast<JSONArray>(value)) {
      deepest = std::max(deepest, depth);
      for (const JSONValue& item : *array) todo.push_back({item.get(), depth + 1});
    } else if (const auto* object = boost::any_cast<JSONObject>(value)) {
      deepest = std::max(deepest, depth);
      for (const auto& member : *object) todo.push_back({member.second.get(), depth + 1});
    }
  }
  std::cout << "valid: " << Describe(*root) << ", " << values
            << (values == 1 ? " value" : " values");
  if (deepest > 0) std::cout << ", nested " << deepest << " deep";
  std::cout << '\n';
  return kExitSuccess;
}

int PrettyPrint(const Args& raw) {
  const ArgList args(raw, {}, {"[<file>]"});
  const JSONValue root = Parse(Read(args, 0));
  Pretty(*root, std::cout);
  if (!root->empty()) std::cout << '\n';
  return kExitSuccess;
}

// A path "params/0/name": its parts, each a key or an index, as UTF-8 text.
std::vector<std::string> Path(const std::string& text) {
  if (text.empty()) throw UsageError("<path> is empty");
  TextArg(text, "<path>");
  std::vector<std::string> parts;
  for (std::size_t start = 0;;) {
    const std::size_t slash = text.find('/', start);
    parts.push_back(text.substr(start, slash == std::string::npos ? slash : slash - start));
    if (parts.back().empty()) throw UsageError("<path> " + Quoted(text) + " has an empty part");
    if (slash == std::string::npos) return parts;
    start = slash + 1;
  }
}

int Get(const Args& raw) {
  const ArgList args(raw, {{"--raw", "-r", false}}, {"<path>", "[<file>]"});
  const std::vector<std::string> parts = Path(args[0]);
  JSONValue at = Parse(Read(args, 1));
  std::string walked;
  for (const std::string& part : parts) {
    walked += (walked.empty() ? "" : "/") + part;
    JSONValue next;
    if (const auto* array = boost::any_cast<JSONArray>(at.get())) {
      std::size_t index = 0;
      const auto result = std::from_chars(part.data(), part.data() + part.size(), index);
      if (result.ec == std::errc() && result.ptr == part.data() + part.size() &&
          index < array->size())
        next = (*array)[index];
    } else if (const auto* object = boost::any_cast<JSONObject>(at.get())) {
      next = GetVariantInObject(*object, part.c_str());
    }
    if (!next) throw Failure("no value at " + Quoted(walked));
    at = std::move(next);
  }
  const auto* text = boost::any_cast<UTF8String>(at.get());
  if (args.Has("--raw") && text != nullptr) {
    std::cout.write(reinterpret_cast<const char*>(text->data()),
                    static_cast<std::streamsize>(text->size()));
    std::cout << '\n';
    return kExitSuccess;
  }
  Pretty(*at, std::cout);
  std::cout << '\n';
  return kExitSuccess;
}

const Registrar kJsonCommands(CommandGroup{
    "json",
    "JSON documents read with the library's parser, from a file or standard input",
    {
        {"validate", "[<file>]",
         "read the document; say what it holds, or where and why it is not JSON", Validate},
        {"pretty", "[<file>]", "the document indented, with strings escaped", PrettyPrint},
        {"get", "[--raw] <path> [<file>]",
         "the value at <path> as JSON, or with --raw a string's text as it stands", Get},
    },
    {"Without <file>, or with \"-\", the document comes from standard input. <path> names",
     "object members and array elements (from 0) with \"/\": params/0/name. Numbers print",
     "in the shortest form that reads back the same; a number with a fraction or an",
     "exponent keeps one (5.0). The examples read /tmp/call.json holding",
     "{\"method\":\"open\",\"params\":[{\"name\":\"a.txt\",\"mode\":\"r\"}]}."},
    {
        {"json validate /tmp/call.json",
         "prints valid: an object of 2 members, 6 values, nested 3 deep"},
        {"json get params/0/name /tmp/call.json", "prints \"a.txt\""},
        {"json get --raw params/0/name /tmp/call.json", "prints a.txt"},
        {"json pretty /tmp/call.json", "the document, one member a line"},
    }});

}  // namespace
}  // namespace tvxhost
