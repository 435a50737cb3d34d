// Named blocks of shared memory that any process of the user can open by
// name, backed by memory rather than a file on disk.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tvxcore::platform {

// How a name is turned into the system's name: false when the name is not
// valid. A leading "Local\" or "Global\" is dropped (there is one namespace);
// what remains must be 1 to 250 bytes without '/', '\' or a zero byte.
bool SharedMemoryName(const std::string& name, std::string& outSystemName);

// Creates the block `name` with `size` bytes, failing if it exists. Returns
// the descriptor, or -1 with `outAlreadyExists` telling whether another
// creator came first. A size of 0 is refused, as is an invalid name.
int CreateSharedMemory(const std::string& name, std::uint64_t size,
                       bool& outAlreadyExists) noexcept;

// Opens an existing block for reading and writing, or for reading only;
// -1 when there is none, it may not be opened that way, or the name is invalid.
int OpenSharedMemory(const std::string& name, bool writable) noexcept;

// Maps the whole block, shared, writable or read-only; null on failure.
// `outSize` receives the mapped length, which UnmapSharedMemory needs.
void* MapSharedMemory(int fd, bool writable, std::size_t& outSize) noexcept;

void UnmapSharedMemory(void* address, std::size_t size) noexcept;
void CloseSharedMemory(int fd) noexcept;

// Removes the name; blocks already open stay valid until their last user
// lets go.
void RemoveSharedMemoryName(const std::string& name) noexcept;

}  // namespace tvxcore::platform
