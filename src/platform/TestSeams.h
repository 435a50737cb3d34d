// platform/TestSeams.h: fault injection for the library's own tests (not
// exported; reached by the internal tests, which link the static archive).
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace tvxcore::platform::seams {

// The calls a test can make fail.
enum class Fault {
  kSync,              // fsync of a file being committed (safe save, replacing copy)
  kWrite,             // one chunk of a file copy
  kPages,             // pages for a block the caller is about to fill (large allocations)
  kDirectoryWatch,    // inotify_add_watch of a watched directory
  kDirectoryWatcher,  // inotify_init1 of a change monitor
};

// The next call of kind `fault` fails with `err` (an errno) without being
// made; 0 withdraws a failure not yet taken.
void FailNext(Fault fault, int err);
// The next `times` calls of kind `fault` fail with `err`; 0 times withdraws.
void FailNextCalls(Fault fault, int err, int times);
// Called by the platform code before such a call: the errno to fail with
// (once), or 0 to go on.
int TakeFailure(Fault fault);

// Called by RemoveTree with a subdirectory's name just before it enters it,
// so a test can swap the directory for something else; empty to withdraw.
void SetBeforeDescend(std::function<void(const std::string& name)> hook);
void BeforeDescend(const std::string& name);

// Receives what WriteDebuggerOutput() writes, as though a debugger were
// attached; null to withdraw. A plain function: the debug output is written
// from places that must not allocate.
using DebuggerOutputCapture = void (*)(const char* data, std::size_t size);
void SetDebuggerOutputCapture(DebuggerOutputCapture capture);
DebuggerOutputCapture GetDebuggerOutputCapture();

}  // namespace tvxcore::platform::seams
