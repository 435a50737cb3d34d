#include "tvxcore/proplist/PropNodes.h"

#include <cstring>

#include "proplist/internal/Numbers.h"
#include "proplist/internal/TextEscape.h"

namespace tvxcore::proplist {
namespace {

template <std::size_t N>
void Append(UTF8String& out, const char (&text)[N]) {
  out.append(reinterpret_cast<const UTF8Char*>(text), N - 1);
}

// The element names of the seven number types, each with its empty form.
template <typename T>
struct NumberTags;
template <>
struct NumberTags<std::uint16_t> {
  static constexpr const char kOpen[] = "<int type='unsigned' size='16'>";
  static constexpr const char kClose[] = "</int>\n";
  static constexpr const char kEmpty[] = "<int type='unsigned' size='16'/>";
};
template <>
struct NumberTags<std::uint32_t> {
  static constexpr const char kOpen[] = "<int type='unsigned' size='32'>";
  static constexpr const char kClose[] = "</int>\n";
  static constexpr const char kEmpty[] = "<int type='unsigned' size='32'/>";
};
template <>
struct NumberTags<std::int32_t> {
  static constexpr const char kOpen[] = "<int type='signed' size='32'>";
  static constexpr const char kClose[] = "</int>\n";
  static constexpr const char kEmpty[] = "<int type='signed' size='32'/>";
};
template <>
struct NumberTags<long long> {
  static constexpr const char kOpen[] = "<int type='signed' size='64'>";
  static constexpr const char kClose[] = "</int>\n";
  static constexpr const char kEmpty[] = "<int type='signed' size='64'/>";
};
template <>
struct NumberTags<unsigned long long> {
  static constexpr const char kOpen[] = "<int type='unsigned' size='64'>";
  static constexpr const char kClose[] = "</int>\n";
  static constexpr const char kEmpty[] = "<int type='unsigned' size='64'/>";
};
template <>
struct NumberTags<float> {
  static constexpr const char kOpen[] = "<float>";
  static constexpr const char kClose[] = "</float>\n";
  static constexpr const char kEmpty[] = "<float/>";
};
template <>
struct NumberTags<double> {
  static constexpr const char kOpen[] = "<double>";
  static constexpr const char kClose[] = "</double>\n";
  static constexpr const char kEmpty[] = "<double/>";
};

}  // namespace

PropNodeBase::~PropNodeBase() = default;

void UnicodeStringPropNode::WriteXML(UTF8String& out) const {
  Append(out, "<ustring>");
  // Reserved characters encoded, then UTF-8; units XML cannot carry (lone
  // surrogates, most control characters) are escaped so that they read back.
  internal::AppendText(value_.data(), value_.size(), out);
  Append(out, "</ustring>\n");
}
std::unique_ptr<PropNodeBase> UnicodeStringPropNode::Clone() const {
  return std::make_unique<UnicodeStringPropNode>(*this);
}
void UnicodeStringPropNode::WriteTypeXML(UTF8String& out) { Append(out, "<ustring/>"); }

void StringPropNode::WriteXML(UTF8String& out) const {
  Append(out, "<string>");
  internal::AppendText(value_.data(), value_.size(), out);
  Append(out, "</string>\n");
}
std::unique_ptr<PropNodeBase> StringPropNode::Clone() const {
  return std::make_unique<StringPropNode>(*this);
}
void StringPropNode::WriteTypeXML(UTF8String& out) { Append(out, "<string/>"); }

void BoolPropNode::WriteXML(UTF8String& out) const {
  if (value_) {
    Append(out, "<true/>\n");
  } else {
    Append(out, "<false/>\n");
  }
}
std::unique_ptr<PropNodeBase> BoolPropNode::Clone() const {
  return std::make_unique<BoolPropNode>(*this);
}
void BoolPropNode::WriteTypeXML(UTF8String& out) { Append(out, "<bool/>"); }

template <typename T>
void SimpleTypeArrayNode<T>::WriteXML(UTF8String& out) const {
  Append(out, NumberTags<T>::kOpen);
  internal::AppendNumber(out, value_);
  Append(out, NumberTags<T>::kClose);
}
template <typename T>
std::unique_ptr<PropNodeBase> SimpleTypeArrayNode<T>::Clone() const {
  return std::make_unique<SimpleTypeArrayNode<T>>(*this);
}
template <typename T>
void SimpleTypeArrayNode<T>::WriteTypeXML(UTF8String& out) {
  Append(out, NumberTags<T>::kEmpty);
}

template class SimpleTypeArrayNode<std::uint16_t>;
template class SimpleTypeArrayNode<std::uint32_t>;
template class SimpleTypeArrayNode<std::int32_t>;
template class SimpleTypeArrayNode<long long>;
template class SimpleTypeArrayNode<unsigned long long>;
template class SimpleTypeArrayNode<float>;
template class SimpleTypeArrayNode<double>;

PropListNode::~PropListNode() { PropList::DestroyTree(std::move(list_)); }

void PropListNode::WriteXML(UTF8String& out) const {
  if (list_) list_->OutputAsXMLFragment(out);
}
std::unique_ptr<PropNodeBase> PropListNode::Clone() const {
  return std::make_unique<PropListNode>(list_ ? std::make_unique<PropList>(*list_) : nullptr);
}

template <typename Element>
void PropListArrayNode<Element>::WriteXML(UTF8String& out) const {
  Append(out, "<array>\n<array.type>");
  Element::WriteTypeXML(out);
  Append(out, "</array.type>\n");
  for (const Element& element : elements_) element.WriteXML(out);
  Append(out, "</array>\n");
}
template <typename Element>
std::unique_ptr<PropNodeBase> PropListArrayNode<Element>::Clone() const {
  return std::make_unique<PropListArrayNode<Element>>(*this);
}

template class PropListArrayNode<UnicodeStringPropNode>;
template class PropListArrayNode<StringPropNode>;
template class PropListArrayNode<BoolPropNode>;
template class PropListArrayNode<SimpleTypeArrayNode<std::uint16_t>>;
template class PropListArrayNode<SimpleTypeArrayNode<std::uint32_t>>;
template class PropListArrayNode<SimpleTypeArrayNode<std::int32_t>>;
template class PropListArrayNode<SimpleTypeArrayNode<long long>>;
template class PropListArrayNode<SimpleTypeArrayNode<unsigned long long>>;
template class PropListArrayNode<SimpleTypeArrayNode<float>>;
template class PropListArrayNode<SimpleTypeArrayNode<double>>;

}  // namespace tvxcore::proplist
