// base/NoDestructor.h: a static object that is built on first use and never
// destroyed.
//
//   static NoDestructor<HostCache> cache;   // in a function
//   cache->Lookup(...);
//
// Use it for the library's process-wide singletons: nothing they handed out
// (blocks, strings, records) may die during static destruction while another
// static object's destructor or a detached thread still uses it, and a leaky
// `new` would be reported by leak checkers. Construction is thread-safe as for
// any function-local static.
#pragma once

#include <new>
#include <type_traits>
#include <utility>

namespace tvxcore::base {

template <typename T>
class NoDestructor {
 public:
  template <typename... Args>
  explicit NoDestructor(Args&&... args) {
    new (storage_) T(std::forward<Args>(args)...);
  }
  NoDestructor(const NoDestructor&) = delete;
  NoDestructor& operator=(const NoDestructor&) = delete;
  ~NoDestructor() = default;  // T's destructor never runs

  T& get() noexcept { return *std::launder(reinterpret_cast<T*>(storage_)); }
  const T& get() const noexcept { return *std::launder(reinterpret_cast<const T*>(storage_)); }
  T& operator*() noexcept { return get(); }
  T* operator->() noexcept { return &get(); }
  const T& operator*() const noexcept { return get(); }
  const T* operator->() const noexcept { return &get(); }

 private:
  alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace tvxcore::base
