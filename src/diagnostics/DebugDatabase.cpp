// The debug database: named text settings in "Debug Database.txt".
#include "tvxcore/debug/DebugDatabase.h"

#include <cstdlib>
#include <new>

#include "base/NoDestructor.h"
#include "diagnostics/internal/DatabaseText.h"
#include "diagnostics/internal/PrefFiles.h"
#include "tvxcore/config/ClientIdentity.h"
#include "tvxcore/debug/Trace.h"
#include "tvxcore/filesupport/File.h"
#include "tvxcore/threads/CheckedLocks.h"

namespace tvxcore::debug {
namespace {

constexpr UTF16Char kFileName[] = u"Debug Database.txt";

enum class FileState {
  kNotLoaded,  // the client name was not known yet: no file touched
  kClean,      // read whole, or there was none
  kDamaged,    // held more than was read: keep it as ".old" first
  kNoSave,     // unreadable, or no preferences folder: never written
};

}  // namespace

class DebugDatabase::State {
 public:
  UTF8String GetEntry(const UTF8String& key, const UTF8String& defaultValue) TVX_EXCLUDES(mutex_) {
    threads::CheckedLock lock(mutex_);
    Load();
    internal::DebugEntry& entry = entries_[key];
    if (entry.defaultValue.empty()) {
      entry.defaultValue = defaultValue;
      ++changeCount_;
    }
    if (!entry.value.empty() && entry.defaultValue == defaultValue) return entry.value;
    entry.defaultValue = defaultValue;
    entry.value = defaultValue;
    ++changeCount_;
    return defaultValue;
  }

  UTF8String GetEntry(const UTF8String& key) TVX_EXCLUDES(mutex_) {
    threads::CheckedLock lock(mutex_);
    Load();
    return entries_[key].value;
  }

  void SetEntry(const UTF8String& key, const UTF8String& value) TVX_EXCLUDES(mutex_) {
    threads::CheckedLock lock(mutex_);
    Load();
    internal::DebugEntry& entry = entries_[key];
    entry.value = value;
    entry.defaultValue.clear();
    ++changeCount_;
  }

  bool HasEntry(const UTF8String& key) TVX_EXCLUDES(mutex_) {
    threads::CheckedLock lock(mutex_);
    Load();
    return entries_.count(key) != 0;
  }

  void RemoveEntry(const UTF8String& key) TVX_EXCLUDES(mutex_) {
    threads::CheckedLock lock(mutex_);
    Load();
    if (entries_.erase(key) != 0) ++changeCount_;
  }

  void Clear() TVX_EXCLUDES(mutex_) {
    threads::CheckedLock lock(mutex_);
    Load();
    entries_.clear();
    ++changeCount_;
  }

  void Keys(std::list<UTF8String>& out) TVX_EXCLUDES(mutex_) {
    threads::CheckedLock lock(mutex_);
    Load();
    for (const auto& [key, entry] : entries_) out.push_back(key);
  }

  void Entries(std::list<std::pair<UTF8String, UTF8String>>& out) TVX_EXCLUDES(mutex_) {
    threads::CheckedLock lock(mutex_);
    Load();
    for (const auto& [key, entry] : entries_) out.emplace_back(key, entry.value);
  }

  void SetWritesDisabled(bool disabled) TVX_EXCLUDES(mutex_) {
    threads::CheckedLock lock(mutex_);
    writesDisabled_ = disabled;
  }

  bool WritesDisabled() TVX_EXCLUDES(mutex_) {
    threads::CheckedLock lock(mutex_);
    return writesDisabled_;
  }

  // A snapshot under the lock, the file written outside it. Saves run one at
  // a time, so the file always ends with the newest snapshot.
  void Save() TVX_EXCLUDES(mutex_, saveMutex_) {
    threads::CheckedLock saving(saveMutex_);
    UTF8String text;
    filesupport::File file;
    bool keepOld = false;
    {
      threads::CheckedLock lock(mutex_);
      Load();
      if (writesDisabled_ || GetDisableFileWrites() || savedCount_ == changeCount_ ||
          fileState_ == FileState::kNotLoaded || fileState_ == FileState::kNoSave)
        return;
      savedCount_ = changeCount_;
      for (const auto& [key, entry] : entries_) internal::AppendDebugEntry(text, key, entry);
      file = file_;
      keepOld = fileState_ == FileState::kDamaged;
    }
    const std::string_view bytes(reinterpret_cast<const char*>(text.data()), text.size());
    if (internal::SaveWholeFile(file, bytes, keepOld) && keepOld) {
      threads::CheckedLock lock(mutex_);
      fileState_ = FileState::kClean;
    }
  }

 private:
  // Reads the file at the first use after the client name is known. Entries
  // made before then give way to the file's.
  void Load() TVX_REQUIRES(mutex_) {
    if (fileState_ != FileState::kNotLoaded || !config::IsClientNameInitialized()) return;
    fileState_ = FileState::kClean;
    try {
      file_ = filesupport::File(filesupport::Dir::PrefDir(), kFileName);
    } catch (const std::bad_alloc&) {
      fileState_ = FileState::kNotLoaded;
      throw;
    } catch (...) {
      fileState_ = FileState::kNoSave;
      return;
    }
    std::string text;
    bool cut = false;
    internal::DebugEntries read;
    switch (internal::ReadWholeFile(file_, text, cut)) {
      case internal::FileReading::kMissing:
        break;
      case internal::FileReading::kUnreadable:
        fileState_ = FileState::kNoSave;
        break;
      case internal::FileReading::kRead:
        if (!internal::ReadDebugEntries(text, read) || cut) fileState_ = FileState::kDamaged;
        break;
    }
    if (!entries_.empty()) ++changeCount_;
    for (auto& [key, entry] : read) entries_.insert_or_assign(key, std::move(entry));
  }

  threads::BoostRecursiveMutex mutex_;
  // Taken before mutex_, by savers only.
  threads::BoostMutex saveMutex_;
  internal::DebugEntries entries_ TVX_GUARDED_BY(mutex_);
  bool writesDisabled_ TVX_GUARDED_BY(mutex_) = false;
  std::uint32_t changeCount_ TVX_GUARDED_BY(mutex_) = 1;
  std::uint32_t savedCount_ TVX_GUARDED_BY(mutex_) = 1;
  filesupport::File file_ TVX_GUARDED_BY(mutex_);
  FileState fileState_ TVX_GUARDED_BY(mutex_) = FileState::kNotLoaded;
};

DebugDatabase& DebugDatabase::Instance() {
  static base::NoDestructor<DebugDatabase> database;
  return *database;
}

DebugDatabase::DebugDatabase() : state_(std::make_unique<State>()) {
  // The last save at process exit; the object itself stays, so that a
  // static destructor running later still finds its settings.
  std::atexit([] { Instance().SaveDataBase(); });
}

DebugDatabase::~DebugDatabase() = default;

UTF8String DebugDatabase::GetEntry(const UTF8String& inKey, const UTF8String& inDefault) {
  return state_->GetEntry(inKey, inDefault);
}
UTF8String DebugDatabase::GetEntry(const UTF8String& inKey) { return state_->GetEntry(inKey); }
void DebugDatabase::SetEntry(const UTF8String& inKey, const UTF8String& inValue) {
  state_->SetEntry(inKey, inValue);
  SaveDataBase();
}
bool DebugDatabase::HasEntry(const UTF8String& inKey) const { return state_->HasEntry(inKey); }
void DebugDatabase::RemoveEntry(const UTF8String& inKey) {
  state_->RemoveEntry(inKey);
  SaveDataBase();
}
void DebugDatabase::Clear() { state_->Clear(); }
void DebugDatabase::GetDebugKeys(std::list<UTF8String>& outKeys) const { state_->Keys(outKeys); }
void DebugDatabase::GetEntries(std::list<std::pair<UTF8String, UTF8String>>& outEntries) const {
  state_->Entries(outEntries);
}
void DebugDatabase::SaveDataBase() const { state_->Save(); }
void DebugDatabase::SetFileWritesDisabled(bool inDisabled) {
  state_->SetWritesDisabled(inDisabled);
}
bool DebugDatabase::GetFileWritesDisabled() const { return state_->WritesDisabled(); }

}  // namespace tvxcore::debug
