// tvxcore/filesupport/SafeSave.h: writing a new version of a file without
// touching the old one until the new one is complete.
//
// The caller writes a temporary file beside the target and commits; a
// SafeSave that is not committed leaves the old file as it was and removes
// the temporary file.
#pragma once

#include "tvxcore/Export.h"
#include "tvxcore/filesupport/File.h"

namespace tvxcore::filesupport {

// One save of one target. The temporary file is named from the target's
// title, the process id, the thread id and the target's extension in lower
// case ("Prefs.12.34.xml" for "Prefs.XML" from process 12, thread 34), and
// stands in the target's directory, so threads and processes saving the same
// target at once never share a temporary file.
//
// Commit() gives the temporary file the target's permission bits, makes it
// durable (fsync) and then renames it onto the target in one atomic step: at
// every moment the target's name holds either the complete old file or the
// complete new one, even if the process dies or the machine loses power in
// between. A new file keeps the bits it was created with. Every failure
// reported by the SafeSave itself names the target, the user's file, never
// the temporary one.
//
// The SafeSave owns nothing but the two File values; the caller creates
// (preferably with CreateTempFile()), opens and writes the temporary file,
// and closes its streams before Commit(). One thread at a time.
class TVXCORE_EXPORT SafeSave {
 public:
  // Computes the temporary name; creates nothing on disk.
  explicit SafeSave(const File& target);
  // Deletes the temporary file when it exists and was not committed. A
  // failure to delete throws file_delete_exception, unless the destructor
  // runs while another exception unwinds, in which case it is dropped.
  ~SafeSave() noexcept(false);

  SafeSave(const SafeSave&) = delete;
  SafeSave& operator=(const SafeSave&) = delete;

  // The temporary file, for the caller to create, open and write.
  File& GetTempFile() { return temp_; }
  const File& GetTarget() const { return target_; }

  // Creates the temporary file empty, with the permission bits of the target
  // when it exists (plus reading and writing for the owner, until Commit) and
  // the usual default for a new file, so the new contents are never readable
  // by more users than the old ones; a leftover file of that name is
  // replaced. Failures are File::Create's exceptions for the target. Returns
  // GetTempFile().
  File& CreateTempFile();

  // Gives the temporary file the target's permission bits, flushes it to disk
  // and renames it onto the target, replacing an existing target atomically;
  // afterwards GetTempFile() names the target. A failed flush (EIO, ENOSPC,
  // EDQUOT: the new version may be incomplete) or a failure to set the bits
  // throws file_exception for the target and removes the temporary file; a
  // failed rename (a missing temporary file, a directory at the target, no
  // permission) throws rename_file for the target and its name. Either way
  // the old target stands unchanged, and the destructor removes what is left.
  void Commit();

 private:
  File target_;
  File temp_;
  int uncaughtAtStart_;
};

}  // namespace tvxcore::filesupport
