// Text built in a fixed buffer, without allocating or locking, for code that
// runs inside a signal handler. What does not fit is cut.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tvxcore::platform {

class SignalSafeLine {
 public:
  SignalSafeLine& Text(const char* text) noexcept {
    while (text && *text && length_ < sizeof(buffer_)) buffer_[length_++] = *text++;
    return *this;
  }
  SignalSafeLine& Decimal(unsigned long long value) noexcept {
    char digits[24];
    int count = 0;
    do {
      digits[count++] = static_cast<char>('0' + value % 10);
      value /= 10;
    } while (value > 0);
    while (count > 0 && length_ < sizeof(buffer_)) buffer_[length_++] = digits[--count];
    return *this;
  }
  // "0x" and `digits` hexadecimal digits.
  SignalSafeLine& Hex(unsigned long long value, int digits, bool upperCase = false) noexcept {
    const char* const set = upperCase ? "0123456789ABCDEF" : "0123456789abcdef";
    Text("0x");
    for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4) {
      if (length_ < sizeof(buffer_)) buffer_[length_++] = set[(value >> shift) & 15];
    }
    return *this;
  }
  SignalSafeLine& Address(const void* address) noexcept {
    return Hex(reinterpret_cast<std::uintptr_t>(address), 16);
  }

  const char* data() const noexcept { return buffer_; }
  std::size_t size() const noexcept { return length_; }

 private:
  char buffer_[256];
  std::size_t length_ = 0;
};

}  // namespace tvxcore::platform
