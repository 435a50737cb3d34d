// tvxcore/proplist/PropList.h: the typed key-value tree of the library.
//
// A PropList maps 8-bit keys to typed values (scalars, arrays of scalars and
// nested lists). It is the in-memory form of every properties file; the XML text
// form is written by PropNodes.h/PropListXML.h and read by PropListXMLHandler.
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <string_view>

#include "tvxcore/Export.h"
#include "tvxcore/utility/SmallBlockAllocator.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::proplist {

class PropNodeBase;
class PropListXMLHandler;
namespace internal {
class PropListReader;
}

// The type of the value under a key. None is what a missing key reports.
enum PropListPropertyType : int {
  kPropListType_None = 0,
  kPropListType_UnicodeString = 1,
  kPropListType_String = 2,
  kPropListType_Bool = 3,
  kPropListType_UInt16 = 4,
  kPropListType_UInt32 = 5,
  kPropListType_Int32 = 6,
  kPropListType_Int64 = 7,
  kPropListType_UInt64 = 8,
  kPropListType_Float = 9,
  kPropListType_Double = 10,
  kPropListType_PropList = 11,
  kPropListType_UnicodeStringArray = 12,
  kPropListType_StringArray = 13,
  kPropListType_BoolArray = 14,
  kPropListType_UInt16Array = 15,
  kPropListType_UInt32Array = 16,
  kPropListType_Int32Array = 17,
  kPropListType_Int64Array = 18,
  kPropListType_UInt64Array = 19,
  kPropListType_FloatArray = 20,
  kPropListType_DoubleArray = 21,
};

// A map ordered by key (bytes compared as unsigned values) from a key to one
// owned value node.
//
// Typing is exact: a getter answers only for the type last set under the key,
// with no conversion between types (the one exception is the double getter on
// a version-1 list, kept for old data). A getter that does not answer returns
// false and leaves its target untouched; a list getter appends to its target.
// A setter replaces whatever the key held. Keys end at their first zero byte.
//
// The list owns its whole tree; a sub-list pointer stays valid until the parent
// drops that key or is destroyed. Copying is deep. All list operations are
// virtual so that a host may derive from it.
//
// Thread-safety: none. Several readers may share a list while nobody changes it.
class TVXCORE_EXPORT PropList {
 public:
  using Key = const UTF8String&;
  template <typename T>
  using List = std::list<T>;

  PropList();
  PropList(const PropList& other);
  PropList(PropList&& other) noexcept;
  PropList& operator=(PropList other) noexcept;
  virtual ~PropList();

  virtual bool GetValue(Key key, List<double>& outValue) const;
  virtual bool GetValue(Key key, double& outValue) const;
  virtual bool GetValue(Key key, List<float>& outValue) const;
  virtual bool GetValue(Key key, float& outValue) const;
  virtual bool GetValue(Key key, List<unsigned long long>& outValue) const;
  virtual bool GetValue(Key key, unsigned long long& outValue) const;
  virtual bool GetValue(Key key, List<long long>& outValue) const;
  virtual bool GetValue(Key key, long long& outValue) const;
  virtual bool GetValue(Key key, List<std::int32_t>& outValue) const;
  virtual bool GetValue(Key key, std::int32_t& outValue) const;
  virtual bool GetValue(Key key, List<std::uint32_t>& outValue) const;
  virtual bool GetValue(Key key, std::uint32_t& outValue) const;
  virtual bool GetValue(Key key, List<std::uint16_t>& outValue) const;
  virtual bool GetValue(Key key, std::uint16_t& outValue) const;
  virtual bool GetValue(Key key, List<bool>& outValue) const;
  virtual bool GetValue(Key key, bool& outValue) const;
  virtual bool GetValue(Key key, List<UTF8String>& outValue) const;
  virtual bool GetValue(Key key, UTF8String& outValue) const;
  virtual bool GetValue(Key key, List<UTF16String>& outValue) const;
  virtual bool GetValue(Key key, UTF16String& outValue) const;

  virtual void SetValue(Key key, const List<double>& value);
  virtual void SetValue(Key key, const double& value);
  virtual void SetValue(Key key, const List<float>& value);
  virtual void SetValue(Key key, const float& value);
  virtual void SetValue(Key key, const List<unsigned long long>& value);
  virtual void SetValue(Key key, const unsigned long long& value);
  virtual void SetValue(Key key, const List<long long>& value);
  virtual void SetValue(Key key, const long long& value);
  virtual void SetValue(Key key, const List<std::int32_t>& value);
  virtual void SetValue(Key key, const std::int32_t& value);
  virtual void SetValue(Key key, const List<std::uint32_t>& value);
  virtual void SetValue(Key key, const std::uint32_t& value);
  virtual void SetValue(Key key, const List<std::uint16_t>& value);
  virtual void SetValue(Key key, const std::uint16_t& value);
  virtual void SetValue(Key key, const List<bool>& value);
  virtual void SetValue(Key key, const bool& value);
  virtual void SetValue(Key key, const List<UTF8String>& value);
  virtual void SetValue(Key key, const UTF8String& value);
  virtual void SetValue(Key key, const List<UTF16String>& value);
  virtual void SetValue(Key key, const UTF16String& value);
  // `long` and `unsigned long` are refused at compile time. The stored types
  // are 32 bits (std::int32_t, std::uint32_t: "int" of size 32) or 64 bits
  // (long long, unsigned long long: size 64), and on this platform `long` is
  // 64 bits while code written for the format's other platforms means 32 by
  // it: a `long` would silently change the type a file holds. Pass
  // std::int32_t or long long instead. (std::int64_t is `long` here, so it is
  // refused too: write long long.)
  bool GetValue(Key key, List<long>& outValue) const = delete;
  bool GetValue(Key key, long& outValue) const = delete;
  bool GetValue(Key key, List<unsigned long>& outValue) const = delete;
  bool GetValue(Key key, unsigned long& outValue) const = delete;
  void SetValue(Key key, const List<long>& value) = delete;
  void SetValue(Key key, const long& value) = delete;
  void SetValue(Key key, const List<unsigned long>& value) = delete;
  void SetValue(Key key, const unsigned long& value) = delete;
  // A pointer would otherwise turn silently into a bool value.
  void SetValue(Key key, const char* value) = delete;
  void SetValue(Key key, const UTF8Char* value) = delete;
  void SetValue(Key key, const UTF16Char* value) = delete;

  // The list held under `key`, or null for a missing key or another type. The
  // result belongs to this list.
  virtual PropList* GetSubList(Key key) const;
  virtual PropList* GetSubList(const UTF8Char* key) const;
  // The existing sub-list of `key`, or a new empty one (version 4) that replaces
  // whatever the key held.
  virtual PropList* NewSubList(Key key);
  // Destroys every key and value; the version stays.
  virtual void Clear();
  // Appends the list's "<prop.list>" element to `out`.
  virtual void OutputAsXMLFragment(UTF8String& out) const;
  // Replaces the content of `outNames` with every key in map order.
  virtual void GetPropertyNames(std::list<UTF8String>& outNames) const;
  // The type under `key`; kPropListType_None for a missing key.
  virtual PropListPropertyType GetPropertyType(Key key) const;

  unsigned short GetVersion() const { return version_; }
  static unsigned short GetCurrentVersion() { return 4; }
  bool IsEmpty() const { return map_.empty(); }

 private:
  friend class PropListXMLHandler;
  friend class PropListNode;
  friend class internal::PropListReader;

  using KeyView = std::basic_string_view<UTF8Char>;
  struct KeyLess {
    using is_transparent = void;
    bool operator()(KeyView a, KeyView b) const { return a < b; }
  };
  struct NodeDeleter {
    void operator()(PropNodeBase* node) const;
  };
  using NodePtr = std::unique_ptr<PropNodeBase, NodeDeleter>;
  using Map = utility::SmallBlockAllocator::map<UTF8String, NodePtr, KeyLess>;

  // Destroys a tree of any depth in constant stack (PropListNode's destructor).
  static void DestroyTree(std::unique_ptr<PropList> root);
  const PropNodeBase* Find(Key key) const;
  void Store(Key key, NodePtr node);
  template <typename Node, typename X>
  bool GetScalar(Key key, X& out) const;
  template <typename Node, typename X>
  void SetScalar(Key key, const X& value);
  template <typename ArrayNode, typename X>
  bool GetArray(Key key, List<X>& out) const;
  template <typename ArrayNode, typename X>
  void SetArray(Key key, const List<X>& value);

  Map map_;
  unsigned short version_;
};

}  // namespace tvxcore::proplist
