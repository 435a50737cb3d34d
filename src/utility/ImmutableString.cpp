// The intern table of ImmutableString: 64 buckets, each a lock and two
// ordered sets of records, built on first use and kept until process end.
#include "tvxcore/utility/ImmutableString.h"

#include <cstring>
#include <new>
#include <set>

#include "base/NoDestructor.h"
#include "threads/internal/FutexPrimitives.h"
#include "tvxcore/base/ThreadAnnotations.h"
#include "tvxcore/utility/SmallBlockAllocator.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxcore::utility {
namespace {

using Record = ImmutableString::InternalRepresentation;

// A record's allocation: the header rounded up to 32 bytes, and for a
// dynamic record the text and its zero byte inside the same block.
constexpr std::size_t kRecordBytes = 32;
static_assert(sizeof(Record) < kRecordBytes, "the zero byte must fit in the header's block");

std::size_t AllocationSize(const Record* record) {
  return record->isDynamic ? static_cast<std::size_t>(record->length) + kRecordBytes : kRecordBytes;
}

UTF8Char* DynamicText(Record* record) {
  return reinterpret_cast<UTF8Char*>(record) + sizeof(Record);
}

// A text looked up without making a record first.
struct Key {
  const UTF8Char* bytes;
  std::size_t length;
};

// Length first, then bytes: the length decides most lookups without reading
// the texts.
int Order(const UTF8Char* a, std::size_t aLength, const UTF8Char* b, std::size_t bLength) {
  if (aLength != bLength) return aLength < bLength ? -1 : 1;
  return std::memcmp(a, b, aLength);
}

struct RecordOrder {
  using is_transparent = void;
  bool operator()(const Record* a, const Record* b) const {
    return Order(a->bytes, a->length, b->bytes, b->length) < 0;
  }
  bool operator()(const Key& a, const Record* b) const {
    return Order(a.bytes, a.length, b->bytes, b->length) < 0;
  }
  bool operator()(const Record* a, const Key& b) const {
    return Order(a->bytes, a->length, b.bytes, b.length) < 0;
  }
};

using RecordSet = std::set<Record*, RecordOrder, SmallBlockAllocator::STLAllocator<Record*>>;

// The futex mutex itself rather than a RecursiveMutex: it sits in the bucket,
// so locking is inline with no pointer to a pooled record to follow.
using BucketMutex = threads::internal::FutexRecursiveMutex;

class TVX_SCOPED_CAPABILITY BucketLock {
 public:
  explicit BucketLock(BucketMutex& mutex) TVX_ACQUIRE(mutex) : mutex_(mutex) { mutex_.Lock(); }
  ~BucketLock() TVX_RELEASE() { mutex_.Unlock(); }
  BucketLock(const BucketLock&) = delete;
  BucketLock& operator=(const BucketLock&) = delete;

 private:
  BucketMutex& mutex_;
};

struct Bucket {
  BucketMutex mutex;
  RecordSet allStrings TVX_GUARDED_BY(mutex);
  // Dynamic records whose count reached zero since the last purge; some may
  // have been taken up again since.
  RecordSet unusedStrings TVX_GUARDED_BY(mutex);
};

constexpr std::size_t kBucketCount = 64;

struct Table {
  Bucket buckets[kBucketCount];
};

TVX_ALWAYS_INLINE Bucket* Buckets() {
  static base::NoDestructor<Table> table;
  return table->buckets;
}

// Length, last byte and the byte at two thirds: constant cost for any length.
TVX_ALWAYS_INLINE Bucket& BucketOf(const UTF8Char* text, std::size_t length) {
  std::size_t index = length + text[length - 1] + text[(2 * length) / 3];
  return Buckets()[index % kBucketCount];
}

std::size_t MeasureText(const UTF8Char* text) {
  return text == nullptr ? 0 : std::strlen(reinterpret_cast<const char*>(text));
}

const UTF8Char* AsBytes(const char* text) { return reinterpret_cast<const UTF8Char*>(text); }

}  // namespace

const UTF8Char ImmutableString::sNullString[1] = {0};

ImmutableString::ImmutableString(InternalRepresentation* record) noexcept
    : record_(record),
      text_(record ? record->bytes : sNullString),
      length_(record ? static_cast<std::size_t>(record->length) : 0) {
  if (record_ && record_->isDynamic) record_->refCount.fetch_add(1, std::memory_order_relaxed);
}

ImmutableString& ImmutableString::operator=(const ImmutableString& other) noexcept {
  if (record_ == other.record_) return *this;
  ImmutableString copy(other);
  Release();
  record_ = copy.record_;
  text_ = copy.text_;
  length_ = copy.length_;
  copy.record_ = nullptr;
  return *this;
}

void ImmutableString::Release() noexcept {
  Record* record = record_;
  record_ = nullptr;
  if (record != nullptr && record->isDynamic) ReleaseDynamic(record);
}

// The step from one to zero is made under the bucket lock, so that a purge
// (which frees records of count zero under the same lock) can never free a
// record this thread is still about to enter in unusedStrings. A create may
// have raised the count again since the caller looked.
void ImmutableString::ReleaseLast(InternalRepresentation* record) noexcept {
  Bucket& bucket = BucketOf(record->bytes, static_cast<std::size_t>(record->length));
  BucketLock lock(bucket.mutex);
  if (record->refCount.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  try {
    bucket.unusedStrings.insert(record);
  } catch (const std::bad_alloc&) {
    // Without memory for the entry the record stays interned, unused and
    // valid; it is only not purged.
  }
}

// Every create comes here: one bucket lock, one lookup, and a count raised
// on the record found, or a new record entered. The result is built in place
// (one named object on every path), so no copy and release follow.
TVX_ALWAYS_INLINE ImmutableString ImmutableString::Intern(const UTF8Char* text, std::size_t length,
                                                          bool dynamic) {
  ImmutableString result;
  if (length == 0) return result;
  Bucket& bucket = BucketOf(text, length);
  BucketLock lock(bucket.mutex);
  Record* record;
  auto found = bucket.allStrings.find(Key{text, length});
  if (found != bucket.allStrings.end()) {
    record = *found;
  } else {
    std::size_t bytes = dynamic ? length + kRecordBytes : kRecordBytes;
    void* block = SmallBlockAllocator::Allocate(bytes);
    record = new (block) Record;
    record->refCount.store(0, std::memory_order_relaxed);
    record->isDynamic = dynamic ? 1 : 0;
    record->length = length;
    if (dynamic) {
      UTF8Char* copy = DynamicText(record);
      std::memcpy(copy, text, length);
      copy[length] = 0;
      record->bytes = copy;
    } else {
      record->bytes = text;
    }
    try {
      bucket.allStrings.insert(record);
    } catch (...) {
      SmallBlockAllocator::Dispose(block, bytes);
      throw;
    }
  }
  // Taking the reference under the bucket lock keeps a purge from freeing
  // the record between the lookup and this increment.
  if (record->isDynamic) record->refCount.fetch_add(1, std::memory_order_relaxed);
  result.record_ = record;
  result.text_ = record->bytes;
  result.length_ = length;
  return result;
}

ImmutableString ImmutableString::CreateStatic(const UTF8Char* text) {
  return Intern(text, MeasureText(text), false);
}
ImmutableString ImmutableString::CreateStatic(const char* text) {
  return CreateStatic(AsBytes(text));
}

ImmutableString ImmutableString::CreateDynamic(const UTF8Char* text) {
  return Intern(text, MeasureText(text), true);
}
ImmutableString ImmutableString::CreateDynamic(const UTF8Char* text, std::size_t length) {
  return Intern(text, text == nullptr ? 0 : length, true);
}
ImmutableString ImmutableString::CreateDynamic(const char* text) {
  return CreateDynamic(AsBytes(text));
}
ImmutableString ImmutableString::CreateDynamic(const UTF8String& text) {
  return Intern(text.data(), text.size(), true);
}
ImmutableString ImmutableString::CreateDynamic(const UTF16String& text) {
  return CreateDynamic(UTF16to8(text));
}
ImmutableString ImmutableString::CreateDynamic(const std::string& text) {
  return Intern(AsBytes(text.data()), text.size(), true);
}
ImmutableString ImmutableString::CreateDynamic(const UTF16Char* text) {
  return CreateDynamic(UTF16to8(text));
}

int ImmutableString::CompareBytes(const UTF8Char* text, std::size_t length) const noexcept {
  std::size_t common = length_ < length ? length_ : length;
  int result = common == 0 ? 0 : std::memcmp(text_, text, common);
  if (result != 0) return result < 0 ? -1 : 1;
  if (length_ == length) return 0;
  return length_ < length ? -1 : 1;
}

int ImmutableString::Compare(const ImmutableString& other) const noexcept {
  if (record_ == other.record_) return 0;
  return CompareBytes(other.text_, other.length_);
}
int ImmutableString::Compare(const UTF8Char* text) const noexcept {
  return CompareBytes(text == nullptr ? sNullString : text, MeasureText(text));
}
int ImmutableString::Compare(const UTF8String& text) const noexcept {
  return CompareBytes(text.data(), text.size());
}
int ImmutableString::Compare(const char* text) const noexcept { return Compare(AsBytes(text)); }
int ImmutableString::Compare(const std::string& text) const noexcept {
  return CompareBytes(AsBytes(text.data()), text.size());
}
int ImmutableString::Compare(const UTF16String& text) const { return Compare(UTF16to8(text)); }
int ImmutableString::Compare(const UTF16Char* text) const { return Compare(UTF16to8(text)); }

UTF16String ImmutableString::ToString() const {
  return UTF8to16(UTF8String(text_, MeasureText(text_)));
}

bool ImmutableString::PurgeUnusedStrings() {
  bool freed = false;
  Bucket* buckets = Buckets();
  for (std::size_t i = 0; i < kBucketCount; ++i) {
    Bucket& bucket = buckets[i];
    BucketLock lock(bucket.mutex);
    for (Record* record : bucket.unusedStrings) {
      // Creators raise a count from zero only under this lock, and copies
      // need a reference already held, so zero here stays zero.
      if (!record->isDynamic || record->refCount.load(std::memory_order_acquire) != 0) continue;
      bucket.allStrings.erase(record);
      std::size_t bytes = AllocationSize(record);
      record->~Record();
      SmallBlockAllocator::Dispose(record, bytes);
      freed = true;
    }
    bucket.unusedStrings.clear();
  }
  return freed;
}

}  // namespace tvxcore::utility
