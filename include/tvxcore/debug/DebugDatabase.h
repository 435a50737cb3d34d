// tvxcore/debug/DebugDatabase.h: named text settings that tune diagnostics
// without a rebuild.
//
// The settings live in "Debug Database.txt" in filesupport::Dir::PrefDir(),
// one a line in key order: the key, a tab, the value, a tab, the default the
// code last asked with, "\r\n". A user may edit the file by hand: blanks
// around a field are trimmed when it is read. A key is a path of the
// caller's choosing; the library gives it no structure.
//
// Until config::SetClientName has run no file is touched; the settings made
// meanwhile are kept in memory, and at the first use after it the file is
// read, its entries replacing those of the same key. A file that can't be
// read is never written over; one that was damaged is kept as
// "Debug Database.txt.old" before the first save. No operation reports a
// failure; a failed save is lost silently.
#pragma once

#include <list>
#include <memory>
#include <utility>

#include "tvxcore/Export.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::base {
template <typename T>
class NoDestructor;
}  // namespace tvxcore::base

namespace tvxcore::debug {

// The one process-wide table of settings. Made at the first Instance() and
// kept to the end of the process, when a last save runs (from an exit
// handler; the object itself is never destroyed, so a static destructor
// that still reads a setting finds it).
//
// Thread-safety: every operation may be called from any thread. One
// recursive lock guards the table and its counters; it is never held while
// the file is written. Saves are whole-file and run one at a time, each
// writing a consistent snapshot, the newest last.
class TVXCORE_EXPORT DebugDatabase {
 public:
  static DebugDatabase& Instance();

  DebugDatabase(const DebugDatabase&) = delete;
  DebugDatabase& operator=(const DebugDatabase&) = delete;

  // The reading call. An entry without a default takes `inDefault` as its
  // default. Its value answers when it is not empty and the default equals
  // `inDefault`; otherwise `inDefault` becomes both value and default, and
  // answers. So a stored value holds only while the code keeps asking with
  // the same default: a changed default in the code wipes it. The first read
  // of a key makes the entry. Reading doesn't save; the change reaches the
  // file with the next save.
  UTF8String GetEntry(const UTF8String& inKey, const UTF8String& inDefault);
  // The entry's value; a missing key is made with an empty value and default,
  // and that counts as no change.
  UTF8String GetEntry(const UTF8String& inKey);
  // Sets the value, empties the default (so that the next GetEntry with a
  // default keeps the value), and saves.
  void SetEntry(const UTF8String& inKey, const UTF8String& inValue);
  bool HasEntry(const UTF8String& inKey) const;
  // Erases the key and saves.
  void RemoveEntry(const UTF8String& inKey);
  // Empties the table; the next save (at the latest the one at exit) writes
  // an empty file.
  void Clear();
  // Appends every key, in key order.
  void GetDebugKeys(std::list<UTF8String>& outKeys) const;
  // Appends every key with its value, in key order, as one consistent
  // snapshot (what a listing shows).
  void GetEntries(std::list<std::pair<UTF8String, UTF8String>>& outEntries) const;

  // Writes the table when it changed since the last save and neither this
  // object's switch nor the global one (debug::SetDisableFileWrites) is set.
  // A change made while a switch is set is written by the next save after.
  void SaveDataBase() const;

  // This object's own write switch; false at start.
  void SetFileWritesDisabled(bool inDisabled);
  bool GetFileWritesDisabled() const;

 private:
  friend class base::NoDestructor<DebugDatabase>;
  class State;

  DebugDatabase();
  ~DebugDatabase();

  std::unique_ptr<State> state_;
};

}  // namespace tvxcore::debug
