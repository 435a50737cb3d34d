// tvxcore/serialization/JSON.h: a small JSON value model for message-style
// calls (an object with "method" and "params"): parse text into a tree of
// boost::any values, build and query such trees, and write them out.
//
// A value is a JSONValue, a boost::shared_ptr<boost::any>, and the any holds
// one of these types and no other:
//
//   JSON                               held type
//   object                             JSONObject (keys in byte order)
//   array                              JSONArray
//   string                             UTF8String
//   integer, not negative              std::uint64_t
//   integer, negative                  std::int64_t
//   number with fraction or exponent   double
//   true, false                        bool
//   null                               NullType (the type of G_NullType)
//
// Nesting is bounded by memory alone: parsing and writing keep stacks of
// their own, and releasing a tree recurses at most a few dozen levels before
// a per-thread work list takes over, so a value nested a million deep parses,
// writes and goes away on any thread's stack. That bound on releasing holds
// for every value the library makes (JSONParse, BuildCall,
// MakeJSONValue, ToJSONValue and the `const boost::any&` forms of AddToObject
// and AppendToArray); a value made with boost::make_shared destroys its own
// level recursively as usual.
//
// Values have no lock: a tree belongs to one thread at a time, while the
// shared pointers themselves are as safe as boost::shared_ptr.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include <boost/any.hpp>
#include <boost/shared_ptr.hpp>

#include "tvxcore/Export.h"
#include "tvxcore/utility/SmallBlockAllocator.h"
#include "tvxcore/utility/StringTypes.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxcore::serialization {

using JSONValue = boost::shared_ptr<boost::any>;
using JSONObject = utility::SmallBlockAllocator::map<UTF8String, JSONValue, std::less<UTF8String>>;
using JSONArray = utility::SmallBlockAllocator::vector<JSONValue>;

// The held type of null: a type of its own that carries no data.
struct TVXCORE_EXPORT NullType {
  friend constexpr bool operator==(NullType, NullType) noexcept { return true; }
};
TVXCORE_EXPORT extern const NullType G_NullType;

// What the parser throws: a std::runtime_error whose what() is exactly one of
//   "ParseValue unexpected char"      no value can start here, or text follows
//                                     the root value
//   "ParsePrimitive unexpected char"  a word other than true, false, null
//   "ParseArray unexpected char"      neither "," nor "]" after an element
//   "ParseObject unexpected char"     a key that isn't a string, no ":", or
//                                     neither "," nor "}" after a member
//   "AdvanceString: unexpected char"  an unterminated string, a backslash
//                                     before anything but " \ / b f n r t u,
//                                     a zero byte or bytes that aren't UTF-8
//   "EscapeString: unexpected char"   "\u" without four hexadecimal digits
// Offset() is where in the UTF-8 text the parser stopped, in bytes.
class TVXCORE_EXPORT JSONParseError : public std::runtime_error {
 public:
  JSONParseError(const char* text, std::size_t offset);
  std::size_t Offset() const noexcept { return offset_; }

 private:
  std::size_t offset_;
};

// What a query or an addition throws when a value doesn't hold the type it
// needs (an object, an array): a boost::bad_any_cast whose what() is
// "bad cast".
class TVXCORE_EXPORT JSONBadCast : public boost::bad_any_cast {
 public:
  const char* what() const noexcept override;
};

// ---------------------------------------------------------------------------
// Parsing. Each form returns the root value, never a null pointer; a text of
// nothing but white space gives a value whose any is empty, without an
// exception. Everything else that isn't one JSON value throws JSONParseError.
//
// The grammar is JSON's with these liberties:
// - white space is what the C locale's isspace accepts (also \v and \f);
// - a number is an optional "-" followed by any run of digits, ".", "e",
//   "E", "+" and "-": "." switches to the fraction, "e" or "E" to the
//   exponent, and "+" or "-" after the first position sets the sign of the
//   exponent wherever it stands. Without "." and exponent the number is an
//   integer, held as std::uint64_t, or with a leading "-" as std::int64_t;
//   otherwise a double, the one nearest to the decimal value ("1e999" is
//   infinity). An integer beyond its type's range is held as the nearest
//   double, so no digit is silently lost to wrapping;
// - strings may hold control characters other than the zero byte as they
//   stand; "\u" escapes give UTF-8, a surrogate pair one four-byte sequence,
//   a lone surrogate its own three bytes (as utility::UTF16to8 does).
// A repeated key replaces the earlier value. The text given with a length
// ends there, so a zero byte inside it is an unexpected character; the
// zero-terminated form ends at its first zero byte.
TVXCORE_EXPORT JSONValue JSONParse(const UTF8String& text);
TVXCORE_EXPORT JSONValue JSONParse(const UTF8Char* text);  // null: an empty value
TVXCORE_EXPORT JSONValue JSONParse(const UTF8Char* text, std::size_t length);
// Through utility::UTF16to8; offsets are those of the UTF-8 text.
TVXCORE_EXPORT JSONValue JSONParse(const UTF16String& text);

// ---------------------------------------------------------------------------
// Building.

// A new value holding `value` as it is. The model's types are those of the
// table above; a value of any other type writes as "<ERROR>".
TVXCORE_EXPORT JSONValue MakeJSONValue(boost::any value);

// A new value of the model's kind for a C++ value: text (const char*,
// std::string, std::string_view, UTF8String; UTF16String, const char16_t*
// and std::u16string_view through UTF16to8)
// becomes a string, bool a bool, an integer std::uint64_t or, when negative,
// std::int64_t, a floating value a double, NullType null, a JSONArray or
// JSONObject itself. A JSONValue is returned as it is (not copied).
template <typename T>
JSONValue ToJSONValue(T&& value);

// {"method": <method>, "params": [<params>...]}, each parameter made with
// ToJSONValue: BuildCall("open", "a.txt", 3) gives
// {"method":"open","params":["a.txt",3]}. A null method is "".
template <typename... Params>
JSONValue BuildCall(const char* method, Params&&... params);
// The same with the parameters as an array already built.
TVXCORE_EXPORT JSONValue BuildCallWithParams(const char* method, JSONArray params);

// Sets `key` of the JSONObject held by `object` to `value`, replacing what
// the key held. The `const boost::any&` form stores a new value holding a
// copy. `object` holding anything else (or nothing) throws JSONBadCast.
TVXCORE_EXPORT void AddToObject(boost::any& object, const UTF8String& key, const JSONValue& value);
TVXCORE_EXPORT void AddToObject(boost::any& object, const UTF8String& key, const boost::any& value);
inline void AddToObject(boost::any& object, const UTF16String& key, const JSONValue& value) {
  AddToObject(object, utility::UTF16to8(key), value);
}
inline void AddToObject(boost::any& object, const UTF16String& key, const boost::any& value) {
  AddToObject(object, utility::UTF16to8(key), value);
}
inline void AddToObject(boost::any& object, const char* key, const JSONValue& value) {
  AddToObject(object,
              key ? UTF8String(key, key + std::char_traits<char>::length(key)) : UTF8String(),
              value);
}
inline void AddToObject(boost::any& object, const char* key, const boost::any& value) {
  AddToObject(object,
              key ? UTF8String(key, key + std::char_traits<char>::length(key)) : UTF8String(),
              value);
}
inline void AddToObject(boost::any& object, const std::string& key, const JSONValue& value) {
  AddToObject(object, UTF8String(key.begin(), key.end()), value);
}
inline void AddToObject(boost::any& object, const std::string& key, const boost::any& value) {
  AddToObject(object, UTF8String(key.begin(), key.end()), value);
}

// Appends `value` to the JSONArray held by `array`; anything else (or
// nothing) throws JSONBadCast.
TVXCORE_EXPORT void AppendToArray(boost::any& array, const JSONValue& value);
TVXCORE_EXPORT void AppendToArray(boost::any& array, const boost::any& value);

// ---------------------------------------------------------------------------
// Queries. The object is given as the map itself or as a value holding one;
// a value holding anything else, or a null pointer, throws JSONBadCast.

// The value under `key`, or a null pointer when there is none. A null key
// is "".
TVXCORE_EXPORT JSONValue GetVariantInObject(const JSONObject& object, const char* key);
TVXCORE_EXPORT JSONValue GetVariantInObject(const JSONValue& object, const char* key);
TVXCORE_EXPORT bool ObjectHasProperty(const JSONObject& object, const char* key);
TVXCORE_EXPORT bool ObjectHasProperty(const JSONValue& object, const char* key);

// ---------------------------------------------------------------------------
// Writing, compact: {"key":value,...} and [value,...]. Numbers are written in
// the shortest form that reads back as the same value, a double always with
// a "." or an exponent so that it reads back as a double (5.0 is "5.0"),
// infinity as 1e999 and -1e999, NaN as null. Strings, keys included, are
// written between quotation marks exactly as they stand, with no escaping:
// a string holding a quotation mark, a backslash or a zero byte gives text
// that doesn't parse. An empty boost::any (and a null pointer in a container)
// writes nothing; a value of any type outside the model writes "<ERROR>", and
// so does null, and so does a container met again inside itself.
TVXCORE_EXPORT UTF8String GetJSONUTF8String(const boost::any& value);
// The same text through utility::UTF8to16.
TVXCORE_EXPORT UTF16String GetJSONString(const boost::any& value);

// ---------------------------------------------------------------------------

template <typename T>
JSONValue ToJSONValue(T&& value) {
  using D = std::remove_cvref_t<T>;
  if constexpr (std::is_same_v<D, JSONValue>) {
    return value;
  } else if constexpr (std::is_same_v<D, boost::any>) {
    return MakeJSONValue(std::forward<T>(value));
  } else if constexpr (std::is_same_v<D, bool>) {
    return MakeJSONValue(boost::any(value));
  } else if constexpr (std::is_integral_v<D>) {
    if constexpr (std::is_signed_v<D>) {
      if (value < 0) return MakeJSONValue(boost::any(static_cast<std::int64_t>(value)));
    }
    return MakeJSONValue(boost::any(static_cast<std::uint64_t>(value)));
  } else if constexpr (std::is_floating_point_v<D>) {
    return MakeJSONValue(boost::any(static_cast<double>(value)));
  } else if constexpr (std::is_same_v<D, UTF8String> || std::is_same_v<D, NullType> ||
                       std::is_same_v<D, JSONArray> || std::is_same_v<D, JSONObject>) {
    return MakeJSONValue(boost::any(D(std::forward<T>(value))));
  } else if constexpr (std::is_same_v<D, UTF16String>) {
    return MakeJSONValue(boost::any(utility::UTF16to8(value)));
  } else if constexpr (std::is_convertible_v<T, const char*>) {
    const char* text = value;
    return ToJSONValue(text ? std::string_view(text) : std::string_view());
  } else if constexpr (std::is_convertible_v<T, std::string_view>) {
    const std::string_view text = value;
    return MakeJSONValue(boost::any(UTF8String(text.begin(), text.end())));
  } else if constexpr (std::is_convertible_v<T, std::u16string_view>) {
    const std::u16string_view text = value;
    return MakeJSONValue(boost::any(utility::UTF16to8(UTF16String(text.begin(), text.end()))));
  } else {
    static_assert(std::is_same_v<D, JSONValue>, "ToJSONValue: no JSON kind for this type");
  }
}

template <typename... Params>
JSONValue BuildCall(const char* method, Params&&... params) {
  JSONArray array;
  array.reserve(sizeof...(Params));
  (array.push_back(ToJSONValue(std::forward<Params>(params))), ...);
  return BuildCallWithParams(method, std::move(array));
}

}  // namespace tvxcore::serialization
