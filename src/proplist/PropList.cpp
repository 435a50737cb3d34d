#include "tvxcore/proplist/PropList.h"

#include <iterator>
#include <map>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "proplist/internal/Bridge.h"
#include "proplist/internal/Numbers.h"
#include "proplist/internal/TextEscape.h"
#include "tvxcore/proplist/PropNodes.h"

namespace tvxcore::proplist {
namespace {

using KeyView = std::basic_string_view<UTF8Char>;

// A key ends at its first zero byte.
KeyView KeyText(const UTF8String& key) {
  std::size_t end = key.find(UTF8Char{0});
  return KeyView(key.data(), end == UTF8String::npos ? key.size() : end);
}

// The first entry whose key is not less than `text`. Keys mostly arrive in
// ascending order (a list read back from its own text), so the last entry is
// tried before the search.
template <typename Map>
typename Map::iterator Slot(Map& map, KeyView text) {
  if (map.empty()) return map.end();
  auto last = std::prev(map.end());
  int order = KeyView(last->first).compare(text);
  if (order < 0) return map.end();
  if (order == 0) return last;
  return map.lower_bound(text);
}

template <std::size_t N>
void Append(UTF8String& out, const char (&text)[N]) {
  out.append(reinterpret_cast<const UTF8Char*>(text), N - 1);
}

using U16Node = SimpleTypeArrayNode<std::uint16_t>;
using U32Node = SimpleTypeArrayNode<std::uint32_t>;
using I32Node = SimpleTypeArrayNode<std::int32_t>;
using I64Node = SimpleTypeArrayNode<long long>;
using U64Node = SimpleTypeArrayNode<unsigned long long>;
using FloatNode = SimpleTypeArrayNode<float>;
using DoubleNode = SimpleTypeArrayNode<double>;

}  // namespace

void PropList::NodeDeleter::operator()(PropNodeBase* node) const { delete node; }

PropList::PropList() : version_(GetCurrentVersion()) {}

PropList::PropList(const PropList& other) : version_(other.version_) {
  // Depth first with an explicit work list of (source, copy) pairs: a tree
  // nested 100,000 deep copies in constant stack.
  std::vector<std::pair<const PropList*, PropList*>> work{{&other, this}};
  while (!work.empty()) {
    const auto [from, to] = work.back();
    work.pop_back();
    for (const auto& [key, node] : from->map_) {
      const PropList* sub = node->GetType() == kPropListType_PropList
                                ? static_cast<const PropListNode*>(node.get())->List()
                                : nullptr;
      if (!sub) {
        to->map_.emplace_hint(to->map_.end(), key, NodePtr(node->Clone().release()));
        continue;
      }
      auto copy = std::make_unique<PropList>();
      copy->version_ = sub->version_;
      PropList* target = copy.get();
      to->map_.emplace_hint(to->map_.end(), key, NodePtr(new PropListNode(std::move(copy))));
      work.emplace_back(sub, target);
    }
  }
}

PropList::PropList(PropList&& other) noexcept
    : map_(std::move(other.map_)), version_(other.version_) {}

PropList& PropList::operator=(PropList other) noexcept {
  map_.swap(other.map_);
  version_ = other.version_;
  return *this;
}

PropList::~PropList() = default;

void PropList::DestroyTree(std::unique_ptr<PropList> root) {
  // The entries of every list below `root` are moved, as they are, into one
  // pending multimap (moving a map node allocates nothing and keys may
  // repeat there), and each list is destroyed once it is empty. An entry is
  // destroyed only after its own sub-list has been emptied the same way, so
  // no destructor ever reaches more than one level down: constant stack and
  // no allocation, whatever the depth.
  using Pending = std::multimap<UTF8String, NodePtr, KeyLess, Map::allocator_type>;
  static_assert(std::is_same_v<Pending::node_type, Map::node_type>);
  if (!root) return;
  Pending pending;
  auto drain = [&pending](PropList& list) {
    while (!list.map_.empty()) pending.insert(pending.end(), list.map_.extract(list.map_.begin()));
  };
  drain(*root);
  root.reset();
  while (!pending.empty()) {
    Pending::node_type entry = pending.extract(pending.begin());
    PropNodeBase* node = entry.mapped().get();
    if (node->GetType() == kPropListType_PropList) {
      auto* listNode = static_cast<PropListNode*>(node);
      if (listNode->list_) {
        drain(*listNode->list_);
        listNode->list_.reset();
      }
    }
  }
}

const PropNodeBase* PropList::Find(Key key) const {
  auto it = map_.find(KeyText(key));
  return it == map_.end() ? nullptr : it->second.get();
}

void PropList::Store(Key key, NodePtr node) {
  KeyView text = KeyText(key);
  auto it = Slot(map_, text);
  if (it != map_.end() && KeyView(it->first) == text) {
    it->second = std::move(node);
  } else {
    map_.emplace_hint(it, UTF8String(text), std::move(node));
  }
}

template <typename Node, typename X>
bool PropList::GetScalar(Key key, X& out) const {
  const PropNodeBase* node = Find(key);
  if (!node || node->GetType() != Node::kType) return false;
  out = static_cast<const Node*>(node)->Value();
  return true;
}

template <typename Node, typename X>
void PropList::SetScalar(Key key, const X& value) {
  KeyView text = KeyText(key);
  auto it = Slot(map_, text);
  if (it != map_.end() && KeyView(it->first) == text) {
    if (it->second->GetType() == Node::kType) {
      static_cast<Node*>(it->second.get())->SetValue(value);
    } else {
      it->second.reset(new Node(value));
    }
    return;
  }
  map_.emplace_hint(it, UTF8String(text), NodePtr(new Node(value)));
}

template <typename ArrayNode, typename X>
bool PropList::GetArray(Key key, List<X>& out) const {
  const PropNodeBase* node = Find(key);
  if (!node || node->GetType() != ArrayNode::kType) return false;
  for (const auto& element : static_cast<const ArrayNode*>(node)->GetElements()) {
    out.push_back(element.Value());
  }
  return true;
}

template <typename ArrayNode, typename X>
void PropList::SetArray(Key key, const List<X>& value) {
  typename ArrayNode::Elements elements;
  elements.reserve(value.size());
  for (const X& item : value) elements.emplace_back(item);
  Store(key, NodePtr(new ArrayNode(std::move(elements))));
}

bool PropList::GetValue(Key key, List<double>& out) const {
  return GetArray<PropListArrayNode<DoubleNode>>(key, out);
}
bool PropList::GetValue(Key key, double& out) const {
  const PropNodeBase* node = Find(key);
  if (!node) return false;
  if (node->GetType() == kPropListType_Double) {
    out = static_cast<const DoubleNode*>(node)->Value();
    return true;
  }
  // Version-1 lists stored some doubles as text; they still read as numbers.
  if (version_ == 1 && node->GetType() == kPropListType_UnicodeString) {
    UTF8String text = internal::ToUTF8(static_cast<const UnicodeStringPropNode*>(node)->Value());
    internal::ReadNumber(text.data(), text.size(), out);
    return true;
  }
  return false;
}
bool PropList::GetValue(Key key, List<float>& out) const {
  return GetArray<PropListArrayNode<FloatNode>>(key, out);
}
bool PropList::GetValue(Key key, float& out) const { return GetScalar<FloatNode>(key, out); }
bool PropList::GetValue(Key key, List<unsigned long long>& out) const {
  return GetArray<PropListArrayNode<U64Node>>(key, out);
}
bool PropList::GetValue(Key key, unsigned long long& out) const {
  return GetScalar<U64Node>(key, out);
}
bool PropList::GetValue(Key key, List<long long>& out) const {
  return GetArray<PropListArrayNode<I64Node>>(key, out);
}
bool PropList::GetValue(Key key, long long& out) const { return GetScalar<I64Node>(key, out); }
bool PropList::GetValue(Key key, List<std::int32_t>& out) const {
  return GetArray<PropListArrayNode<I32Node>>(key, out);
}
bool PropList::GetValue(Key key, std::int32_t& out) const { return GetScalar<I32Node>(key, out); }
bool PropList::GetValue(Key key, List<std::uint32_t>& out) const {
  return GetArray<PropListArrayNode<U32Node>>(key, out);
}
bool PropList::GetValue(Key key, std::uint32_t& out) const { return GetScalar<U32Node>(key, out); }
bool PropList::GetValue(Key key, List<std::uint16_t>& out) const {
  return GetArray<PropListArrayNode<U16Node>>(key, out);
}
bool PropList::GetValue(Key key, std::uint16_t& out) const { return GetScalar<U16Node>(key, out); }
bool PropList::GetValue(Key key, List<bool>& out) const {
  return GetArray<PropListArrayNode<BoolPropNode>>(key, out);
}
bool PropList::GetValue(Key key, bool& out) const { return GetScalar<BoolPropNode>(key, out); }
bool PropList::GetValue(Key key, List<UTF8String>& out) const {
  return GetArray<PropListArrayNode<StringPropNode>>(key, out);
}
bool PropList::GetValue(Key key, UTF8String& out) const {
  return GetScalar<StringPropNode>(key, out);
}
bool PropList::GetValue(Key key, List<UTF16String>& out) const {
  return GetArray<PropListArrayNode<UnicodeStringPropNode>>(key, out);
}
bool PropList::GetValue(Key key, UTF16String& out) const {
  return GetScalar<UnicodeStringPropNode>(key, out);
}

void PropList::SetValue(Key key, const List<double>& value) {
  SetArray<PropListArrayNode<DoubleNode>>(key, value);
}
void PropList::SetValue(Key key, const double& value) { SetScalar<DoubleNode>(key, value); }
void PropList::SetValue(Key key, const List<float>& value) {
  SetArray<PropListArrayNode<FloatNode>>(key, value);
}
void PropList::SetValue(Key key, const float& value) { SetScalar<FloatNode>(key, value); }
void PropList::SetValue(Key key, const List<unsigned long long>& value) {
  SetArray<PropListArrayNode<U64Node>>(key, value);
}
void PropList::SetValue(Key key, const unsigned long long& value) {
  SetScalar<U64Node>(key, value);
}
void PropList::SetValue(Key key, const List<long long>& value) {
  SetArray<PropListArrayNode<I64Node>>(key, value);
}
void PropList::SetValue(Key key, const long long& value) { SetScalar<I64Node>(key, value); }
void PropList::SetValue(Key key, const List<std::int32_t>& value) {
  SetArray<PropListArrayNode<I32Node>>(key, value);
}
void PropList::SetValue(Key key, const std::int32_t& value) { SetScalar<I32Node>(key, value); }
void PropList::SetValue(Key key, const List<std::uint32_t>& value) {
  SetArray<PropListArrayNode<U32Node>>(key, value);
}
void PropList::SetValue(Key key, const std::uint32_t& value) { SetScalar<U32Node>(key, value); }
void PropList::SetValue(Key key, const List<std::uint16_t>& value) {
  SetArray<PropListArrayNode<U16Node>>(key, value);
}
void PropList::SetValue(Key key, const std::uint16_t& value) { SetScalar<U16Node>(key, value); }
void PropList::SetValue(Key key, const List<bool>& value) {
  SetArray<PropListArrayNode<BoolPropNode>>(key, value);
}
void PropList::SetValue(Key key, const bool& value) { SetScalar<BoolPropNode>(key, value); }
void PropList::SetValue(Key key, const List<UTF8String>& value) {
  SetArray<PropListArrayNode<StringPropNode>>(key, value);
}
void PropList::SetValue(Key key, const UTF8String& value) { SetScalar<StringPropNode>(key, value); }
void PropList::SetValue(Key key, const List<UTF16String>& value) {
  SetArray<PropListArrayNode<UnicodeStringPropNode>>(key, value);
}
void PropList::SetValue(Key key, const UTF16String& value) {
  SetScalar<UnicodeStringPropNode>(key, value);
}

PropList* PropList::GetSubList(Key key) const {
  const PropNodeBase* node = Find(key);
  if (!node || node->GetType() != kPropListType_PropList) return nullptr;
  return static_cast<const PropListNode*>(node)->List();
}

PropList* PropList::GetSubList(const UTF8Char* key) const {
  if (!key) return nullptr;
  return GetSubList(UTF8String(key));
}

PropList* PropList::NewSubList(Key key) {
  if (PropList* existing = GetSubList(key)) return existing;
  auto list = std::make_unique<PropList>();
  PropList* result = list.get();
  Store(key, NodePtr(new PropListNode(std::move(list))));
  return result;
}

void PropList::Clear() { map_.clear(); }

void PropList::OutputAsXMLFragment(UTF8String& out) const {
  // Sub-lists are written in the same loop, with an explicit stack of the
  // lists being written and where each one stands, not by recursion. A
  // sub-list of a host's own class writes itself through its override.
  struct Level {
    const PropList* list;
    Map::const_iterator next;
  };
  std::vector<Level> stack{{this, map_.begin()}};
  Append(out, "<prop.list>\n");
  while (!stack.empty()) {
    Level& level = stack.back();
    if (level.next == level.list->map_.end()) {
      Append(out, "</prop.list>\n");
      stack.pop_back();
      if (!stack.empty()) Append(out, "</prop.pair>\n");
      continue;
    }
    const auto& [key, node] = *level.next++;
    Append(out, "<prop.pair>\n<key>");
    internal::AppendText(key.data(), key.size(), out);
    Append(out, "</key>\n");
    const PropList* sub = node->GetType() == kPropListType_PropList
                              ? static_cast<const PropListNode*>(node.get())->List()
                              : nullptr;
    if (sub && typeid(*sub) == typeid(PropList)) {
      Append(out, "<prop.list>\n");
      stack.push_back({sub, sub->map_.begin()});
      continue;
    }
    node->WriteXML(out);
    Append(out, "</prop.pair>\n");
  }
}

void PropList::GetPropertyNames(std::list<UTF8String>& outNames) const {
  outNames.clear();
  for (const auto& entry : map_) outNames.push_back(entry.first);
}

PropListPropertyType PropList::GetPropertyType(Key key) const {
  const PropNodeBase* node = Find(key);
  return node ? node->GetType() : kPropListType_None;
}

}  // namespace tvxcore::proplist
