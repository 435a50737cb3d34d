// tvxcore/utility/Flags.h: a small bit set over an unsigned integer, passed by value.
#pragma once

#include <type_traits>

namespace tvxcore::utility {

template <typename T>
class Flags {
  static_assert(std::is_unsigned_v<T>, "Flags needs an unsigned integer");

 public:
  constexpr Flags() noexcept = default;
  constexpr Flags(T bits) noexcept : bits_(bits) {}  // NOLINT: implicit by design

  constexpr bool IsSet(T mask) const noexcept { return (bits_ & mask) != 0; }
  constexpr bool AllSet(T mask) const noexcept { return (bits_ & mask) == mask; }
  constexpr Flags& Set(T mask) noexcept {
    bits_ = static_cast<T>(bits_ | mask);
    return *this;
  }
  constexpr Flags& Clear(T mask) noexcept {
    bits_ = static_cast<T>(bits_ & ~mask);
    return *this;
  }
  constexpr Flags& Set(T mask, bool on) noexcept { return on ? Set(mask) : Clear(mask); }
  constexpr T Bits() const noexcept { return bits_; }
  constexpr bool operator==(const Flags&) const noexcept = default;

 private:
  T bits_ = 0;
};

}  // namespace tvxcore::utility
