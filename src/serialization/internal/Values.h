// How the JSON layer makes its values. Each value is one allocation from the
// small-block allocator holding the shared count and the boost::any itself
// (as boost::make_shared would lay them out), with a deleter that hands the
// containers among a dying value's children to a per-thread work list, so
// that releasing a tree of any depth never recurses once per level.
#pragma once

#include <utility>

#include "tvxcore/serialization/JSON.h"

namespace tvxcore::serialization::internal {

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
