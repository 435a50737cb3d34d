// Facts about the host and the running process, and the debugger services
// the error road needs (fault signals are in Signals.h). Linux implementation in
// HostInfo_linux.cpp; nothing here throws.
#pragma once

#include <cstdint>
#include <string>

namespace tvxcore::platform {

// Processors this process may run on (affinity mask); the online processor
// count when the mask cannot be read; never below 1.
std::uint32_t ProcessorCount() noexcept;

// Physical memory of the machine in bytes; 0 when unknown.
std::uint64_t PhysicalMemoryBytes() noexcept;

// True when a tracer (debugger) is attached to this process.
bool TracerAttached() noexcept;

// Stops in the attached debugger (SIGTRAP). Call only when one is attached.
void TrapIntoDebugger() noexcept;

// The name of the user's locale from the environment (LC_ALL, LC_NUMERIC,
// LANG, first non-empty), or "C".
std::string NativeLocaleName();

// Folder of the loaded object (shared library or executable) that contains
// `address`, without a trailing "/"; empty when unknown.
std::string ModuleDirectoryOf(const void* address);

// Folder of the main executable, without a trailing "/"; empty when unknown.
std::string ExecutableDirectory();

// True when `path` names an existing directory.
bool IsDirectory(const std::string& path) noexcept;

// The file name of the main executable ("tvxhost"), from /proc/self/exe;
// the kernel's command name when that cannot be read.
std::string ProcessName();

// The system's name of the calling thread (at most 15 bytes); empty when
// it cannot be read.
std::string CurrentThreadName();

// True when the environment holds `name`, whatever its value (even empty).
bool HasEnvironmentVariable(const char* name) noexcept;

// Ends the process at once with exit status 255: no destructors, no exit
// handlers, no flushing of buffered streams.
[[noreturn]] void TerminateCurrentProcess() noexcept;

}  // namespace tvxcore::platform
