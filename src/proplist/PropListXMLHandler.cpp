#include "tvxcore/proplist/PropListXMLHandler.h"

#include <algorithm>
#include <cstring>
#include <list>
#include <optional>
#include <span>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include "proplist/internal/Bridge.h"
#include "proplist/internal/Numbers.h"
#include "proplist/internal/RoutedReader.h"
#include "proplist/internal/TextEscape.h"
#include "tvxcore/proplist/PropListUtils.h"
#include "tvxcore/proplist/PropNodes.h"
#include "xml/internal/Utf.h"

namespace tvxcore::proplist {
namespace {

constexpr const char kVersionGreaterThan[] =
    "$$$/tvxcore/proplist/Error/PropListXMLHandler/VersionGreaterThan=Cannot read PropList data; "
    "version greater than expected.";
constexpr const char kMissingParserFactoryRead[] =
    "$$$/tvxcore/proplist/Error/PropListUtils/MissingParserFactoryRead=Missing XML Parser Factory "
    "in ReadPropList.";
constexpr const char kParsingPropertiesListRead[] =
    "$$$/tvxcore/proplist/Error/PropListUtils/ParsingPropertiesListRead=Error parsing properties "
    "list from memory.";

// What a value element holds; kNone for an element the format doesn't know.
enum class ValueKind {
  kNone,
  kUString,
  kString,
  kTrue,
  kFalse,
  kUInt16,
  kUInt32,
  kInt32,
  kFloat,
  kDouble,
  kUInt64,
  kInt64,
};

// Exact comparison of UTF-8 or UTF-16 text with an ASCII literal. Names and
// attribute values compare unit by unit, so both routes agree.
template <typename C>
bool Is(std::basic_string_view<C> text, std::string_view literal) {
  if (text.size() != literal.size()) return false;
  if constexpr (sizeof(C) == 1) {
    return std::memcmp(text.data(), literal.data(), literal.size()) == 0;
  } else {
    for (std::size_t i = 0; i < literal.size(); ++i) {
      if (text[i] != static_cast<C>(static_cast<unsigned char>(literal[i]))) return false;
    }
    return true;
  }
}

template <typename S>
std::basic_string_view<typename S::value_type> View(const S& text) {
  return {text.data(), text.size()};
}

// The element names of the format.
enum class Element {
  kOther,
  kPropMap,
  kPropList,
  kKey,
  kArray,
  kArrayType,
  kUStringElement,
  kStringElement,
  kTrueElement,
  kBoolElement,
  kFalseElement,
  kFloatElement,
  kDoubleElement,
  kIntElement,
};

template <typename C>
Element Identify(std::basic_string_view<C> name) {
  // Dispatch on length first: every event passes here.
  switch (name.size()) {
    case 3:
      if (Is(name, "key")) return Element::kKey;
      if (Is(name, "int")) return Element::kIntElement;
      break;
    case 4:
      if (Is(name, "true")) return Element::kTrueElement;
      if (Is(name, "bool")) return Element::kBoolElement;
      break;
    case 5:
      if (Is(name, "array")) return Element::kArray;
      if (Is(name, "false")) return Element::kFalseElement;
      if (Is(name, "float")) return Element::kFloatElement;
      break;
    case 6:
      if (Is(name, "string")) return Element::kStringElement;
      if (Is(name, "double")) return Element::kDoubleElement;
      break;
    case 7:
      if (Is(name, "ustring")) return Element::kUStringElement;
      break;
    case 8:
      if (Is(name, "prop.map")) return Element::kPropMap;
      break;
    case 9:
      if (Is(name, "prop.list")) return Element::kPropList;
      break;
    case 10:
      if (Is(name, "array.type")) return Element::kArrayType;
      break;
    default:
      break;
  }
  return Element::kOther;
}

// Classifies a value element; kNone for anything the format doesn't know.
// `find(name)` gives a pointer to the attribute's value as a view, or null.
template <typename FindAttribute>
ValueKind Classify(Element element, const FindAttribute& find) {
  switch (element) {
    case Element::kUStringElement:
      return ValueKind::kUString;
    case Element::kStringElement:
      return ValueKind::kString;
    case Element::kTrueElement:
    case Element::kBoolElement:
      return ValueKind::kTrue;
    case Element::kFalseElement:
      return ValueKind::kFalse;
    case Element::kFloatElement:
      return ValueKind::kFloat;
    case Element::kDoubleElement:
      return ValueKind::kDouble;
    case Element::kIntElement: {
      auto type = find("type");
      auto size = find("size");
      if (!type || !size) return ValueKind::kNone;
      bool isSigned = Is(*type, "signed");
      if (Is(*size, "16")) return ValueKind::kUInt16;
      if (Is(*size, "32")) return isSigned ? ValueKind::kInt32 : ValueKind::kUInt32;
      if (Is(*size, "64")) return isSigned ? ValueKind::kInt64 : ValueKind::kUInt64;
      return ValueKind::kNone;
    }
    default:
      return ValueKind::kNone;
  }
}

// UTF-8 text of either route: UTF-16 text is converted into `scratch`, UTF-8
// text is used as it stands.
const UTF8String& AsUTF8(const UTF16String& text, UTF8String& scratch) {
  scratch.clear();
  xml::internal::AppendUTF16AsUTF8(text.data(), text.size(), scratch);
  return scratch;
}
const UTF8String& AsUTF8(const UTF8String& text, UTF8String&) { return text; }

// UTF-16 text of either route, the other way round.
const UTF16String& AsUTF16(const UTF16String& text, UTF16String&) { return text; }
const UTF16String& AsUTF16(const UTF8String& text, UTF16String& scratch) {
  scratch.clear();
  xml::internal::AppendUTF8AsUTF16(reinterpret_cast<const char*>(text.data()), text.size(),
                                   scratch);
  return scratch;
}

// The node class that holds one value of type T.
template <typename T>
struct NodeOf {
  using type = SimpleTypeArrayNode<T>;
};
template <>
struct NodeOf<bool> {
  using type = BoolPropNode;
};
template <>
struct NodeOf<UTF8String> {
  using type = StringPropNode;
};
template <>
struct NodeOf<UTF16String> {
  using type = UnicodeStringPropNode;
};

// Text of either route with the writer's escapes undone. Every escape starts
// with the lead byte 0xEE in UTF-8, so UTF-8 text without that byte, the usual
// case, is used as it stands, also once converted to UTF-16.
bool MayHoldEscapes(const UTF8String& text) {
  return !text.empty() && std::memchr(text.data(), 0xEE, text.size()) != nullptr;
}
bool MayHoldEscapes(const UTF16String&) { return true; }

template <typename S>
const UTF8String& Decoded8(const S& text, UTF8String& converted, UTF8String& scratch) {
  const UTF8String& utf8 = AsUTF8(text, converted);
  return MayHoldEscapes(text) ? internal::DecodeText(utf8, scratch) : utf8;
}
template <typename S>
const UTF16String& Decoded16(const S& text, UTF16String& converted, UTF16String& scratch) {
  const UTF16String& utf16 = AsUTF16(text, converted);
  return MayHoldEscapes(text) ? internal::DecodeText(utf16, scratch) : utf16;
}

template <typename T>
T Number(const UTF8String& text) {
  T value{};
  internal::ReadNumber(text.data(), text.size(), value);
  return value;
}

}  // namespace

namespace internal {

// The reader's state machine. It is fed either the public UTF-16 events,
// through PropListXMLHandler, or the parser layer's UTF-8 events; the two
// routes share every decision and differ only in the text they collect, which
// each converts once, when a value is stored.
class PropListReader final : public xml::internal::UTF8Handler {
 public:
  explicit PropListReader(PropList* root) : root_(root) {}

  // The reader behind a handler.
  static PropListReader* Of(PropListXMLHandler& handler) { return handler.reader_.get(); }

  bool StartElement(std::string_view name,
                    std::span<const xml::internal::UTF8Attribute> attributes) override {
    Start<UTF8String>(Identify(name),
                      [&](std::string_view attribute) -> std::optional<std::string_view> {
                        for (const xml::internal::UTF8Attribute& a : attributes) {
                          if (a.qualifiedName == attribute) return a.value;
                        }
                        return std::nullopt;
                      });
    return state_ != ReaderState::kIdle;
  }
  bool EndElement(std::string_view name) override {
    End<UTF8String>(Identify(name));
    return state_ != ReaderState::kIdle;
  }
  void Characters(const char* text, std::size_t size) override {
    // Text arrives only in a key or a value: the element events answer whether
    // text is wanted, and outside a key or a value the line breaks of the
    // format mean nothing. Unlike the UTF-16 route, no search for a zero
    // unit: XML text cannot hold one, not even as a reference.
    Texts<UTF8String>& t = texts8_;
    (state_ == ReaderState::kInKey ? t.key : t.value)
        .append(reinterpret_cast<const UTF8Char*>(text), size);
  }

  template <typename FindAttribute>
  void StartUTF16(const UTF16String& name, const FindAttribute& find) {
    Start<UTF16String>(Identify(View(name)), find);
  }
  void EndUTF16(const UTF16String& name) { End<UTF16String>(Identify(View(name))); }
  void CharactersUTF16(const UTF16String& text) {
    if (state_ == ReaderState::kIdle) return;
    std::size_t length = std::char_traits<UTF16Char>::length(text.c_str());
    Texts<UTF16String>& t = texts16_;
    (state_ == ReaderState::kInKey ? t.key : t.value).append(text.data(), length);
  }

 private:
  // Where the reader is: between elements, or collecting the text of a key
  // or of a value element.
  enum class ReaderState { kIdle, kInKey, kInValue };

  // The text collected in one route's units.
  template <typename S>
  struct Texts {
    S key;
    S value;
    // The items of the open array; the first itemCount are in use, the rest
    // keep their storage for the next array.
    std::vector<S> items;
    std::size_t itemCount = 0;
  };

  template <typename S>
  Texts<S>& TextsOf() {
    if constexpr (std::is_same_v<S, UTF8String>) {
      return texts8_;
    } else {
      return texts16_;
    }
  }

  template <typename S, typename FindAttribute>
  void Start(Element element, const FindAttribute& find);
  template <typename S>
  void End(Element element);
  void CurrentChanged() {
    currentIsPlain_ = current_ != nullptr && typeid(*current_) == typeid(PropList);
  }
  template <typename S>
  void StoreScalar();
  template <typename S>
  void StoreArray();
  // The key collected so far in UTF-8, the writer's escapes undone.
  template <typename S>
  const UTF8String& KeyText(const S& key) {
    return Decoded8(key, keyUTF8_, keyText_);
  }

  PropList* root_;
  std::list<PropList*> stack_;
  PropList* current_ = nullptr;
  bool currentIsPlain_ = false;  // current_ is exactly a PropList
  ReaderState state_ = ReaderState::kIdle;
  ValueKind valueKind_ = ValueKind::kNone;
  bool inArray_ = false;
  bool inArrayType_ = false;
  ValueKind arrayTypeKind_ = ValueKind::kNone;
  Texts<UTF16String> texts16_;
  Texts<UTF8String> texts8_;
  // Conversion targets, reused from value to value.
  UTF8String keyUTF8_;
  UTF8String valueUTF8_;
  UTF16String valueUTF16_;
  // Targets of the decoding of escapes, used only when there are some.
  UTF8String keyText_;
  UTF8String textUTF8_;
  UTF16String textUTF16_;
};

template <typename S, typename FindAttribute>
void PropListReader::Start(Element element, const FindAttribute& find) {
  Texts<S>& t = TextsOf<S>();
  if (element == Element::kPropMap) {
    if (auto version = find("version")) {
      S text(version->begin(), version->end());
      auto number = Number<std::uint16_t>(AsUTF8(text, valueUTF8_));
      if (number > PropList::GetCurrentVersion()) {
        ReportError(kVersionGreaterThan, 20);
      } else if (root_) {
        // An older file keeps its older version through a later rewrite.
        root_->version_ = number;
      }
    }
  } else if (element == Element::kPropList) {
    if (stack_.empty()) {
      current_ = root_;
    } else {
      current_ = current_ ? current_->NewSubList(KeyText(t.key)) : nullptr;
      t.key.clear();
      state_ = ReaderState::kIdle;
    }
    stack_.push_back(current_);
    CurrentChanged();
  } else if (element == Element::kKey) {
    state_ = ReaderState::kInKey;
  } else if (element == Element::kArray) {
    inArray_ = true;
  } else if (element == Element::kArrayType) {
    inArrayType_ = true;
  } else {
    const ValueKind kind = Classify(element, find);
    if (inArrayType_) {
      arrayTypeKind_ = kind;
    } else if (kind != ValueKind::kNone) {
      // Unknown elements leave the state alone, so that an element of a later
      // version costs only its own value.
      valueKind_ = kind;
      state_ = ReaderState::kInValue;
    }
  }
}

template <typename S>
void PropListReader::End(Element element) {
  Texts<S>& t = TextsOf<S>();
  if (element == Element::kPropList) {
    if (!stack_.empty()) stack_.pop_back();
    current_ = stack_.empty() ? nullptr : stack_.back();
    CurrentChanged();
  } else if (element == Element::kKey) {
    state_ = ReaderState::kIdle;
  } else if (element == Element::kArray) {
    StoreArray<S>();
    inArray_ = false;
    arrayTypeKind_ = ValueKind::kNone;
    state_ = ReaderState::kIdle;
  } else if (element == Element::kArrayType) {
    inArrayType_ = false;
  } else if (state_ == ReaderState::kInValue) {
    if (!inArray_) {
      StoreScalar<S>();
    } else {
      if (t.itemCount == t.items.size()) t.items.emplace_back();
      S& item = t.items[t.itemCount++];
      if (valueKind_ == ValueKind::kTrue) {
        item.assign(4, 0);
        std::copy_n("true", 4, item.begin());
      } else if (valueKind_ == ValueKind::kFalse) {
        item.assign(5, 0);
        std::copy_n("false", 5, item.begin());
      } else {
        item.swap(t.value);
        t.value.clear();
      }
    }
    state_ = ReaderState::kIdle;
  }
}

template <typename S>
void PropListReader::StoreScalar() {
  Texts<S>& t = TextsOf<S>();
  if (valueKind_ != ValueKind::kNone && current_) {
    const UTF8String& key = KeyText(t.key);
    PropList& list = *current_;
    // The library's own list class is called directly; a host's class sees
    // its SetValue override called.
    auto set = [&](const auto& value) {
      if (currentIsPlain_) {
        list.PropList::SetValue(key, value);
      } else {
        list.SetValue(key, value);
      }
    };
    switch (valueKind_) {
      case ValueKind::kUString:
        set(Decoded16(t.value, valueUTF16_, textUTF16_));
        break;
      case ValueKind::kString:
        set(Decoded8(t.value, valueUTF8_, textUTF8_));
        break;
      case ValueKind::kTrue:
        set(true);
        break;
      case ValueKind::kFalse:
        set(false);
        break;
      case ValueKind::kUInt16:
        set(Number<std::uint16_t>(AsUTF8(t.value, valueUTF8_)));
        break;
      case ValueKind::kUInt32:
        set(Number<std::uint32_t>(AsUTF8(t.value, valueUTF8_)));
        break;
      case ValueKind::kInt32:
        set(Number<std::int32_t>(AsUTF8(t.value, valueUTF8_)));
        break;
      case ValueKind::kFloat:
        set(Number<float>(AsUTF8(t.value, valueUTF8_)));
        break;
      case ValueKind::kDouble:
        set(Number<double>(AsUTF8(t.value, valueUTF8_)));
        break;
      case ValueKind::kUInt64:
        set(Number<unsigned long long>(AsUTF8(t.value, valueUTF8_)));
        break;
      case ValueKind::kInt64:
        set(Number<long long>(AsUTF8(t.value, valueUTF8_)));
        break;
      default:
        break;
    }
  }
  t.value.clear();
  t.key.clear();
}

template <typename S>
void PropListReader::StoreArray() {
  Texts<S>& t = TextsOf<S>();
  if (current_) {
    const UTF8String& key = KeyText(t.key);
    PropList& list = *current_;
    // An empty array has only its declared type to go by.
    const ValueKind kind = t.itemCount == 0 ? arrayTypeKind_ : valueKind_;
    auto item = [&]<typename T>(const S& text) -> T {
      if constexpr (std::is_same_v<T, UTF16String>) {
        return Decoded16(text, valueUTF16_, textUTF16_);
      } else if constexpr (std::is_same_v<T, UTF8String>) {
        return Decoded8(text, valueUTF8_, textUTF8_);
      } else if constexpr (std::is_same_v<T, bool>) {
        return Is(View(text), "true");
      } else {
        return Number<T>(AsUTF8(text, valueUTF8_));
      }
    };
    auto fill = [&]<typename T>(PropList::List<T>&& values) {
      if (currentIsPlain_) {
        // The plain list: build the array node as SetValue would, without
        // the intermediate std::list.
        using ArrayNode = PropListArrayNode<typename NodeOf<T>::type>;
        typename ArrayNode::Elements elements;
        elements.reserve(t.itemCount);
        for (std::size_t i = 0; i < t.itemCount; ++i) {
          elements.emplace_back(item.template operator()<T>(t.items[i]));
        }
        list.Store(key, PropList::NodePtr(new ArrayNode(std::move(elements))));
        return;
      }
      // A host's own list class sees its SetValue called.
      for (std::size_t i = 0; i < t.itemCount; ++i) {
        values.push_back(item.template operator()<T>(t.items[i]));
      }
      list.SetValue(key, values);
    };
    switch (kind) {
      case ValueKind::kUString:
        fill(PropList::List<UTF16String>());
        break;
      case ValueKind::kString:
        fill(PropList::List<UTF8String>());
        break;
      case ValueKind::kTrue:
      case ValueKind::kFalse:
        fill(PropList::List<bool>());
        break;
      case ValueKind::kUInt16:
        fill(PropList::List<std::uint16_t>());
        break;
      case ValueKind::kUInt32:
        fill(PropList::List<std::uint32_t>());
        break;
      case ValueKind::kInt32:
        fill(PropList::List<std::int32_t>());
        break;
      case ValueKind::kFloat:
        fill(PropList::List<float>());
        break;
      case ValueKind::kDouble:
        fill(PropList::List<double>());
        break;
      case ValueKind::kUInt64:
        fill(PropList::List<unsigned long long>());
        break;
      case ValueKind::kInt64:
        fill(PropList::List<long long>());
        break;
      default:
        break;  // an empty array of unknown type: the key is lost
    }
  }
  t.key.clear();
  t.value.clear();
  t.itemCount = 0;
}

}  // namespace internal

PropListXMLHandler::PropListXMLHandler(PropList* root)
    : reader_(std::make_unique<internal::PropListReader>(root)) {}
PropListXMLHandler::~PropListXMLHandler() = default;

void PropListXMLHandler::StartElement(const UTF16String& name,
                                      const std::map<UTF16String, UTF16String>& attributes) {
  reader_->StartUTF16(name, [&](std::string_view attribute) -> std::optional<std::u16string_view> {
    auto it = attributes.find(UTF16String(attribute.begin(), attribute.end()));
    if (it == attributes.end()) return std::nullopt;
    return View(it->second);
  });
}

void PropListXMLHandler::EndElement(const UTF16String& name) { reader_->EndUTF16(name); }

void PropListXMLHandler::Characters(const UTF16String& text) { reader_->CharactersUTF16(text); }

}  // namespace tvxcore::proplist

namespace tvxcore::proplist {

xml::internal::UTF8Handler* internal::RoutedPropListXMLHandler::UTF8Route() {
  return PropListReader::Of(*this);
}

namespace utils {

void WritePropList(UTF8String& text, const PropList& list) {
  static constexpr char kHead[] = "<?xml version='1.0'?>\n<prop.map version='";
  static constexpr char kVersionEnd[] = "'>\n";
  static constexpr char kTail[] = "</prop.map>\n";
  text.clear();
  text.append(reinterpret_cast<const UTF8Char*>(kHead), sizeof kHead - 1);
  internal::AppendNumber(text, list.GetVersion());
  text.append(reinterpret_cast<const UTF8Char*>(kVersionEnd), sizeof kVersionEnd - 1);
  list.OutputAsXMLFragment(text);
  text.append(reinterpret_cast<const UTF8Char*>(kTail), sizeof kTail - 1);
}

void ReadPropList(const UTF8String& text, PropList& list) {
  std::unique_ptr<xml::AbstractParseHandler> handler =
      std::make_unique<internal::RoutedPropListXMLHandler>(&list);
  std::unique_ptr<xml::AbstractDocParser> parser = xml::GetParser(handler);
  if (!parser) {
    internal::ReportError(kMissingParserFactoryRead, 21);
    return;
  }
  if (parser->ParseBuffer(text) != xml::kXMLParseStatus_Success) {
    internal::ReportError(kParsingPropertiesListRead, 22);
  }
}

}  // namespace utils
}  // namespace tvxcore::proplist
