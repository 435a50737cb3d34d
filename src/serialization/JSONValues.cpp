// The JSON value model: how values are made and released, and the calls
// that build and query trees.
#include <memory>
#include <new>
#include <typeinfo>
#include <vector>

#include "serialization/internal/Values.h"
#include "tvxcore/serialization/JSON.h"

namespace tvxcore::serialization {

const NullType G_NullType{};

JSONParseError::JSONParseError(const char* text, std::size_t offset)
    : std::runtime_error(text), offset_(offset) {}

const char* JSONBadCast::what() const noexcept { return "bad cast"; }

namespace internal {
namespace {

// Releasing a tree recurses through the destructors of boost::any, the
// containers and the shared pointers, one level at a time, up to this depth;
// below it the containers among a dying value's children wait on a work list
// that the outermost release of the thread empties. So ordinary trees go
// away at the speed of plain recursion, and no tree takes more stack than
// this many levels.
constexpr int kRecursionLimit = 48;

// How deep this thread is in releasing values, and the work list of the
// outermost release.
__attribute__((tls_model("initial-exec"))) thread_local int t_depth = 0;
__attribute__((tls_model("initial-exec"))) thread_local std::vector<JSONValue>* t_pending = nullptr;

bool IsContainer(const JSONValue& value) noexcept {
  if (!value) return false;
  const std::type_info& type = value->type();
  return SameType(type, typeid(JSONArray)) || SameType(type, typeid(JSONObject));
}

// Moves the children of `value` that are containers into `pending`. Under
// memory exhaustion a child that can't be moved stays and is released with
// its parent, by recursion.
void Detach(boost::any& value, std::vector<JSONValue>& pending) noexcept {
  auto take = [&pending](JSONValue& child) noexcept {
    if (!IsContainer(child)) return true;
    try {
      pending.push_back(std::move(child));
    } catch (...) {
      return false;
    }
    return true;
  };
  if (auto* array = boost::any_cast<JSONArray>(&value)) {
    for (JSONValue& child : *array)
      if (!take(child)) return;
  } else if (auto* object = boost::any_cast<JSONObject>(&value)) {
    for (auto& member : *object)
      if (!take(member.second)) return;
  }
}

// Destroys a value's boost::any, releasing its children.
void Destroy(boost::any& value) noexcept {
  if (t_depth == 0) {
    std::vector<JSONValue> pending;
    t_pending = &pending;
    t_depth = 1;
    value.~any();
    while (!pending.empty()) {
      JSONValue child = std::move(pending.back());
      pending.pop_back();
      child.reset();
    }
    t_pending = nullptr;
    t_depth = 0;
  } else if (t_depth < kRecursionLimit) {
    ++t_depth;
    value.~any();
    --t_depth;
  } else {
    Detach(value, *t_pending);
    value.~any();
  }
}

// The deleter of every value, which also holds the value: the shared count's
// one allocation carries both. A copy is made only before a value is placed.
class ValueCell {
 public:
  ValueCell() noexcept = default;
  ValueCell(const ValueCell&) noexcept {}
  ValueCell& operator=(const ValueCell&) = delete;

  boost::any* Place(boost::any&& value) noexcept {
    boost::any* held = ::new (static_cast<void*>(storage_)) boost::any(std::move(value));
    placed_ = true;
    return held;
  }

  void operator()(boost::any*) noexcept {
    if (!placed_) return;
    placed_ = false;
    Destroy(*std::launder(reinterpret_cast<boost::any*>(storage_)));
  }

 private:
  alignas(boost::any) unsigned char storage_[sizeof(boost::any)];
  bool placed_ = false;
};

}  // namespace

// The cell comes from the C heap, like the holder boost::any allocates: a
// tree is made and released in bursts of small blocks of one size, which the
// C heap's per-thread caches serve several times faster.
JSONValue NewValue(boost::any&& value) {
  JSONValue owner(static_cast<boost::any*>(nullptr), ValueCell(), std::allocator<char>());
  boost::any* held = boost::get_deleter<ValueCell>(owner)->Place(std::move(value));
  return JSONValue(std::move(owner), held);
}

}  // namespace internal

namespace {

UTF8String Key(const char* key) {
  return key ? UTF8String(key, key + std::char_traits<char>::length(key)) : UTF8String();
}

const JSONObject& ObjectOf(const JSONValue& value) {
  const JSONObject* object = value ? boost::any_cast<JSONObject>(value.get()) : nullptr;
  if (object == nullptr) throw JSONBadCast();
  return *object;
}

}  // namespace

JSONValue MakeJSONValue(boost::any value) { return internal::NewValue(std::move(value)); }

JSONValue BuildCallWithParams(const char* method, JSONArray params) {
  JSONObject call;
  call.emplace(UTF8String(reinterpret_cast<const UTF8Char*>("method")),
               internal::NewValue(boost::any(Key(method))));
  call.emplace(UTF8String(reinterpret_cast<const UTF8Char*>("params")),
               internal::NewValue(boost::any(std::move(params))));
  return internal::NewValue(boost::any(std::move(call)));
}

void AddToObject(boost::any& object, const UTF8String& key, const JSONValue& value) {
  JSONObject* map = boost::any_cast<JSONObject>(&object);
  if (map == nullptr) throw JSONBadCast();
  map->insert_or_assign(key, value);
}

void AddToObject(boost::any& object, const UTF8String& key, const boost::any& value) {
  if (boost::any_cast<JSONObject>(&object) == nullptr) throw JSONBadCast();
  AddToObject(object, key, internal::NewValue(boost::any(value)));
}

void AppendToArray(boost::any& array, const JSONValue& value) {
  JSONArray* items = boost::any_cast<JSONArray>(&array);
  if (items == nullptr) throw JSONBadCast();
  items->push_back(value);
}

void AppendToArray(boost::any& array, const boost::any& value) {
  if (boost::any_cast<JSONArray>(&array) == nullptr) throw JSONBadCast();
  AppendToArray(array, internal::NewValue(boost::any(value)));
}

JSONValue GetVariantInObject(const JSONObject& object, const char* key) {
  const auto it = object.find(Key(key));
  return it == object.end() ? JSONValue() : it->second;
}

JSONValue GetVariantInObject(const JSONValue& object, const char* key) {
  return GetVariantInObject(ObjectOf(object), key);
}

bool ObjectHasProperty(const JSONObject& object, const char* key) {
  return object.find(Key(key)) != object.end();
}

bool ObjectHasProperty(const JSONValue& object, const char* key) {
  return ObjectHasProperty(ObjectOf(object), key);
}

}  // namespace tvxcore::serialization
