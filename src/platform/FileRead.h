// platform/FileRead.h: reading a regular file from start to end, for readers
// that take a document in as few pieces as possible (the XML parser).
//
// Failures are Windows system error codes translated from errno, as in
// FileSystem.h, plus the system's own words for the failure, which a caller
// can show to a user. Nothing here throws.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/internal/ScopedFd.h"

namespace tvxcore::platform {

// A regular file open for reading; the destructor closes it. Used by one
// thread at a time.
class ReadOnlyFile {
 public:
  ReadOnlyFile() = default;
  ReadOnlyFile(const ReadOnlyFile&) = delete;
  ReadOnlyFile& operator=(const ReadOnlyFile&) = delete;

  // Opens `path` (links followed) for reading. Only a regular file opens: a
  // directory gives kErrorAccessDenied ("Is a directory"), a pipe, device or
  // socket kErrorAccessDenied ("Not a regular file"); opening never blocks,
  // not even on a pipe. Answers 0 or the Windows code.
  int Open(const std::string& path);
  // The file's size when it was opened.
  std::uint64_t Size() const { return size_; }
  // Reads up to `count` bytes, looping over short reads; stops early only at
  // the end of the file, which is no error. `outDone` is the number stored.
  int Read(unsigned char* dst, std::size_t count, std::size_t& outDone);
  // The system's words for the last failure of Open or Read ("Permission
  // denied"), empty while there was none.
  const std::string& FailureText() const { return failure_; }

 private:
  int Fail(int err, const std::string& path);

  internal::ScopedFd fd_;
  std::uint64_t size_ = 0;
  std::string failure_;
};

}  // namespace tvxcore::platform
