// Where debug text goes before a trace manager takes it over.
#pragma once

#include <cstddef>

namespace tvxcore::platform {

// Writes `size` bytes to the process's standard error, unbuffered; failures
// are ignored (diagnostics never report through themselves).
void WriteStandardError(const char* data, std::size_t size) noexcept;

}  // namespace tvxcore::platform
