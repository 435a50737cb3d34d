#include "tvxcore/MemoryMappedFile.h"

#include "platform/SharedMemory.h"
#include "tvxcore/config/Errors.h"

namespace tvxcore {
namespace {

// Only the low 32 bits of a size reach the system.
constexpr unsigned long long kSystemSizeMask = 0xFFFFFFFFull;

}  // namespace

MemoryMappedFile::MemoryMappedFile(const MemoryMappedFile& other)
    : handle_(other.handle_),
      name_(other.name_),
      size_(other.size_),
      address_(other.address_),
      flags_(other.flags_),
      mappedBytes_(other.mappedBytes_),
      owner_(false) {}

MemoryMappedFile& MemoryMappedFile::operator=(const MemoryMappedFile& other) {
  if (this == &other) return *this;
  Reset();
  handle_ = other.handle_;
  name_ = other.name_;
  size_ = other.size_;
  address_ = other.address_;
  flags_ = other.flags_;
  mappedBytes_ = other.mappedBytes_;
  owner_ = false;
  return *this;
}

MemoryMappedFile::~MemoryMappedFile() { Reset(); }

bool MemoryMappedFile::Open(const std::string& name, unsigned long long size, unsigned long flags) {
  Reset();
  name_ = name;
  size_ = size;
  flags_ = flags & ~static_cast<unsigned long>(kMappedFileCreated | kMappedFileWritable);
  if (Open()) return true;
  Reset();
  if (flags & kMappedFileMapAtOnce) {
    // Without an installed manager there is nobody to ask; Open still
    // answers false rather than throwing the manager's logic_error.
    if (config::ErrorManager* manager = config::ErrorManager::Get(true)) manager->PurgeMemory(size);
    if (Open()) return true;
    Reset();
  }
  return false;
}

void MemoryMappedFile::Init(const std::string& name, unsigned long long size, unsigned long flags) {
  if (!Open(name, size, flags)) throw kErrorMappedFileException;
}

void MemoryMappedFile::Init() {
  if (!Open(name_, size_, flags_)) throw kErrorMappedFileException;
}

bool MemoryMappedFile::Open() {
  const bool write = (flags_ & (kMappedFileWrite | kMappedFileWriteOrFail)) != 0;
  owner_ = true;
  bool created = false;
  if (flags_ & kMappedFileCreate) {
    bool exists = false;
    handle_ = platform::CreateSharedMemory(name_, size_ & kSystemSizeMask, exists);
    if (handle_ >= 0) {
      created = true;
      flags_ |= kMappedFileCreated;
    }
  }
  if (!created) handle_ = platform::OpenSharedMemory(name_, true);
  if (write && handle_ >= 0) flags_ |= kMappedFileWritable;
  if (!(flags_ & kMappedFileWriteOrFail) && handle_ < 0)
    handle_ = platform::OpenSharedMemory(name_, false);
  if (handle_ < 0) return false;
  if (!(flags_ & kMappedFileMapAtOnce)) return true;
  MapAddress();
  return address_ != nullptr;
}

void MemoryMappedFile::MapAddress() {
  if (handle_ < 0) handle_ = platform::OpenSharedMemory(name_, true);
  if (address_ == nullptr && handle_ >= 0)
    address_ =
        platform::MapSharedMemory(handle_, (flags_ & kMappedFileWritable) != 0, mappedBytes_);
}

void* MemoryMappedFile::GetAddress() {
  if (address_ == nullptr) MapAddress();
  if (address_ == nullptr) throw kErrorMappedFileException;
  return address_;
}

bool MemoryMappedFile::MappedMemoryIsWritable() const {
  return address_ != nullptr && (flags_ & kMappedFileWritable) != 0;
}

void MemoryMappedFile::UnmapMemory() {
  if (address_ != nullptr && owner_) platform::UnmapSharedMemory(address_, mappedBytes_);
  address_ = nullptr;
  mappedBytes_ = 0;
}

void MemoryMappedFile::CloseFileHandleIfPossible() { UnmapMemory(); }

void MemoryMappedFile::Reset() {
  UnmapMemory();
  if (handle_ >= 0 && owner_) {
    platform::CloseSharedMemory(handle_);
    if (flags_ & kMappedFileCreated) platform::RemoveSharedMemoryName(name_);
  }
  handle_ = -1;
  flags_ &= ~static_cast<unsigned long>(kMappedFileCreated | kMappedFileWritable);
  owner_ = true;
}

}  // namespace tvxcore
