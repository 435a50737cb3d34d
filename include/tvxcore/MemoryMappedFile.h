// tvxcore/MemoryMappedFile.h: named shared memory for exchanging data between
// processes.
#pragma once

#include <cstddef>
#include <string>

#include "tvxcore/Export.h"

namespace tvxcore {

// Option bits of Open() and Init().
enum : unsigned long {
  kMappedFileCreate = 1,             // create the block if nobody has
  kMappedFileMapAtOnce = 8,          // map the view as soon as the block is open
  kMappedFileWrite = 16,             // write access wanted; read-only if refused
  kMappedFileWriteOrFail = 32,       // write access wanted, no read-only fall-back
  kMappedFileCreated = 0x40000000,   // state: this object created the block
  kMappedFileWritable = 0x80000000,  // state: the block is open for writing
};

// A named block of shared memory, not backed by any file on disk. Processes
// meet by name: the first to open with kMappedFileCreate creates the block
// with the size it asks for, the others open what is there. The creator
// removes the name when it lets go (Reset, another Open, destruction); those
// that have the block open keep it until they let go, while a later creator
// makes a new block under the same name.
//
// Failures are reported by Open's result, and by throwing the `long` value
// kErrorMappedFileException from Init and GetAddress.
//
// Not synchronised: one object belongs to one thread at a time. A copy is a
// view of the original's fields for reading them: it shares the original's
// mapping but never unmaps, closes or removes anything, and its address is
// valid only as long as the original keeps its view.
class TVXCORE_EXPORT MemoryMappedFile {
 public:
  static constexpr long kErrorMappedFileException = 9002;

  MemoryMappedFile() = default;
  MemoryMappedFile(const MemoryMappedFile& other);
  MemoryMappedFile& operator=(const MemoryMappedFile& other);
  virtual ~MemoryMappedFile();

  // Lets go of what is held, then opens `name` as `flags` say. Only the low
  // 32 bits of `size` are used. With kMappedFileMapAtOnce, a failure asks the
  // installed error manager's PurgeMemory(size) and tries once more.
  bool Open(const std::string& name, unsigned long long size, unsigned long flags);
  // As Open, but throws kErrorMappedFileException where Open returns false.
  void Init(const std::string& name, unsigned long long size, unsigned long flags);

  // The view, mapped now if it wasn't; throws kErrorMappedFileException if
  // there is none.
  void* GetAddress();
  unsigned long long Size() const { return size_; }
  void GetName(std::string& outName) const { outName = name_; }
  // A view exists and the block was opened for writing.
  bool MappedMemoryIsWritable() const;

  // Unmaps the view; the block stays open.
  void UnmapMemory();
  // The same as UnmapMemory: the block stays open.
  void CloseFileHandleIfPossible();
  // Unmaps, closes the block (removing its name if this object created it)
  // and clears the state bits.
  void Reset();

 protected:
  // Opens over the stored name, size and flags; see Open.
  bool Open();
  // As Open(), throwing kErrorMappedFileException on failure.
  void Init();

 private:
  void MapAddress();

  int handle_ = -1;
  std::string name_;
  unsigned long long size_ = 0;
  void* address_ = nullptr;
  unsigned long flags_ = 0;
  std::size_t mappedBytes_ = 0;
  bool owner_ = true;  // false for a copy
};

}  // namespace tvxcore
