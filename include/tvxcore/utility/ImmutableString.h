// tvxcore/utility/ImmutableString.h: interned, read-only UTF-8 strings.
//
// Equal texts share one record, so copying is a pointer copy plus at most one
// atomic increment, and comparing two strings for equality usually is one
// pointer comparison.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "tvxcore/Export.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::utility {

// A value of three words: the shared record (null for the empty string), the
// text and its length in bytes. The text is always followed by a zero byte
// and never changes.
//
// Static strings wrap a literal that lives as long as the process and are
// never freed. Dynamic strings own a copy of their text and are counted; a
// record whose count falls to zero stays in the table, ready to be taken up
// again without an allocation, until PurgeUnusedStrings() frees it. Whoever
// interns a text first decides whether its record is static or dynamic.
//
// Thread-safety: any thread may create, copy, compare and destroy strings at
// any time; one ImmutableString object itself is a plain value and must not
// be assigned from one thread while another reads it. Copies and comparisons
// take no lock; creating takes the lock of one of 64 table buckets, and so
// does dropping the last reference to a dynamic record.
class TVXCORE_EXPORT ImmutableString {
 public:
  // The interned record. A dynamic record carries its text, `length` bytes
  // and a zero byte, directly behind itself, in the same allocation.
  struct InternalRepresentation {
    std::atomic<std::uint32_t> refCount;
    std::uint8_t isDynamic;  // 1 dynamic, 0 static
    std::uint64_t length;
    const UTF8Char* bytes;
  };

  // The text of every empty string: a single zero byte.
  static const UTF8Char sNullString[1];

  // The empty string.
  ImmutableString() noexcept : record_(nullptr), text_(sNullString), length_(0) {}
  // Takes one more reference to `record` (null gives the empty string).
  explicit ImmutableString(InternalRepresentation* record) noexcept;
  // Copying takes one more reference without a lock: the source holds one,
  // so the record can't be freed meanwhile.
  ImmutableString(const ImmutableString& other) noexcept
      : record_(other.record_), text_(other.text_), length_(other.length_) {
    if (record_ != nullptr && record_->isDynamic)
      record_->refCount.fetch_add(1, std::memory_order_relaxed);
  }
  ImmutableString& operator=(const ImmutableString& other) noexcept;
  ~ImmutableString() {
    if (record_ != nullptr && record_->isDynamic) ReleaseDynamic(record_);
  }

  // Interns a zero-terminated text that must stay unchanged for the rest of
  // the process; no copy is made. Null or "" gives the empty string.
  static ImmutableString CreateStatic(const UTF8Char* text);
  static ImmutableString CreateStatic(const char* text);

  // Interns a copy of the text. The zero-terminated forms measure the text
  // first; null gives the empty string. The UTF-16 forms convert to UTF-8.
  static ImmutableString CreateDynamic(const UTF8Char* text);
  static ImmutableString CreateDynamic(const UTF8Char* text, std::size_t length);
  static ImmutableString CreateDynamic(const char* text);
  static ImmutableString CreateDynamic(const UTF8String& text);
  static ImmutableString CreateDynamic(const UTF16String& text);
  static ImmutableString CreateDynamic(const std::string& text);
  static ImmutableString CreateDynamic(const UTF16Char* text);

  // Byte order of the texts, sign as memcmp: with equal leading bytes the
  // shorter text comes first, and the empty string before every other. The
  // UTF-16 forms compare against the UTF-8 encoding of their argument; a
  // null pointer stands for the empty text.
  int Compare(const ImmutableString& other) const noexcept;
  int Compare(const UTF8Char* text) const noexcept;
  int Compare(const UTF8String& text) const noexcept;
  int Compare(const char* text) const noexcept;
  int Compare(const std::string& text) const noexcept;
  int Compare(const UTF16String& text) const;
  int Compare(const UTF16Char* text) const;

  // The text as UTF-16, up to its first zero byte.
  UTF16String ToString() const;

  // Frees every dynamic record that nobody holds. True if any was freed.
  static bool PurgeUnusedStrings();

  // The text, zero-terminated, valid as long as this string holds it.
  const UTF8Char* Bytes() const noexcept { return text_; }
  const char* c_str() const noexcept { return reinterpret_cast<const char*>(text_); }
  std::size_t Length() const noexcept { return length_; }
  bool IsEmpty() const noexcept { return length_ == 0; }
  // The shared record, null for the empty string.
  InternalRepresentation* GetInternalRepresentation() const noexcept { return record_; }

  friend bool operator==(const ImmutableString& a, const ImmutableString& b) noexcept {
    // Equal texts share a record; the bytes are compared only for a string
    // made from a record outside the table.
    return a.record_ == b.record_ || (a.length_ == b.length_ && a.Compare(b) == 0);
  }
  friend bool operator!=(const ImmutableString& a, const ImmutableString& b) noexcept {
    return !(a == b);
  }
  friend bool operator<(const ImmutableString& a, const ImmutableString& b) noexcept {
    return a.Compare(b) < 0;
  }
  friend bool operator>(const ImmutableString& a, const ImmutableString& b) noexcept {
    return b.Compare(a) < 0;
  }
  friend bool operator<=(const ImmutableString& a, const ImmutableString& b) noexcept {
    return a.Compare(b) <= 0;
  }
  friend bool operator>=(const ImmutableString& a, const ImmutableString& b) noexcept {
    return a.Compare(b) >= 0;
  }

 private:
  static ImmutableString Intern(const UTF8Char* text, std::size_t length, bool dynamic);
  int CompareBytes(const UTF8Char* text, std::size_t length) const noexcept;
  void Release() noexcept;
  // Drops one reference to a dynamic record. Above one the count drops
  // without a lock; the step from one to zero is ReleaseLast's.
  static void ReleaseDynamic(InternalRepresentation* record) noexcept {
    std::uint32_t count = record->refCount.load(std::memory_order_relaxed);
    while (count > 1) {
      if (record->refCount.compare_exchange_weak(count, count - 1, std::memory_order_release,
                                                 std::memory_order_relaxed))
        return;
    }
    ReleaseLast(record);
  }
  static void ReleaseLast(InternalRepresentation* record) noexcept;

  InternalRepresentation* record_;
  const UTF8Char* text_;
  std::size_t length_;
};

}  // namespace tvxcore::utility
