// The trace database: categories and volumes, the master record, the change
// counter, and "Trace Database.txt" in the preferences folder.
#include <algorithm>
#include <limits>
#include <memory>
#include <new>

#include "base/NoDestructor.h"
#include "diagnostics/internal/DatabaseText.h"
#include "diagnostics/internal/PrefFiles.h"
#include "tvxcore/config/ClientIdentity.h"
#include "tvxcore/debug/Trace.h"
#include "tvxcore/filesupport/File.h"
#include "tvxcore/threads/CheckedLocks.h"

namespace tvxcore::debug {

namespace internal {
std::atomic<std::uint32_t> traceChangeCount{1};
}  // namespace internal

namespace {

using internal::TraceRecord;

constexpr UTF8Char kMaster[] = "Master";
constexpr UTF16Char kFileName[] = u"Trace Database.txt";
constexpr std::int32_t kCategoryDefaultVolume = 5;
constexpr std::int32_t kMasterDefaultVolume = 10;

std::atomic<bool> disableFileWrites{false};

// The master record as loaded, read without the lock once `masterLoaded` is
// set; written under the trace lock.
std::atomic<bool> masterLoaded{false};
std::atomic<bool> masterEnabled{true};
std::atomic<std::int32_t> masterVolume{kMasterDefaultVolume};

// Re-entrancy guards, one per thread: a trace made from inside the enabled
// test, or from inside the file code a master load runs, is turned away
// rather than deadlocking or recursing. Being per thread, they never turn
// away another thread's question.
thread_local bool inEnabledTest = false;
thread_local bool inMasterLoad = false;

// Sets a guard for the life of a scope.
class GuardScope {
 public:
  explicit GuardScope(bool& guard) : guard_(guard) { guard_ = true; }
  ~GuardScope() { guard_ = false; }
  GuardScope(const GuardScope&) = delete;
  GuardScope& operator=(const GuardScope&) = delete;

 private:
  bool& guard_;
};

std::int32_t ToVolume(long volume) {
  return static_cast<std::int32_t>(std::clamp<long>(
      volume, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
}

UTF8String CategoryKey(unsigned char const* category) {
  return category ? UTF8String(category) : UTF8String();
}

enum class FileState {
  kClean,    // the file read whole, or there was none
  kDamaged,  // the file held more than was read: keep it as ".old" first
  kNoSave,   // the file could not be read, or its place not found
};

// The records read from "Trace Database.txt" and changed since.
struct Table {
  internal::TraceRecords records;
  filesupport::File file;
  FileState state = FileState::kClean;
};

class TraceManager {
 public:
  bool Enabled(const UTF8String& category, long volume, bool create) TVX_EXCLUDES(mutex_) {
    if (inEnabledTest) return false;
    GuardScope guard(inEnabledTest);
    threads::CheckedLock lock(mutex_);
    const TraceRecord master = LoadMaster(false);
    if (!master.enabled || volume > master.volume) return false;
    TraceRecord record;
    ReadRecord(category, kCategoryDefaultVolume, create, record);
    return record.enabled && volume <= record.volume;
  }

  long GetVolume(const UTF8String& category) TVX_EXCLUDES(mutex_) {
    threads::CheckedLock lock(mutex_);
    TraceRecord record;
    ReadRecord(category, kCategoryDefaultVolume, true, record);
    return record.volume;
  }

  void SetVolume(const UTF8String& category, long volume) TVX_EXCLUDES(mutex_) {
    threads::CheckedLock lock(mutex_);
    TraceRecord record;
    ReadRecord(category, kCategoryDefaultVolume, true, record);
    record.volume = ToVolume(volume);
    WriteRecord(category, record);
  }

  long GetMasterVolume() TVX_EXCLUDES(mutex_) {
    threads::CheckedLock lock(mutex_);
    return LoadMaster(true).volume;
  }

  void SetMasterVolume(long volume) TVX_EXCLUDES(mutex_) {
    threads::CheckedLock lock(mutex_);
    TraceRecord master = LoadMaster(true);
    master.volume = ToVolume(volume);
    masterVolume.store(master.volume, std::memory_order_relaxed);
    WriteRecord(kMaster, master);
  }

  void Categories(std::list<UTF8String>& out) TVX_EXCLUDES(mutex_) {
    out.clear();
    threads::CheckedLock lock(mutex_);
    if (!config::IsClientNameInitialized()) return;
    for (const auto& [category, record] : GetTable().records) out.push_back(category);
  }

  void Shutdown() TVX_EXCLUDES(mutex_) {
    threads::CheckedLock lock(mutex_);
    if (!table_) return;
    Save();
    table_.reset();
  }

 private:
  // The master record: read once, with the default volume 10, then the cache.
  TraceRecord LoadMaster(bool create) TVX_REQUIRES(mutex_) {
    if (inMasterLoad) {
      // Asked from inside the load itself: tracing is off until it is done.
      masterEnabled.store(false, std::memory_order_relaxed);
    } else if (!masterLoaded.load(std::memory_order_acquire)) {
      GuardScope guard(inMasterLoad);
      TraceRecord record;
      ReadRecord(kMaster, kMasterDefaultVolume, create, record);
      masterEnabled.store(record.enabled, std::memory_order_relaxed);
      masterVolume.store(record.volume, std::memory_order_relaxed);
      masterLoaded.store(true, std::memory_order_release);
    }
    TraceRecord cached;
    cached.enabled = masterEnabled.load(std::memory_order_relaxed);
    cached.volume = masterVolume.load(std::memory_order_relaxed);
    return cached;
  }

  // Fills `out` with the category's record, or with the default (enabled,
  // `defaultVolume`) and, with `create`, records that. Before the client name
  // is known the default answers and nothing is touched. True when found.
  bool ReadRecord(const UTF8String& category, std::int32_t defaultVolume, bool create,
                  TraceRecord& out) TVX_REQUIRES(mutex_) {
    out = TraceRecord{true, defaultVolume};
    if (!config::IsClientNameInitialized()) return true;
    Table& table = GetTable();
    const auto found = table.records.find(category);
    if (found != table.records.end()) {
      out = found->second;
      return true;
    }
    if (create) WriteRecord(category, out);
    return false;
  }

  void WriteRecord(const UTF8String& category, const TraceRecord& record) TVX_REQUIRES(mutex_) {
    std::uint32_t next = internal::traceChangeCount.load(std::memory_order_relaxed) + 1;
    if (next == 0) next = 1;
    internal::traceChangeCount.store(next, std::memory_order_relaxed);
    if (!config::IsClientNameInitialized()) return;
    GetTable().records[category] = record;
    Save();
  }

  // The table, read from the file at first need.
  Table& GetTable() TVX_REQUIRES(mutex_) {
    if (table_) return *table_;
    table_ = std::make_unique<Table>();
    try {
      table_->file = filesupport::File(filesupport::Dir::PrefDir(), kFileName);
    } catch (const std::bad_alloc&) {
      table_.reset();
      throw;
    } catch (...) {
      // No preferences folder: the settings live in memory only.
      table_->state = FileState::kNoSave;
      return *table_;
    }
    std::string text;
    bool cut = false;
    switch (internal::ReadWholeFile(table_->file, text, cut)) {
      case internal::FileReading::kMissing:
        break;
      case internal::FileReading::kUnreadable:
        table_->state = FileState::kNoSave;
        break;
      case internal::FileReading::kRead:
        if (!internal::ReadTraceRecords(text, table_->records) || cut)
          table_->state = FileState::kDamaged;
        break;
    }
    return *table_;
  }

  // Writes the whole table to its file, in the table's order.
  void Save() TVX_REQUIRES(mutex_) {
    if (disableFileWrites.load(std::memory_order_relaxed) || !table_ ||
        table_->state == FileState::kNoSave)
      return;
    UTF8String text;
    for (const auto& [category, record] : table_->records)
      internal::AppendTraceRecord(text, category, record);
    const std::string_view bytes(reinterpret_cast<const char*>(text.data()), text.size());
    if (internal::SaveWholeFile(table_->file, bytes, table_->state == FileState::kDamaged))
      table_->state = FileState::kClean;
  }

  // The trace lock. Recursive, so that a handler or file code that comes
  // back in on the same thread waits for nothing.
  threads::BoostRecursiveMutex mutex_;
  std::unique_ptr<Table> table_ TVX_GUARDED_BY(mutex_);
};

TraceManager& Manager() {
  static base::NoDestructor<TraceManager> manager;
  return *manager;
}

}  // namespace

bool TraceEnabled(unsigned char const* inCategory, long inVolume, bool inCreate) {
  return Manager().Enabled(CategoryKey(inCategory), inVolume, inCreate);
}

bool TraceEnabled(char const* inCategory, long inVolume, bool inCreate) {
  return TraceEnabled(reinterpret_cast<unsigned char const*>(inCategory), inVolume, inCreate);
}

bool TraceSite::Refresh(char const* inCategory, long inVolume, std::uint32_t inCount) {
  // A site reached from inside the enabled test is turned away, and must not
  // keep that answer until the next change.
  if (inEnabledTest) return false;
  const bool enabled = TraceEnabled(inCategory, inVolume, true);
  state_.store(inCount | (enabled ? kOn : 0), std::memory_order_relaxed);
  return enabled;
}

long GetTraceVolume(unsigned char const* inCategory) {
  return Manager().GetVolume(CategoryKey(inCategory));
}
long GetTraceVolume(char const* inCategory) {
  return GetTraceVolume(reinterpret_cast<unsigned char const*>(inCategory));
}

void SetTraceVolume(unsigned char const* inCategory, long inVolume) {
  Manager().SetVolume(CategoryKey(inCategory), inVolume);
}
void SetTraceVolume(char const* inCategory, long inVolume) {
  SetTraceVolume(reinterpret_cast<unsigned char const*>(inCategory), inVolume);
}

long GetMasterTraceVolume() { return Manager().GetMasterVolume(); }
void SetMasterTraceVolume(long inVolume) { Manager().SetMasterVolume(inVolume); }

void GetTraceCategories(std::list<UTF8String>& outCategories) {
  Manager().Categories(outCategories);
}

void ShutdownTraceManager() { Manager().Shutdown(); }

void SetDisableFileWrites(bool inDisable) {
  disableFileWrites.store(inDisable, std::memory_order_relaxed);
}
bool GetDisableFileWrites() { return disableFileWrites.load(std::memory_order_relaxed); }

}  // namespace tvxcore::debug
