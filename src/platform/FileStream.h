// platform/FileStream.h: the calls behind the file streams of tvxcore.
//
// A stream's handle is a file descriptor held as a signed 64-bit value, -1 for
// none. Every function answers with a Windows system error code, 0 for
// success, translated from errno as the file-system calls do (FileSystem.h),
// so the stream classes keep their error tables as written. Nothing throws.
#pragma once

#include <cstdint>
#include <string>

namespace tvxcore::platform {

// How an open stream shares its file with other opens.
enum class FileShare {
  kReadOnly,   // others may read but not write
  kReadWrite,  // others may read and write
  kNone,       // others may not open the file at all
};

// Opens an existing file, never creating one: for reading, or for reading and
// writing. The descriptor is close-on-exec. A directory can't be opened
// (kErrorAccessDenied).
//
// Sharing is advisory, through flock() on the open file: a mode that keeps
// writers out takes a shared lock, a writing open takes an exclusive one, and
// a reader that lets writers in takes none. Only opens that lock too are kept
// out; a conflicting lock gives kErrorSharingViolation at once. A file system
// without flock() support opens unlocked.
int OpenFileStream(const std::string& path, bool forWriting, FileShare share,
                   std::int64_t& outHandle);
// Closes the descriptor; its lock goes with the last descriptor of the open.
int CloseFileStream(std::int64_t handle);

// Reads up to `count` bytes, looping over short reads; stops early only at the
// end of the file, which is no error. `outDone` is the number stored.
int ReadFileStream(std::int64_t handle, unsigned char* dst, std::uint32_t count,
                   std::uint32_t& outDone);
// Writes all `count` bytes, looping over short writes.
int WriteFileStream(std::int64_t handle, const unsigned char* src, std::uint32_t count);

// The file position; setting it beyond the end is allowed.
int GetFileStreamPosition(std::int64_t handle, std::uint64_t& outPos);
int SetFileStreamPosition(std::int64_t handle, std::uint64_t pos);
int GetFileStreamLength(std::int64_t handle, std::uint64_t& outLength);
// Sets the end of the file at `length`.
int SetFileStreamLength(std::int64_t handle, std::uint64_t length);
// Commits written data and metadata to the storage device (fsync).
int SyncFileStream(std::int64_t handle);

}  // namespace tvxcore::platform
