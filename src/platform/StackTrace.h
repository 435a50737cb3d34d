// The calling thread's stack, and what the debug information says about a
// code address: function, source file and line (elfutils libdw).
#pragma once

#include <cstddef>
#include <string>

namespace tvxcore::platform {

// Walks the calling thread's stack into `frames`, at most `maxFrames`,
// after skipping `skip` frames; frame 0 is the caller of CaptureStack. Each
// frame is an address inside the instruction that made the call (the return
// address less one), or, for a frame that a signal interrupted, the
// interrupted instruction itself, so every frame lies in the source line it
// stands for. Returns the count stored. Async-signal-safe once
// PrepareStackReport has run: no lock, no allocation.
std::size_t CaptureStack(void** frames, std::size_t maxFrames, std::size_t skip) noexcept;

// What the debug information says about one code address.
struct CodePosition {
  std::string function;  // demangled; empty when no symbol covers it
  std::string file;      // absolute where the compiler recorded its folder
  unsigned long line = 0;
  std::string module;  // path of the executable or library
};

// Describes `address`; false when it lies in no loaded module or neither a
// symbol nor a line covers it. Reads the debug information of the module on
// first use (separate debug files are not searched, nor any server), and
// keeps it for the process. Thread-safe: lookups take one lock in turn.
bool DescribeCode(const void* address, CodePosition& out);

// Makes what a report from a fault handler needs before a fault can happen:
// the unwinder's first-use setup. Call at install time.
void PrepareStackReport() noexcept;

// Writes `frames` to standard error, one a line ("  #3 0x... Function() at
// /src/file.cpp:42"). Async-signal-safe in the calling process: names are
// looked up in a child process, which writes them through a pipe; when the
// child fails or takes longer than a few seconds the frames are written as
// bare addresses instead.
void WriteStackReport(void* const* frames, std::size_t count) noexcept;

}  // namespace tvxcore::platform
