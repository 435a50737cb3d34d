// tvxhost plist ...: property list files, read and written in tvxcore's XML
// form. A key path names nested lists with "/" (e.g. "window/bounds").
#include <cstdint>
#include <functional>
#include <iomanip>
#include <iostream>
#include <limits>
#include <list>
#include <sstream>
#include <string>

#include "Host.h"
#include "HostServices.h"
#include "tvxcore/filesupport/ByteStream.h"
#include "tvxcore/filesupport/File.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/proplist/PropList.h"
#include "tvxcore/proplist/PropListFiles.h"
#include "tvxcore/xml/ExpatParser.h"

namespace tvxhost {
namespace {

using tvxcore::UTF16String;
using tvxcore::UTF8String;
using tvxcore::filesupport::File;
using tvxcore::filesupport::file_exception;
using tvxcore::filesupport::rename_file;
using tvxcore::proplist::PropList;
using tvxcore::proplist::PropListPropertyType;
namespace pl = tvxcore::proplist;

UTF8String U8(const std::string& text) { return UTF8String(text.begin(), text.end()); }
std::string Str(const UTF8String& text) { return std::string(text.begin(), text.end()); }
// A path from the command line: the kernel's bytes, which need not be UTF-8.
UTF16String PathArg(const std::string& native) {
  return tvxcore::filesupport::FileHelper(native).Path();
}

// Reads `path` into `list`; false (with a message) when there is no file.
// Parse failures arrive as the host's error, from the library's error road.
bool Load(const std::string& path, PropList& list) {
  if (!File(PathArg(path)).Exists()) {
    std::cerr << "tvxhost: cannot open '" << path << "'\n";
    return false;
  }
  pl::utils::LoadPropList(PathArg(path), list, false);
  return true;
}

// The localised text of a file exception, its "@0" and "@1" filled.
std::string Describe(const file_exception& error) {
  std::string text = ToUtf8(GetHostLocalizer().Translate(error.what()));
  auto fill = [&text](const std::string& marker, const std::string& value) {
    for (auto at = text.find(marker); at != std::string::npos;
         at = text.find(marker, at + value.size())) {
      text.replace(at, marker.size(), value);
    }
  };
  fill("@0", error.GetFile().FullPathMultiByte());
  if (const auto* rename = dynamic_cast<const rename_file*>(&error)) {
    fill("@1", ToUtf8(rename->GetNewName()));
  }
  return text;
}

// Saves with the library's safe save: the old file stands until the new one
// is complete on disk.
bool Save(const std::string& path, const PropList& list) {
  try {
    File file(PathArg(path));
    pl::utils::SavePropList(file, list);
  } catch (const file_exception& error) {
    std::cerr << "tvxhost: " << Describe(error) << '\n';
    return false;
  } catch (const tvxcore::filesupport::byte_stream_exception&) {
    std::cerr << "tvxhost: cannot write '" << path << "'\n";
    return false;
  }
  return true;
}

const char* TypeName(PropListPropertyType type) {
  static const char* const kNames[] = {
      "none",  "ustring", "string", "bool",  "u16",       "u32",      "i32",    "i64",
      "u64",   "float",   "double", "list",  "ustring[]", "string[]", "bool[]", "u16[]",
      "u32[]", "i32[]",   "i64[]",  "u64[]", "float[]",   "double[]"};
  return type >= 0 && type <= 21 ? kNames[type] : "?";
}

std::string Quote(const std::string& text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20) {
      char buffer[8];
      std::snprintf(buffer, sizeof buffer, "\\u%04x", c);
      out += buffer;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out + "\"";
}

template <typename T>
std::string Number(T value) {
  std::ostringstream out;
  if constexpr (std::is_floating_point_v<T>) out << std::setprecision(17);
  out << +value;
  return out.str();
}

// The value under `key` as text: strings quoted, arrays in brackets.
std::string ValueText(const PropList& list, const UTF8String& key) {
  auto scalar = [&](auto target, auto format) {
    list.GetValue(key, target);
    return format(target);
  };
  auto array = [&](auto element, auto format) {
    std::list<decltype(element)> items;
    list.GetValue(key, items);
    std::string out = "[";
    for (const auto& item : items) out += (out.size() > 1 ? ", " : "") + format(item);
    return out + "]";
  };
  auto u16 = [](const UTF16String& s) { return Quote(ToUtf8(s)); };
  auto u8 = [](const UTF8String& s) { return Quote(Str(s)); };
  auto boolean = [](bool b) { return std::string(b ? "true" : "false"); };
  auto number = [](auto v) { return Number(v); };
  switch (list.GetPropertyType(key)) {
    case pl::kPropListType_UnicodeString:
      return scalar(UTF16String(), u16);
    case pl::kPropListType_String:
      return scalar(UTF8String(), u8);
    case pl::kPropListType_Bool:
      return scalar(false, boolean);
    case pl::kPropListType_UInt16:
      return scalar(std::uint16_t{}, number);
    case pl::kPropListType_UInt32:
      return scalar(std::uint32_t{}, number);
    case pl::kPropListType_Int32:
      return scalar(std::int32_t{}, number);
    case pl::kPropListType_Int64:
      return scalar(0LL, number);
    case pl::kPropListType_UInt64:
      return scalar(0ULL, number);
    case pl::kPropListType_Float:
      return scalar(float{}, number);
    case pl::kPropListType_Double:
      return scalar(double{}, number);
    case pl::kPropListType_UnicodeStringArray:
      return array(UTF16String(), u16);
    case pl::kPropListType_StringArray:
      return array(UTF8String(), u8);
    case pl::kPropListType_BoolArray:
      return array(false, boolean);
    case pl::kPropListType_UInt16Array:
      return array(std::uint16_t{}, number);
    case pl::kPropListType_UInt32Array:
      return array(std::uint32_t{}, number);
    case pl::kPropListType_Int32Array:
      return array(std::int32_t{}, number);
    case pl::kPropListType_Int64Array:
      return array(0LL, number);
    case pl::kPropListType_UInt64Array:
      return array(0ULL, number);
    case pl::kPropListType_FloatArray:
      return array(float{}, number);
    case pl::kPropListType_DoubleArray:
      return array(double{}, number);
    default:
      return "";
  }
}

void Show(const PropList& list, int depth) {
  std::list<UTF8String> names;
  list.GetPropertyNames(names);
  for (const UTF8String& name : names) {
    auto type = list.GetPropertyType(name);
    std::cout << std::string(depth * 2, ' ') << Str(name) << " (" << TypeName(type) << ")";
    if (type == pl::kPropListType_PropList) {
      std::cout << '\n';
      if (const PropList* sub = list.GetSubList(name)) Show(*sub, depth + 1);
    } else {
      std::cout << " = " << ValueText(list, name) << '\n';
    }
  }
}

void Json(const PropList& list, int depth, std::ostream& out) {
  std::list<UTF8String> names;
  list.GetPropertyNames(names);
  out << "{";
  bool first = true;
  for (const UTF8String& name : names) {
    out << (first ? "\n" : ",\n") << std::string((depth + 1) * 2, ' ') << Quote(Str(name)) << ": ";
    first = false;
    if (const PropList* sub = list.GetSubList(name)) {
      Json(*sub, depth + 1, out);
    } else {
      out << ValueText(list, name);
    }
  }
  out << (first ? "}" : "\n" + std::string(depth * 2, ' ') + "}");
}

// Splits "a/b/c" into its parts; the last part is the key.
std::vector<std::string> SplitPath(const std::string& path) {
  std::vector<std::string> parts;
  std::string part;
  std::istringstream in(path);
  while (std::getline(in, part, '/')) parts.push_back(part);
  if (parts.empty()) parts.emplace_back();
  return parts;
}

// The list holding the last part of `path`; null when a level is missing
// (unless `create` is set, which makes the sub-lists).
PropList* Walk(PropList& root, const std::vector<std::string>& parts, bool create) {
  PropList* list = &root;
  for (std::size_t i = 0; i + 1 < parts.size() && list; ++i) {
    list = create ? list->NewSubList(U8(parts[i])) : list->GetSubList(U8(parts[i]));
  }
  return list;
}

template <typename T>
bool ParseNumber(const std::string& text, T& value) {
  std::istringstream in(text);
  in >> value;
  return !in.fail() && (in >> std::ws).eof();
}

// Splits "a,b,c" for array values; an empty text is an empty array.
std::vector<std::string> SplitItems(const std::string& text) {
  std::vector<std::string> items;
  if (text.empty()) return items;
  std::string item;
  std::istringstream in(text);
  while (std::getline(in, item, ',')) items.push_back(item);
  return items;
}

// Stores `text` under `key` as `type`; false for an unknown type or bad number.
bool SetTyped(PropList& list, const UTF8String& key, const std::string& type,
              const std::string& text) {
  bool isArray = type.size() > 2 && type.compare(type.size() - 2, 2, "[]") == 0;
  std::string base = isArray ? type.substr(0, type.size() - 2) : type;
  auto set = [&](auto parse) -> bool {
    using T = decltype(parse(std::string()).second);
    if (!isArray) {
      auto [ok, value] = parse(text);
      if (ok) list.SetValue(key, value);
      return ok;
    }
    std::list<T> values;
    for (const std::string& item : SplitItems(text)) {
      auto [ok, value] = parse(item);
      if (!ok) return false;
      values.push_back(value);
    }
    list.SetValue(key, values);
    return true;
  };
  auto number = [](auto zero) {
    return [](const std::string& s) {
      decltype(zero) value{};
      bool ok = ParseNumber(s, value);
      return std::pair<bool, decltype(zero)>(ok, value);
    };
  };
  if (base == "string") {
    return set([](const std::string& s) { return std::pair<bool, UTF8String>(true, U8(s)); });
  }
  if (base == "ustring") {
    return set(
        [](const std::string& s) { return std::pair<bool, UTF16String>(true, FromUtf8(s)); });
  }
  if (base == "bool") {
    return set([](const std::string& s) {
      return std::pair<bool, bool>(s == "true" || s == "false", s == "true");
    });
  }
  if (base == "u16") return set(number(std::uint16_t{}));
  if (base == "u32") return set(number(std::uint32_t{}));
  if (base == "i32") return set(number(std::int32_t{}));
  if (base == "i64") return set(number(0LL));
  if (base == "u64") return set(number(0ULL));
  if (base == "float") return set(number(float{}));
  if (base == "double") return set(number(double{}));
  return false;
}

int Run(const Args& args) {
  if (args.size() < 2) return UsageError("plist");
  const std::string& command = args[0];
  const std::string& path = args[1];
  PropList list;
  if (command == "show" && args.size() == 2) {
    if (!Load(path, list)) return 1;
    std::cout << "version " << list.GetVersion() << '\n';
    Show(list, 0);
    return 0;
  }
  if (command == "tojson" && args.size() == 2) {
    if (!Load(path, list)) return 1;
    Json(list, 0, std::cout);
    std::cout << '\n';
    return 0;
  }
  if (command == "validate" && args.size() == 2) {
    try {
      if (!Load(path, list)) return 1;
    } catch (const HostError& error) {
      std::cout << "invalid: " << error.what() << '\n';
      return 1;
    }
    std::list<UTF8String> names;
    list.GetPropertyNames(names);
    std::cout << "valid: version " << list.GetVersion() << ", " << names.size()
              << " top-level keys\n";
    return 0;
  }
  if (command == "get" && args.size() == 3) {
    if (!Load(path, list)) return 1;
    auto parts = SplitPath(args[2]);
    PropList* holder = Walk(list, parts, false);
    UTF8String key = U8(parts.back());
    if (!holder || holder->GetPropertyType(key) == pl::kPropListType_None) {
      std::cerr << "tvxhost: no value at '" << args[2] << "'\n";
      return 1;
    }
    if (const PropList* sub = holder->GetSubList(key)) {
      Json(*sub, 0, std::cout);
      std::cout << '\n';
    } else {
      std::cout << ValueText(*holder, key) << '\n';
    }
    return 0;
  }
  if (command == "set" && args.size() == 5) {
    if (File(PathArg(path)).Exists() && !Load(path, list)) return 1;
    auto parts = SplitPath(args[2]);
    PropList* holder = Walk(list, parts, true);
    if (!SetTyped(*holder, U8(parts.back()), args[3], args[4])) {
      std::cerr << "tvxhost: '" << args[4] << "' is not a value of type " << args[3] << '\n';
      return 2;
    }
    return Save(path, list) ? 0 : 1;
  }
  return UsageError("plist");
}

Registrar plistCommands(CommandGroup{
    "plist",
    {"show <file>            the list as an indented tree",
     "get <file> <key/path>  one value (a sub-list as JSON)",
     "set <file> <key/path> <type> <value>  store a value, making sub-lists",
     "set ... <type>: string ustring bool u16 u32 i32 i64 u64 float double; "
     "type[] takes comma-separated values",
     "tojson <file>          the list as JSON-like text",
     "validate <file>        read the file and report the exact error"},
    Run});

}  // namespace
}  // namespace tvxhost
