// tvxhost plist: property list files, read and written in tvxcore's XML
// form. A key path names nested lists with "/" (e.g. "window/bounds").
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <list>
#include <memory>
#include <string>
#include <vector>

#ifndef XML_DTD
#define XML_DTD 1
#endif
#include <expat.h>

#include "Args.h"
#include "FileChecks.h"
#include "Host.h"
#include "HostServices.h"
#include "tvxcore/filesupport/File.h"
#include "tvxcore/proplist/PropList.h"
#include "tvxcore/proplist/PropListFiles.h"
#include "tvxcore/proplist/PropListUtils.h"

namespace tvxhost {
namespace {

using tvxcore::UTF16String;
using tvxcore::UTF8String;
using tvxcore::filesupport::File;
using tvxcore::proplist::PropList;
using tvxcore::proplist::PropListPropertyType;
namespace pl = tvxcore::proplist;

UTF8String U8(const std::string& text) { return UTF8String(text.begin(), text.end()); }
std::string Str(const UTF8String& text) { return std::string(text.begin(), text.end()); }

// Where expat finds the first error of an XML file, read as the library's
// reader reads it (namespaces on, no DTD loading, the same limit on entity
// expansion): "line 3, column 7: mismatched tag". Empty when the file is
// well-formed XML or can't be read here.
std::string XmlErrorAt(const std::string& nativePath) {
  std::ifstream file(nativePath, std::ios::binary);
  if (!file) return std::string();
  std::unique_ptr<std::remove_pointer_t<XML_Parser>, void (*)(XML_Parser)> parser(
      XML_ParserCreateNS(nullptr, '\x01'), XML_ParserFree);
  if (!parser || !XML_SetParamEntityParsing(parser.get(), XML_PARAM_ENTITY_PARSING_NEVER) ||
      !XML_SetBillionLaughsAttackProtectionMaximumAmplification(parser.get(), 100.0f) ||
      !XML_SetBillionLaughsAttackProtectionActivationThreshold(parser.get(), 4ull << 20))
    return std::string();
  char buffer[64 * 1024];
  bool last = false;
  while (!last) {
    file.read(buffer, sizeof buffer);
    if (file.bad()) return std::string();
    last = file.eof();
    if (XML_Parse(parser.get(), buffer, static_cast<int>(file.gcount()), last) != XML_STATUS_OK) {
      return "line " + std::to_string(XML_GetCurrentLineNumber(parser.get())) + ", column " +
             std::to_string(XML_GetCurrentColumnNumber(parser.get()) + 1) + ": " +
             XML_ErrorString(XML_GetErrorCode(parser.get()));
    }
  }
  return std::string();
}

// Reads the file at `arg` into `list`. The library reports a file that does
// not parse through the error manager; when the XML itself is at fault, the
// message gains where and why.
void Load(const std::string& arg, PropList& list) {
  const UTF16String path = PathArg(arg, "<file>");
  RequireFile(path);
  try {
    pl::utils::LoadPropList(path, list, false);
  } catch (const HostError& error) {
    const std::string where = XmlErrorAt(File(path).FullPathMultiByte());
    if (where.empty()) throw;
    std::string text = error.what();
    if (!text.empty() && text.back() == '.') text.pop_back();
    throw HostError(text + ": " + where, error.level, error.module, error.number);
  }
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

// Integers in decimal; floating values in the shortest form that reads back
// as the same value of their own type (0.1f is "0.1").
template <typename T>
std::string Number(T value) {
  char buffer[64];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
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

// A key as shown: as it stands, or quoted when it holds a control character.
std::string KeyText(const UTF8String& key) {
  for (const auto c : key)
    if (c < 0x20 || c == 0x7F) return Quote(Str(key));
  return Str(key);
}

// Indentation for a nesting depth. Lists may nest very deeply: beyond 32
// levels the indentation stays, and with `mark` the level is written out.
std::string Indent(std::size_t depth, bool mark = false) {
  if (depth <= 32) return std::string(depth * 2, ' ');
  return std::string(64, ' ') + (mark ? "[" + std::to_string(depth) + "] " : "");
}

// One list being walked: its keys and the next one to visit. The walks below
// keep these on a stack of their own rather than recursing, so that no depth
// of nesting can exhaust the call stack.
struct Level {
  const PropList* list;
  std::vector<UTF8String> names;
  std::size_t next = 0;
  explicit Level(const PropList& in) : list(&in) {
    std::list<UTF8String> keys;
    in.GetPropertyNames(keys);
    names.assign(keys.begin(), keys.end());
  }
};

void ShowTree(const PropList& root, std::ostream& out) {
  std::vector<Level> stack;
  stack.emplace_back(root);
  while (!stack.empty()) {
    Level& level = stack.back();
    if (level.next == level.names.size()) {
      stack.pop_back();
      continue;
    }
    const UTF8String& name = level.names[level.next++];
    const PropList* list = level.list;
    const auto type = list->GetPropertyType(name);
    out << Indent(stack.size() - 1, true) << KeyText(name) << " (" << TypeName(type) << ")";
    if (const PropList* sub = list->GetSubList(name)) {
      out << '\n';
      stack.emplace_back(*sub);  // `level` is not used after this
    } else {
      out << " = " << ValueText(*list, name) << '\n';
    }
  }
}

void Json(const PropList& root, std::ostream& out) {
  std::vector<Level> stack;
  stack.emplace_back(root);
  out << '{';
  while (!stack.empty()) {
    Level& level = stack.back();
    const std::size_t depth = stack.size();
    if (level.next == level.names.size()) {
      out << (level.names.empty() ? "}" : "\n" + Indent(depth - 1) + "}");
      stack.pop_back();
      continue;
    }
    const UTF8String& name = level.names[level.next++];
    const PropList* list = level.list;
    out << (level.next == 1 ? "\n" : ",\n") << Indent(depth) << Quote(Str(name)) << ": ";
    if (const PropList* sub = list->GetSubList(name)) {
      out << '{';
      stack.emplace_back(*sub);  // `level` is not used after this
    } else {
      out << ValueText(*list, name);
    }
  }
}

// `text` when a property list can carry it: valid UTF-8 without control
// characters other than tab, line feed and carriage return, and without the
// non-characters U+FFFE and U+FFFF, which XML can't hold.
const std::string& CarriableText(const std::string& text, const std::string& what) {
  TextArg(text, what);
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    const bool control = (c < 0x20 && c != '\t' && c != '\n' && c != '\r') || c == 0x7F;
    const bool nonCharacter = c == 0xEF && i + 2 < text.size() &&
                              static_cast<unsigned char>(text[i + 1]) == 0xBF &&
                              static_cast<unsigned char>(text[i + 2]) >= 0xBE;
    if (control || nonCharacter)
      throw UsageError(what + " holds a character a property list can't carry (byte " +
                       std::to_string(i + 1) + "): " + Quoted(text));
  }
  return text;
}

// A key path "a/b/c": its parts, each a key a property list can carry.
std::vector<std::string> KeyPath(const std::string& text) {
  if (text.empty()) throw UsageError("<key/path> is empty");
  std::vector<std::string> parts;
  std::size_t start = 0;
  for (;;) {
    const std::size_t slash = text.find('/', start);
    parts.push_back(text.substr(start, slash == std::string::npos ? slash : slash - start));
    if (parts.back().empty()) throw UsageError("<key/path> " + Quoted(text) + " has an empty part");
    CarriableText(parts.back(), "a key of <key/path>");
    if (slash == std::string::npos) return parts;
    start = slash + 1;
  }
}

// One value ready to store: its type and how to put it in a list.
struct TypedValue {
  PropListPropertyType type;
  std::function<void(PropList&, const UTF8String&)> store;
};

// The types "plist set" knows, with their list types.
struct TypeRow {
  const char* name;
  PropListPropertyType scalar, array;
};
constexpr TypeRow kTypes[] = {
    {"string", pl::kPropListType_String, pl::kPropListType_StringArray},
    {"ustring", pl::kPropListType_UnicodeString, pl::kPropListType_UnicodeStringArray},
    {"bool", pl::kPropListType_Bool, pl::kPropListType_BoolArray},
    {"u16", pl::kPropListType_UInt16, pl::kPropListType_UInt16Array},
    {"u32", pl::kPropListType_UInt32, pl::kPropListType_UInt32Array},
    {"i32", pl::kPropListType_Int32, pl::kPropListType_Int32Array},
    {"i64", pl::kPropListType_Int64, pl::kPropListType_Int64Array},
    {"u64", pl::kPropListType_UInt64, pl::kPropListType_UInt64Array},
    {"float", pl::kPropListType_Float, pl::kPropListType_FloatArray},
    {"double", pl::kPropListType_Double, pl::kPropListType_DoubleArray},
};

// `text` parsed as one value of `row`'s type; `what` names it in messages.
template <typename T>
T ParseItem(const std::string& text, const std::string& what) {
  if constexpr (std::is_same_v<T, bool>) {
    if (text != "true" && text != "false")
      throw UsageError(what + " must be true or false, not " + Quoted(text));
    return text == "true";
  } else if constexpr (std::is_same_v<T, UTF8String>) {
    return U8(CarriableText(text, what));
  } else if constexpr (std::is_same_v<T, UTF16String>) {
    return TextArg(CarriableText(text, what), what);
  } else if constexpr (std::is_floating_point_v<T>) {
    return ParseReal<T>(text, what);
  } else {
    return ParseInteger<T>(text, what);
  }
}

// A scalar, or for "type[]" comma-separated items (an empty text is an
// empty list).
template <typename T>
TypedValue MakeValue(const TypeRow& row, bool isArray, const std::string& text) {
  if (!isArray) {
    T value = ParseItem<T>(text, "<value>");
    return {row.scalar,
            [value](PropList& list, const UTF8String& key) { list.SetValue(key, value); }};
  }
  PropList::List<T> items;
  std::size_t start = 0, index = 1;
  while (!text.empty()) {
    const std::size_t comma = text.find(',', start);
    items.push_back(
        ParseItem<T>(text.substr(start, comma == std::string::npos ? comma : comma - start),
                     "item " + std::to_string(index++) + " of <value>"));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  return {row.array, [items](PropList& list, const UTF8String& key) { list.SetValue(key, items); }};
}

TypedValue ParseTyped(const std::string& type, const std::string& text) {
  const bool isArray = type.size() > 2 && type.compare(type.size() - 2, 2, "[]") == 0;
  const std::string base = isArray ? type.substr(0, type.size() - 2) : type;
  for (const TypeRow& row : kTypes) {
    if (base != row.name) continue;
    switch (row.scalar) {
      case pl::kPropListType_String:
        return MakeValue<UTF8String>(row, isArray, text);
      case pl::kPropListType_UnicodeString:
        return MakeValue<UTF16String>(row, isArray, text);
      case pl::kPropListType_Bool:
        return MakeValue<bool>(row, isArray, text);
      case pl::kPropListType_UInt16:
        return MakeValue<std::uint16_t>(row, isArray, text);
      case pl::kPropListType_UInt32:
        return MakeValue<std::uint32_t>(row, isArray, text);
      case pl::kPropListType_Int32:
        return MakeValue<std::int32_t>(row, isArray, text);
      case pl::kPropListType_Int64:
        return MakeValue<long long>(row, isArray, text);
      case pl::kPropListType_UInt64:
        return MakeValue<unsigned long long>(row, isArray, text);
      case pl::kPropListType_Float:
        return MakeValue<float>(row, isArray, text);
      default:
        return MakeValue<double>(row, isArray, text);
    }
  }
  throw UsageError("unknown <type> " + Quoted(type) +
                   "; one of string ustring bool u16 u32 i32 i64 u64 float double, "
                   "each also as a list with []");
}

std::string Described(PropListPropertyType type) {
  return type == pl::kPropListType_PropList ? "a list"
                                            : std::string("a value of type ") + TypeName(type);
}

int Show(const Args& raw) {
  const ArgList args(raw, {}, {"<file>"});
  PropList list;
  Load(args[0], list);
  std::cout << "version " << list.GetVersion() << '\n';
  ShowTree(list, std::cout);
  return kExitSuccess;
}

int ToJson(const Args& raw) {
  const ArgList args(raw, {}, {"<file>"});
  PropList list;
  Load(args[0], list);
  Json(list, std::cout);
  std::cout << '\n';
  return kExitSuccess;
}

int Validate(const Args& raw) {
  const ArgList args(raw, {}, {"<file>"});
  PropList list;
  Load(args[0], list);
  std::list<UTF8String> names;
  list.GetPropertyNames(names);
  std::cout << "valid: version " << list.GetVersion() << ", " << names.size()
            << (names.size() == 1 ? " top-level key\n" : " top-level keys\n");
  return kExitSuccess;
}

int Get(const Args& raw) {
  const ArgList args(raw, {}, {"<file>", "<key/path>"});
  const auto parts = KeyPath(args[1]);
  PropList list;
  Load(args[0], list);
  const PropList* holder = &list;
  for (std::size_t i = 0; i + 1 < parts.size() && holder; ++i)
    holder = holder->GetSubList(U8(parts[i]));
  const UTF8String key = U8(parts.back());
  if (!holder || holder->GetPropertyType(key) == pl::kPropListType_None)
    throw Failure("no value at " + Quoted(args[1]));
  if (const PropList* sub = holder->GetSubList(key)) {
    Json(*sub, std::cout);
    std::cout << '\n';
  } else {
    std::cout << ValueText(*holder, key) << '\n';
  }
  return kExitSuccess;
}

// The value under `parts` after writing the list out and reading it back must
// be the one stored: a file is never written that would not give back what
// was set (the XML form turns a carriage return into a line feed, say).
void RequireReadBack(const PropList& list, const std::vector<std::string>& parts,
                     const PropList& holder, const UTF8String& key) {
  UTF8String text;
  pl::utils::WritePropList(text, list);
  PropList back;
  pl::utils::ReadPropList(text, back);
  const PropList* backHolder = &back;
  for (std::size_t i = 0; i + 1 < parts.size() && backHolder; ++i)
    backHolder = backHolder->GetSubList(U8(parts[i]));
  const std::string wanted = ValueText(holder, key);
  const std::string got = backHolder ? ValueText(*backHolder, key) : std::string();
  if (!backHolder || backHolder->GetPropertyType(key) != holder.GetPropertyType(key) ||
      got != wanted) {
    throw Failure("the value would read back from the file as " + (got.empty() ? "nothing" : got) +
                  ", not as " + wanted + "; nothing was changed");
  }
}

// Stores one value. Nothing that is there already changes kind without
// --force: neither a value its type, nor a list its being a list.
int Set(const Args& raw) {
  const ArgList args(raw, {{"--force", "-f", false}},
                     {"<file>", "<key/path>", "<type>", "<value>"});
  const bool force = args.Has("--force");
  const UTF16String path = PathArg(args[0], "<file>");
  const auto parts = KeyPath(args[1]);
  const TypedValue value = ParseTyped(args[2], args[3]);
  PropList list;
  if (File(path).Exists()) Load(args[0], list);
  PropList* holder = &list;
  std::string walked;
  auto refuse = [&](const std::string& at, PropListPropertyType now, PropListPropertyType wanted) {
    throw Failure(Quoted(at) + " holds " + Described(now) + "; setting " + Described(wanted) +
                  " there would replace it. Add --force to do so.");
  };
  for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
    walked += (i == 0 ? "" : "/") + parts[i];
    const PropListPropertyType now = holder->GetPropertyType(U8(parts[i]));
    if (now != pl::kPropListType_None && now != pl::kPropListType_PropList && !force)
      refuse(walked, now, pl::kPropListType_PropList);
    holder = holder->NewSubList(U8(parts[i]));
  }
  const UTF8String key = U8(parts.back());
  const PropListPropertyType now = holder->GetPropertyType(key);
  if (now != pl::kPropListType_None && now != value.type && !force)
    refuse(args[1], now, value.type);
  value.store(*holder, key);
  RequireReadBack(list, parts, *holder, key);
  File file(path);
  pl::utils::SavePropList(file, list);
  return kExitSuccess;
}

const Registrar kPlistCommands(CommandGroup{
    "plist",
    "property list files in tvxcore's XML form",
    {
        {"show", "<file>", "the list as an indented tree", Show},
        {"get", "<file> <key/path>", "one value (a sub-list as JSON)", Get},
        {"set", "[--force] <file> <key/path> <type> <value>",
         "store a value, making the file and sub-lists as needed", Set},
        {"tojson", "<file>", "the list as JSON", ToJson},
        {"validate", "<file>", "read the file; say where and why it is not valid", Validate},
    },
    {"<key/path> names nested lists with \"/\": window/width. <type> is one of string",
     "ustring bool u16 u32 i32 i64 u64 float double; with [] it is a list of them whose",
     "<value> holds the items separated by commas. Text may hold tab, line feed and",
     "carriage return but no other control character. 'set' does not change the type",
     "of a value or replace a list by a value (or a value by a list) without --force.",
     "Files are saved safely: the old file stands until the new one is complete."},
    {
        {"plist set /tmp/s.plist window/width i32 800", "stores 800 under window/width"},
        {"plist get /tmp/s.plist window/width", "prints 800"},
        {"plist set /tmp/s.plist window/scale float 0.1", "stores 0.1 as a float"},
        {"plist get /tmp/s.plist window/scale", "prints 0.1"},
        {"plist show /tmp/s.plist", "the list as a tree"},
        {"plist validate /tmp/s.plist", "prints valid: version 4, 1 top-level key"},
    }});

}  // namespace
}  // namespace tvxhost
