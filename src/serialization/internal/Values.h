// How the JSON layer makes its values. Each value is one allocation holding
// the shared count and the boost::any itself (as boost::make_shared would lay
// them out), with a deleter that lets releasing recurse a few dozen levels
// and below that hands a dying value's containers to a per-thread work list,
// so that releasing a tree of any depth takes a bounded stack.
#pragma once

#include <typeinfo>
#include <utility>

#include "tvxcore/serialization/JSON.h"

namespace tvxcore::serialization::internal {

// Whether two types are the same, answering the usual "no" (a scalar against
// a container) by the first letter of their names before std::type_info's
// full comparison of the names.
inline bool SameType(const std::type_info& a, const std::type_info& b) noexcept {
  const char* x = a.name();
  const char* y = b.name();
  return x == y || (x[0] == y[0] && a == b);
}

// A new value holding `value`, moved in.
JSONValue NewValue(boost::any&& value);

// A new value holding a default-made T, and where the T lives, so that the
// caller can fill it in place.
template <typename T>
JSONValue NewValueOf(T*& where) {
  JSONValue value = NewValue(boost::any(T()));
  where = boost::unsafe_any_cast<T>(value.get());
  return value;
}

}  // namespace tvxcore::serialization::internal
