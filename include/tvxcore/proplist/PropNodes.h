// tvxcore/proplist/PropNodes.h: the value nodes held by a PropList.
//
// One node holds one value under one key: a string, a bool, one number, a
// sub-list, or an array of scalar nodes. Each node writes its own XML text.
// Keys and strings are written so that the library's reader gives them back
// unit for unit: besides the five reserved characters, a carriage return is
// written "&#13;", and what XML 1.0 cannot carry at all (U+0000 to U+0008,
// U+000B, U+000C, U+000E to U+001F, U+FFFE, U+FFFF, a lone surrogate, the
// escape character U+E01B itself, and in UTF-8 text a byte that starts no
// valid sequence) is written as U+E01B followed by four hexadecimal digits.
// Most code reaches nodes only through PropList's typed getters and setters.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "tvxcore/Export.h"
#include "tvxcore/proplist/PropList.h"
#include "tvxcore/utility/SmallBlockAllocator.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::proplist {

// The abstract value node. Nodes live in small-block memory, are owned by the
// list (or the array node) that holds them, and have no lock.
class TVXCORE_EXPORT PropNodeBase : public utility::SmallBlockAllocator::Allocated<PropNodeBase> {
 public:
  virtual ~PropNodeBase();
  // Appends the node's XML text (the empty text for a null sub-list).
  virtual void WriteXML(UTF8String& out) const = 0;
  virtual PropListPropertyType GetType() const = 0;
  // A deep copy, sub-lists included.
  virtual std::unique_ptr<PropNodeBase> Clone() const = 0;

 protected:
  PropNodeBase() = default;
  PropNodeBase(const PropNodeBase&) = default;
  PropNodeBase& operator=(const PropNodeBase&) = default;
};

// A UTF-16 string value.
class TVXCORE_EXPORT UnicodeStringPropNode final : public PropNodeBase {
 public:
  using ValueType = UTF16String;
  static constexpr PropListPropertyType kType = kPropListType_UnicodeString;
  static constexpr PropListPropertyType kArrayType = kPropListType_UnicodeStringArray;

  explicit UnicodeStringPropNode(const UTF16String& value) : value_(value) {}
  void WriteXML(UTF8String& out) const override;
  PropListPropertyType GetType() const override { return kType; }
  std::unique_ptr<PropNodeBase> Clone() const override;
  // The empty form used in an array's type element.
  static void WriteTypeXML(UTF8String& out);

  const UTF16String& Value() const { return value_; }
  void SetValue(const UTF16String& value) { value_ = value; }

 private:
  UTF16String value_;
};

// A UTF-8 string value.
class TVXCORE_EXPORT StringPropNode final : public PropNodeBase {
 public:
  using ValueType = UTF8String;
  static constexpr PropListPropertyType kType = kPropListType_String;
  static constexpr PropListPropertyType kArrayType = kPropListType_StringArray;

  explicit StringPropNode(const UTF8String& value) : value_(value) {}
  void WriteXML(UTF8String& out) const override;
  PropListPropertyType GetType() const override { return kType; }
  std::unique_ptr<PropNodeBase> Clone() const override;
  static void WriteTypeXML(UTF8String& out);

  const UTF8String& Value() const { return value_; }
  void SetValue(const UTF8String& value) { value_ = value; }

 private:
  UTF8String value_;
};

// A bool value.
class TVXCORE_EXPORT BoolPropNode final : public PropNodeBase {
 public:
  using ValueType = bool;
  static constexpr PropListPropertyType kType = kPropListType_Bool;
  static constexpr PropListPropertyType kArrayType = kPropListType_BoolArray;

  explicit BoolPropNode(bool value) : value_(value) {}
  void WriteXML(UTF8String& out) const override;
  PropListPropertyType GetType() const override { return kType; }
  std::unique_ptr<PropNodeBase> Clone() const override;
  static void WriteTypeXML(UTF8String& out);

  bool Value() const { return value_; }
  void SetValue(bool value) { value_ = value; }

 private:
  bool value_;
};

template <typename T>
struct SimpleNodeTraits;
template <>
struct SimpleNodeTraits<std::uint16_t> {
  static constexpr PropListPropertyType kType = kPropListType_UInt16;
};
template <>
struct SimpleNodeTraits<std::uint32_t> {
  static constexpr PropListPropertyType kType = kPropListType_UInt32;
};
template <>
struct SimpleNodeTraits<std::int32_t> {
  static constexpr PropListPropertyType kType = kPropListType_Int32;
};
template <>
struct SimpleNodeTraits<long long> {
  static constexpr PropListPropertyType kType = kPropListType_Int64;
};
template <>
struct SimpleNodeTraits<unsigned long long> {
  static constexpr PropListPropertyType kType = kPropListType_UInt64;
};
template <>
struct SimpleNodeTraits<float> {
  static constexpr PropListPropertyType kType = kPropListType_Float;
};
template <>
struct SimpleNodeTraits<double> {
  static constexpr PropListPropertyType kType = kPropListType_Double;
};

// One number. In spite of the name the node holds a single scalar; arrays are
// PropListArrayNode. Instantiated for the seven number types of PropList.
template <typename T>
class TVXCORE_EXPORT SimpleTypeArrayNode final : public PropNodeBase {
 public:
  using ValueType = T;
  static constexpr PropListPropertyType kType = SimpleNodeTraits<T>::kType;
  static constexpr PropListPropertyType kArrayType =
      static_cast<PropListPropertyType>(SimpleNodeTraits<T>::kType + 11);

  explicit SimpleTypeArrayNode(T value) : value_(value) {}
  void WriteXML(UTF8String& out) const override;
  PropListPropertyType GetType() const override { return kType; }
  std::unique_ptr<PropNodeBase> Clone() const override;
  static void WriteTypeXML(UTF8String& out);

  T Value() const { return value_; }
  void SetValue(T value) { value_ = value; }

 private:
  T value_;
};

extern template class SimpleTypeArrayNode<std::uint16_t>;
extern template class SimpleTypeArrayNode<std::uint32_t>;
extern template class SimpleTypeArrayNode<std::int32_t>;
extern template class SimpleTypeArrayNode<long long>;
extern template class SimpleTypeArrayNode<unsigned long long>;
extern template class SimpleTypeArrayNode<float>;
extern template class SimpleTypeArrayNode<double>;

// A nested list; owns it. The list may be null, which writes nothing.
// Copying, writing and destroying a node walk its tree with an explicit work
// list, never by recursion, so a tree of any depth costs constant stack.
class TVXCORE_EXPORT PropListNode final : public PropNodeBase {
 public:
  static constexpr PropListPropertyType kType = kPropListType_PropList;

  explicit PropListNode(std::unique_ptr<PropList> list) : list_(std::move(list)) {}
  ~PropListNode() override;
  void WriteXML(UTF8String& out) const override;
  PropListPropertyType GetType() const override { return kType; }
  std::unique_ptr<PropNodeBase> Clone() const override;

  PropList* List() const { return list_.get(); }

 private:
  friend class PropList;
  std::unique_ptr<PropList> list_;
};

// An array: an ordered run of scalar nodes of one type `Element` (one of the
// node classes above other than PropListNode), owned by the array. An empty
// array keeps its type.
template <typename Element>
class TVXCORE_EXPORT PropListArrayNode final : public PropNodeBase {
 public:
  using Elements = std::vector<Element, utility::SmallBlockAllocator::STLAllocator<Element>>;
  static constexpr PropListPropertyType kType = Element::kArrayType;

  PropListArrayNode() = default;
  explicit PropListArrayNode(Elements elements) : elements_(std::move(elements)) {}
  void WriteXML(UTF8String& out) const override;
  PropListPropertyType GetType() const override { return kType; }
  std::unique_ptr<PropNodeBase> Clone() const override;

  const Elements& GetElements() const { return elements_; }
  Elements& GetElements() { return elements_; }

 private:
  Elements elements_;
};

extern template class PropListArrayNode<UnicodeStringPropNode>;
extern template class PropListArrayNode<StringPropNode>;
extern template class PropListArrayNode<BoolPropNode>;
extern template class PropListArrayNode<SimpleTypeArrayNode<std::uint16_t>>;
extern template class PropListArrayNode<SimpleTypeArrayNode<std::uint32_t>>;
extern template class PropListArrayNode<SimpleTypeArrayNode<std::int32_t>>;
extern template class PropListArrayNode<SimpleTypeArrayNode<long long>>;
extern template class PropListArrayNode<SimpleTypeArrayNode<unsigned long long>>;
extern template class PropListArrayNode<SimpleTypeArrayNode<float>>;
extern template class PropListArrayNode<SimpleTypeArrayNode<double>>;

}  // namespace tvxcore::proplist
