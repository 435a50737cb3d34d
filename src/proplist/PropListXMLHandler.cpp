#include "tvxcore/proplist/PropListXMLHandler.h"

#include <string_view>
#include <type_traits>

#include "proplist/internal/Bridge.h"
#include "proplist/internal/Numbers.h"
#include "tvxcore/proplist/PropListUtils.h"
#include "xml/internal/Utf.h"

namespace tvxcore::proplist {
namespace {

using Name = std::u16string_view;

constexpr const char kVersionGreaterThan[] =
    "$$$/tvxcore/proplist/Error/PropListXMLHandler/VersionGreaterThan=Cannot read PropList data; "
    "version greater than expected.";
constexpr const char kMissingParserFactoryRead[] =
    "$$$/tvxcore/proplist/Error/PropListUtils/MissingParserFactoryRead=Missing XML Parser Factory "
    "in ReadPropList.";
constexpr const char kParsingPropertiesListRead[] =
    "$$$/tvxcore/proplist/Error/PropListUtils/ParsingPropertiesListRead=Error parsing properties "
    "list from memory.";

// Value kinds of the reader.
enum Kind : int {
  kNone = 0,
  kUString = 1,
  kString = 2,
  kTrue = 3,
  kFalse = 4,
  kUInt16 = 5,
  kUInt32 = 6,
  kInt32 = 7,
  kFloat = 8,
  kDouble = 9,
  kUInt64 = 10,
  kInt64 = 11,
};

bool Is(const UTF16String& text, Name literal) { return Name(text) == literal; }

// The element names of the format. Names compare exactly, in 16-bit text.
enum Element : int {
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

Element Identify(const UTF16String& name) {
  // Dispatch on length first: every event passes here.
  switch (name.size()) {
    case 3:
      if (Is(name, u"key")) return kKey;
      if (Is(name, u"int")) return kIntElement;
      break;
    case 4:
      if (Is(name, u"true")) return kTrueElement;
      if (Is(name, u"bool")) return kBoolElement;
      break;
    case 5:
      if (Is(name, u"array")) return kArray;
      if (Is(name, u"false")) return kFalseElement;
      if (Is(name, u"float")) return kFloatElement;
      break;
    case 6:
      if (Is(name, u"string")) return kStringElement;
      if (Is(name, u"double")) return kDoubleElement;
      break;
    case 7:
      if (Is(name, u"ustring")) return kUStringElement;
      break;
    case 8:
      if (Is(name, u"prop.map")) return kPropMap;
      break;
    case 9:
      if (Is(name, u"prop.list")) return kPropList;
      break;
    case 10:
      if (Is(name, u"array.type")) return kArrayType;
      break;
    default:
      break;
  }
  return kOther;
}

// Classifies a value element; kNone for anything the format doesn't know.
template <typename FindAttribute>
int Classify(Element element, const FindAttribute& find) {
  switch (element) {
    case kUStringElement:
      return kUString;
    case kStringElement:
      return kString;
    case kTrueElement:
    case kBoolElement:
      return kTrue;
    case kFalseElement:
      return kFalse;
    case kFloatElement:
      return kFloat;
    case kDoubleElement:
      return kDouble;
    case kIntElement: {
      const UTF16String* type = find(u"type");
      const UTF16String* size = find(u"size");
      if (!type || !size) return kNone;
      bool isSigned = Is(*type, u"signed");
      if (Is(*size, u"16")) return kUInt16;
      if (Is(*size, u"32")) return isSigned ? kInt32 : kUInt32;
      if (Is(*size, u"64")) return isSigned ? kInt64 : kUInt64;
      return kNone;
    }
    default:
      return kNone;
  }
}

template <typename T>
T Number(const UTF8String& text) {
  T value{};
  internal::ReadNumber(text.data(), text.size(), value);
  return value;
}

}  // namespace

PropListXMLHandler::PropListXMLHandler(PropList* root) : root_(root) {}
PropListXMLHandler::~PropListXMLHandler() = default;

const UTF8String& PropListXMLHandler::Narrow(const UTF16String& text) {
  narrow_.clear();
  xml::internal::AppendUTF16AsUTF8(text.data(), text.size(), narrow_);
  return narrow_;
}

void PropListXMLHandler::StartElement(const UTF16String& name,
                                      const std::map<UTF16String, UTF16String>& attributes) {
  Start(name, [&](Name attribute) -> const UTF16String* {
    auto it = attributes.find(UTF16String(attribute));
    return it == attributes.end() ? nullptr : &it->second;
  });
}

void PropListXMLHandler::StartElementWithNamespace(const UTF16String& qualifiedName,
                                                   const UTF16String&, const UTF16String&,
                                                   const std::vector<xml::Attribute>& attributes) {
  Start(qualifiedName, [&](Name attribute) -> const UTF16String* {
    for (const xml::Attribute& a : attributes) {
      if (Name(a.qualifiedName) == attribute) return &a.value;
    }
    return nullptr;
  });
}

template <typename FindAttribute>
void PropListXMLHandler::Start(const UTF16String& name, const FindAttribute& find) {
  Element element = Identify(name);
  if (element == kPropMap) {
    if (const UTF16String* version = find(u"version")) {
      auto number = Number<std::uint16_t>(Narrow(*version));
      if (number > PropList::GetCurrentVersion()) {
        internal::ReportError(kVersionGreaterThan, 20);
      } else if (root_) {
        // An older file keeps its older version through a later rewrite.
        root_->version_ = number;
      }
    }
  } else if (element == kPropList) {
    if (stack_.empty()) {
      current_ = root_;
    } else {
      current_ = current_ ? current_->NewSubList(Narrow(keyText_)) : nullptr;
      keyText_.clear();
      state_ = 0;
    }
    stack_.push_back(current_);
  } else if (element == kKey) {
    state_ = 1;
  } else if (element == kArray) {
    inArray_ = true;
  } else if (element == kArrayType) {
    inArrayType_ = true;
  } else {
    int kind = Classify(element, find);
    if (inArrayType_) {
      arrayTypeKind_ = kind;
      arrayTypeKnown_ = kind != kNone;
    } else if (kind != kNone) {
      // Unknown elements leave the state alone, so that an element of a later
      // version costs only its own value.
      valueKind_ = kind;
      state_ = 2;
    }
  }
}

void PropListXMLHandler::Characters(const UTF16String& text) {
  if (state_ == 0) return;  // the line breaks of the format mean nothing
  std::size_t length = std::char_traits<UTF16Char>::length(text.c_str());
  (state_ == 1 ? keyText_ : valueText_).append(text.data(), length);
}

void PropListXMLHandler::EndElement(const UTF16String& name) {
  Element element = Identify(name);
  if (element == kPropList) {
    if (!stack_.empty()) stack_.pop_back();
    current_ = stack_.empty() ? nullptr : stack_.back();
  } else if (element == kKey) {
    state_ = 0;
  } else if (element == kArray) {
    StoreArray();
    inArray_ = false;
    arrayTypeKind_ = 0;
    arrayTypeKnown_ = false;
    state_ = 0;
  } else if (element == kArrayType) {
    inArrayType_ = false;
  } else if (state_ == 2) {
    if (!inArray_) {
      StoreScalar();
    } else {
      if (arrayItemCount_ == arrayItems_.size()) arrayItems_.emplace_back();
      UTF16String& item = arrayItems_[arrayItemCount_++];
      if (valueKind_ == kTrue) {
        item.assign(u"true");
      } else if (valueKind_ == kFalse) {
        item.assign(u"false");
      } else {
        item.swap(valueText_);
        valueText_.clear();
      }
    }
    state_ = 0;
  }
}

void PropListXMLHandler::StoreScalar() {
  if (valueKind_ != kNone && current_) {
    UTF8String key = Narrow(keyText_);
    PropList& list = *current_;
    switch (valueKind_) {
      case kUString:
        list.SetValue(key, valueText_);
        break;
      case kString:
        list.SetValue(key, Narrow(valueText_));
        break;
      case kTrue:
        list.SetValue(key, true);
        break;
      case kFalse:
        list.SetValue(key, false);
        break;
      case kUInt16:
        list.SetValue(key, Number<std::uint16_t>(Narrow(valueText_)));
        break;
      case kUInt32:
        list.SetValue(key, Number<std::uint32_t>(Narrow(valueText_)));
        break;
      case kInt32:
        list.SetValue(key, Number<std::int32_t>(Narrow(valueText_)));
        break;
      case kFloat:
        list.SetValue(key, Number<float>(Narrow(valueText_)));
        break;
      case kDouble:
        list.SetValue(key, Number<double>(Narrow(valueText_)));
        break;
      case kUInt64:
        list.SetValue(key, Number<std::uint64_t>(Narrow(valueText_)));
        break;
      case kInt64:
        list.SetValue(key, Number<std::int64_t>(Narrow(valueText_)));
        break;
      default:
        break;
    }
  }
  valueText_.clear();
  keyText_.clear();
}

void PropListXMLHandler::StoreArray() {
  if (current_) {
    UTF8String key = Narrow(keyText_);
    PropList& list = *current_;
    int kind;
    if (arrayItemCount_ == 0) {
      kind = arrayTypeKnown_ ? arrayTypeKind_ : kNone;
    } else {
      kind = valueKind_;
    }
    auto fill = [&]<typename T>(PropList::List<T>&& values) {
      for (std::size_t i = 0; i < arrayItemCount_; ++i) {
        const UTF16String& item = arrayItems_[i];
        if constexpr (std::is_same_v<T, UTF16String>) {
          values.push_back(item);
        } else if constexpr (std::is_same_v<T, UTF8String>) {
          values.push_back(Narrow(item));
        } else if constexpr (std::is_same_v<T, bool>) {
          values.push_back(Is(item, u"true"));
        } else {
          values.push_back(Number<T>(Narrow(item)));
        }
      }
      list.SetValue(key, values);
    };
    switch (kind) {
      case kUString:
        fill(PropList::List<UTF16String>());
        break;
      case kString:
        fill(PropList::List<UTF8String>());
        break;
      case kTrue:
      case kFalse:
        fill(PropList::List<bool>());
        break;
      case kUInt16:
        fill(PropList::List<std::uint16_t>());
        break;
      case kUInt32:
        fill(PropList::List<std::uint32_t>());
        break;
      case kInt32:
        fill(PropList::List<std::int32_t>());
        break;
      case kFloat:
        fill(PropList::List<float>());
        break;
      case kDouble:
        fill(PropList::List<double>());
        break;
      case kUInt64:
        fill(PropList::List<std::uint64_t>());
        break;
      case kInt64:
        fill(PropList::List<std::int64_t>());
        break;
      default:
        break;  // an empty array of unknown type: the key is lost
    }
  }
  keyText_.clear();
  valueText_.clear();
  arrayItemCount_ = 0;
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
  std::unique_ptr<xml::AbstractParseHandler> handler = std::make_unique<PropListXMLHandler>(&list);
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
