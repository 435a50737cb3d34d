// File streams over the platform's descriptors, and how their failures map to
// the stream exceptions.
#include "tvxcore/filesupport/PlatformByteStreams.h"

#include <string>

#include "filesupport/internal/PathCodec.h"
#include "platform/FileStream.h"
#include "platform/FileSystem.h"
#include "tvxcore/filesupport/FileExceptions.h"

namespace tvxcore::filesupport {
namespace {

constexpr long long kNoHandle = -1;

// A failed open: the table of open failures, keyed by system error code.
void ThrowOpenError(int error, const File& file) {
  switch (error) {
    case platform::kErrorSuccess:
      return;  // no handle and no error: the stream stands without one
    case platform::kErrorFileNotFound:
    case platform::kErrorPathNotFound:
      throw file_not_found_exception(file);
    default:
      throw io_error();
  }
}

long long Open(const File& file, bool forWriting, PlatformStreamFlags flags) {
  const bool shared = flags.IsSet(kPlatformStreamShared);
  platform::FileShare share;
  if (forWriting) {
    share = shared ? platform::FileShare::kReadOnly : platform::FileShare::kNone;
  } else {
    share = shared ? platform::FileShare::kReadWrite : platform::FileShare::kReadOnly;
  }
  std::string native;
  std::int64_t handle = kNoHandle;
  const int error = internal::ToNative(file.Helper().FullNativePath(), native)
                        ? platform::OpenFileStream(native, forWriting, share, handle)
                        : platform::kErrorInvalidName;
  if (handle == kNoHandle) ThrowOpenError(error, file);
  return handle;
}

void CheckIo(int error) {
  if (error != platform::kErrorSuccess) throw io_error();
}

// Reading alone tells the platform's own end-of-file report apart.
void CheckRead(int error) {
  if (error == platform::kErrorHandleEof) throw eof_error();
  CheckIo(error);
}

unsigned long long Position(long long handle) {
  std::uint64_t pos = 0;
  CheckIo(platform::GetFileStreamPosition(handle, pos));
  return pos;
}

unsigned long long Size(long long handle) {
  std::uint64_t length = 0;
  CheckIo(platform::GetFileStreamLength(handle, length));
  return length;
}

}  // namespace

struct IPlatformByteStream::Record {
  File file;
  long long handle = kNoHandle;
  bool ownsHandle = false;
};

struct OPlatformByteStream::Record {
  File file;
  long long handle = kNoHandle;
};

// ---- IPlatformByteStream ---------------------------------------------------

IPlatformByteStream::IPlatformByteStream(const File& file, PlatformStreamFlags flags)
    : record_(new Record{file, kNoHandle, false}) {
  record_->handle = Open(file, false, flags);
  record_->ownsHandle = record_->handle != kNoHandle;
}

IPlatformByteStream::IPlatformByteStream(OPlatformByteStream* out) : record_(new Record) {
  if (out != nullptr) record_->handle = out->GetPlatformHandle();
}

IPlatformByteStream::~IPlatformByteStream() {
  if (record_->handle != kNoHandle && record_->ownsHandle) {
    platform::CloseFileStream(record_->handle);  // a failure to close is ignored
  }
}

unsigned char IPlatformByteStream::Get() {
  unsigned char byte = 0;
  std::uint32_t done = 0;
  CheckRead(platform::ReadFileStream(record_->handle, &byte, 1, done));
  return byte;
}

void IPlatformByteStream::ReadBlock(unsigned char* dst, std::uint32_t count) {
  std::uint32_t done = 0;
  CheckRead(platform::ReadFileStream(record_->handle, dst, count, done));
}

void IPlatformByteStream::CurPos(unsigned long long pos) {
  CheckIo(platform::SetFileStreamPosition(record_->handle, pos));
}

unsigned long long IPlatformByteStream::CurPos() const { return Position(record_->handle); }

unsigned long long IPlatformByteStream::Length() const { return Size(record_->handle); }

long long IPlatformByteStream::GetPlatformHandle() { return record_->handle; }

// ---- OPlatformByteStream ---------------------------------------------------

OPlatformByteStream::OPlatformByteStream(const File& file, PlatformStreamFlags flags)
    : record_(new Record{file, kNoHandle}) {
  record_->handle = Open(file, true, flags);
}

OPlatformByteStream::OPlatformByteStream(bool, const File& file, PlatformStreamFlags)
    : record_(new Record{file, kNoHandle}) {}

OPlatformByteStream::~OPlatformByteStream() {
  if (record_->handle != kNoHandle) platform::CloseFileStream(record_->handle);
}

void OPlatformByteStream::SetPlatformHandle(long long handle) { record_->handle = handle; }

void OPlatformByteStream::Put(unsigned char byte) {
  CheckIo(platform::WriteFileStream(record_->handle, &byte, 1));
}

void OPlatformByteStream::WriteBlock(const unsigned char* src, std::uint32_t count) {
  CheckIo(platform::WriteFileStream(record_->handle, src, count));
}

void OPlatformByteStream::CurPos(unsigned long long pos) {
  CheckIo(platform::SetFileStreamPosition(record_->handle, pos));
}

unsigned long long OPlatformByteStream::CurPos() const { return Position(record_->handle); }

void OPlatformByteStream::OSFlush() { CheckIo(platform::SyncFileStream(record_->handle)); }

void OPlatformByteStream::Truncate(unsigned long long length) {
  const unsigned long long size = Size(record_->handle);
  if (length > size) throw eof_error();
  CurPos(length);
  CheckIo(platform::SetFileStreamLength(record_->handle, length));
}

unsigned long long OPlatformByteStream::Length() const { return Size(record_->handle); }

long long OPlatformByteStream::GetPlatformHandle() { return record_->handle; }

}  // namespace tvxcore::filesupport
