#include "platform/SharedMemory.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/internal/Posix.h"

namespace tvxcore::platform {
namespace {

// NAME_MAX less the "/" and room the C library may add.
constexpr std::size_t kLongestName = 250;

bool HasPrefix(const std::string& text, const char* prefix, std::size_t length) {
  return text.compare(0, length, prefix, length) == 0;
}

}  // namespace

bool SharedMemoryName(const std::string& name, std::string& outSystemName) {
  std::size_t start = 0;
  if (HasPrefix(name, "Local\\", 6))
    start = 6;
  else if (HasPrefix(name, "Global\\", 7))
    start = 7;
  const std::size_t length = name.size() - start;
  if (length == 0 || length > kLongestName) return false;
  if (name.find_first_of(std::string("/\\\0", 3), start) != std::string::npos) return false;
  if (name.compare(start, std::string::npos, ".") == 0 ||
      name.compare(start, std::string::npos, "..") == 0)
    return false;
  outSystemName = "/" + name.substr(start);
  return true;
}

int CreateSharedMemory(const std::string& name, std::uint64_t size,
                       bool& outAlreadyExists) noexcept {
  outAlreadyExists = false;
  try {
    std::string systemName;
    if (size == 0 || !SharedMemoryName(name, systemName)) return -1;
    const int fd = internal::RetryOnEintr([&] {
      return ::shm_open(systemName.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    });
    if (fd < 0) {
      outAlreadyExists = errno == EEXIST;
      return -1;
    }
    if (internal::RetryOnEintr([&] { return ::ftruncate(fd, static_cast<off_t>(size)); }) != 0) {
      ::shm_unlink(systemName.c_str());
      ::close(fd);
      return -1;
    }
    return fd;
  } catch (...) {
    return -1;
  }
}

int OpenSharedMemory(const std::string& name, bool writable) noexcept {
  try {
    std::string systemName;
    if (!SharedMemoryName(name, systemName)) return -1;
    return internal::RetryOnEintr([&] {
      return ::shm_open(systemName.c_str(), (writable ? O_RDWR : O_RDONLY) | O_CLOEXEC, 0);
    });
  } catch (...) {
    return -1;
  }
}

void* MapSharedMemory(int fd, bool writable, std::size_t& outSize) noexcept {
  outSize = 0;
  struct stat info;
  if (::fstat(fd, &info) != 0 || info.st_size <= 0) return nullptr;
  const std::size_t size = static_cast<std::size_t>(info.st_size);
  void* address =
      ::mmap(nullptr, size, writable ? PROT_READ | PROT_WRITE : PROT_READ, MAP_SHARED, fd, 0);
  if (address == MAP_FAILED) return nullptr;
  outSize = size;
  return address;
}

void UnmapSharedMemory(void* address, std::size_t size) noexcept {
  if (address != nullptr) ::munmap(address, size);
}

void CloseSharedMemory(int fd) noexcept {
  if (fd >= 0) ::close(fd);
}

void RemoveSharedMemoryName(const std::string& name) noexcept {
  try {
    std::string systemName;
    if (SharedMemoryName(name, systemName)) ::shm_unlink(systemName.c_str());
  } catch (...) {
  }
}

}  // namespace tvxcore::platform
