// Where debug text goes before a trace manager takes it over.
#pragma once

#include <cstddef>

namespace tvxcore::platform {

// Writes `size` bytes to the process's standard error, unbuffered; failures
// are ignored (diagnostics never report through themselves).
void WriteStandardError(const char* data, std::size_t size) noexcept;

// The platform's debugger output: the bytes go to standard error when a
// debugger (a tracer) is attached to the process, and nowhere otherwise.
// Takes no lock and allocates nothing, so the allocator and the trace code
// may use it.
void WriteDebuggerOutput(const char* data, std::size_t size) noexcept;

}  // namespace tvxcore::platform
