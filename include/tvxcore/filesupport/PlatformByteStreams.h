// tvxcore/filesupport/PlatformByteStreams.h: byte streams over a file of the
// operating system.
//
// IPlatformByteStream reads a file and OPlatformByteStream writes one, each
// through one system call per operation and with no buffer of its own: put
// them behind IBufferedByteStream / OBufferedByteStream (BufferedByteStreams.h)
// for anything but block transfers.
#pragma once

#include <cstdint>
#include <memory>

#include "tvxcore/Export.h"
#include "tvxcore/filesupport/ByteStream.h"
#include "tvxcore/filesupport/File.h"
#include "tvxcore/utility/Flags.h"

namespace tvxcore::filesupport {

// Flags of the platform streams. Only kPlatformStreamShared has an effect; the
// library's own callers pass kPlatformStreamDefault.
enum : std::uint32_t {
  kPlatformStreamDefault = 1,
  // Lets other streams write the file while a reader has it open, and read it
  // while a writer has it open. See "Sharing" below.
  kPlatformStreamShared = 2,
};

using PlatformStreamFlags = utility::Flags<std::uint32_t>;

// Opening. Both streams open an existing file and never create one: a writer's
// caller calls File::Create first. A missing file, or a missing directory on
// its path, gives file_not_found_exception for the file; any other failure to
// open (a directory, no permission, a sharing conflict) gives io_error.
//
// Sharing. A stream's share mode is kept by advisory flock() locks, so it
// excludes only other opens that lock too: the streams of this library, in
// this process or any other, and programs that use flock() themselves. A
// reader without kPlatformStreamShared takes a shared lock (other readers
// welcome, writers kept out); a writer takes an exclusive lock, with or
// without the flag (nobody else may write; without the flag nobody else may
// read either, but a reader with kPlatformStreamShared takes no lock and so is
// never refused). A reader with kPlatformStreamShared takes no lock at all.
// A conflict refuses the open at once with io_error; it never waits. On a
// file system without flock() the streams open unlocked.
//
// Reading. The count of bytes really moved is not looked at: at the end of an
// ordinary file the system reports success with 0 bytes, so Get() there
// yields 0 and ReadBlock() leaves the target as it was, with no exception.
// Read a file to its end by means of Length() or AtTheEnd(). eof_error comes
// only when the platform itself reports the end as an error, which Linux does
// not do for files.
//
// Every other platform failure is io_error. Positions may be set beyond the
// end of the file. Streams belong to one thread at a time and take no lock.

class OPlatformByteStream;

// Reads a file. Owns its descriptor when it opened it; one made from an
// OPlatformByteStream reads through the writer's descriptor, sharing its file
// position, and must not outlive it.
class TVXCORE_EXPORT IPlatformByteStream : public IByteStream {
 public:
  // Opens `file` for reading at once.
  IPlatformByteStream(const File& file, PlatformStreamFlags flags);
  // Opens nothing: reads through `out`'s handle and never closes it. A null
  // `out` gives a stream without a handle, whose operations fail with
  // io_error.
  explicit IPlatformByteStream(OPlatformByteStream* out);
  ~IPlatformByteStream() override;

  unsigned char Get() override;
  // One system call for the whole block.
  void ReadBlock(unsigned char* dst, std::uint32_t count) override;
  void CurPos(unsigned long long pos) override;
  unsigned long long CurPos() const override;
  // The size of the file now.
  unsigned long long Length() const override;

  // The file descriptor, -1 when there is none.
  virtual long long GetPlatformHandle();

 private:
  struct Record;
  std::unique_ptr<Record> record_;
};

// Writes an existing file, from position 0 (nothing is truncated on opening).
// Always owns its descriptor and closes it when it dies, without syncing:
// OSFlush() is the caller's.
class TVXCORE_EXPORT OPlatformByteStream : public OByteStream {
 public:
  // Opens `file` for reading and writing at once.
  OPlatformByteStream(const File& file, PlatformStreamFlags flags);
  ~OPlatformByteStream() override;

  void Put(unsigned char byte) override;
  // One system call for the whole block.
  void WriteBlock(const unsigned char* src, std::uint32_t count) override;
  void CurPos(unsigned long long pos) override;
  unsigned long long CurPos() const override;
  // fsync(): data and metadata reach the storage device.
  void OSFlush() override;
  // Shrinks the file to `length` and leaves the position there. A `length`
  // beyond the size gives eof_error and changes nothing.
  void Truncate(unsigned long long length) override;

  // The size of the file now.
  virtual unsigned long long Length() const;
  // The file descriptor, -1 when there is none.
  virtual long long GetPlatformHandle();

 protected:
  // Opens nothing; the bool only selects this form. The stream has no handle
  // until SetPlatformHandle() gives it one. `file` is kept but not opened.
  OPlatformByteStream(bool, const File& file, PlatformStreamFlags flags);
  // Hands the stream a descriptor, which it then owns and closes when it
  // dies. A descriptor held before is not closed here: setting -1 hands the
  // old one back to the derived class.
  void SetPlatformHandle(long long handle);

 private:
  struct Record;
  std::unique_ptr<Record> record_;
};

}  // namespace tvxcore::filesupport
