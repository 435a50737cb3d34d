#include <cxxabi.h>
#include <dwarf.h>
#include <elfutils/libdw.h>
#include <elfutils/libdwfl.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <ucontext.h>
#include <unistd.h>
#include <unwind.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/SignalSafeText.h"
#include "platform/StackTrace.h"
#include "platform/internal/Posix.h"

namespace tvxcore::platform {
namespace {

// Stack walking -------------------------------------------------------------

struct Walk {
  void** frames;
  std::size_t maxFrames;
  std::size_t skip;
  std::size_t count;
};

_Unwind_Reason_Code StepFrame(_Unwind_Context* context, void* argument) {
  Walk& walk = *static_cast<Walk*>(argument);
  int interrupted = 0;  // 1: a signal stopped this frame before the instruction ran
  std::uintptr_t address = _Unwind_GetIPInfo(context, &interrupted);
  if (address == 0) return _URC_END_OF_STACK;
  if (!interrupted) --address;
  if (walk.skip > 0) {
    --walk.skip;
    return _URC_NO_REASON;
  }
  if (walk.count >= walk.maxFrames) return _URC_END_OF_STACK;
  walk.frames[walk.count++] = reinterpret_cast<void*>(address);
  return _URC_NO_REASON;
}

// Symbols and lines -----------------------------------------------------------

// Separate debug files are not looked for: the standard search would also ask
// a debuginfod server when DEBUGINFOD_URLS is set, which has no place in an
// assertion or a crash. The module's own sections are used.
int NoSeparateDebugInfo(Dwfl_Module*, void**, const char*, Dwarf_Addr, const char*, const char*,
                        GElf_Word, char**) {
  return -1;
}

const Dwfl_Callbacks kCallbacks = {
    dwfl_linux_proc_find_elf,
    NoSeparateDebugInfo,
    dwfl_offline_section_address,
    nullptr,
};

// Reports the process's current modules to `dwfl`, replacing earlier ones.
bool ReportModules(Dwfl* dwfl) {
  dwfl_report_begin(dwfl);
  const int reported = dwfl_linux_proc_report(dwfl, ::getpid());
  return dwfl_report_end(dwfl, nullptr, nullptr) == 0 && reported == 0;
}

std::string Demangled(const char* symbol) {
  int status = -1;
  char* demangled = abi::__cxa_demangle(symbol, nullptr, nullptr, &status);
  if (status != 0 || !demangled) return symbol;
  std::string result(demangled);
  std::free(demangled);
  return result;
}

std::string InFolder(const char* file, const char* folder) {
  std::string path = file;
  if (!path.empty() && path.front() != '/' && folder && *folder)
    path = std::string(folder) + (folder[std::strlen(folder) - 1] == '/' ? "" : "/") + path;
  return path;
}

// Code inlined into the symbol's function has the line of the inlined
// source in the line table. The function's own line is where the outermost
// inlined call was made: that call's file and line replace the table's, so
// that the line always lies in the function the frame names. False when the
// address is in no inlined code (or the debug information does not say).
bool OutermostInlinedCall(Dwfl_Module* module, std::uintptr_t address, CodePosition& out) {
  Dwarf_Addr bias = 0;
  Dwarf_Die* unit = dwfl_module_addrdie(module, address, &bias);
  if (!unit) return false;
  Dwarf_Die* scopes = nullptr;
  const int count = dwarf_getscopes(unit, address - bias, &scopes);
  int outermost = -1;
  for (int i = 0; i < count; ++i) {
    const int tag = dwarf_tag(&scopes[i]);
    if (tag == DW_TAG_subprogram) break;
    if (tag == DW_TAG_inlined_subroutine) outermost = i;
  }
  bool found = false;
  Dwarf_Attribute attribute;
  Dwarf_Word line = 0, fileIndex = 0;
  Dwarf_Files* files = nullptr;
  std::size_t fileCount = 0;
  if (outermost >= 0 &&
      dwarf_formudata(dwarf_attr(&scopes[outermost], DW_AT_call_line, &attribute), &line) == 0 &&
      dwarf_formudata(dwarf_attr(&scopes[outermost], DW_AT_call_file, &attribute), &fileIndex) ==
          0 &&
      dwarf_getsrcfiles(unit, &files, &fileCount) == 0 && fileIndex < fileCount) {
    if (const char* file = dwarf_filesrc(files, fileIndex, nullptr, nullptr)) {
      const char* folder = dwarf_formstring(dwarf_attr(unit, DW_AT_comp_dir, &attribute));
      out.file = InFolder(file, folder);
      out.line = static_cast<unsigned long>(line);
      found = true;
    }
  }
  std::free(scopes);
  return found;
}

bool Describe(Dwfl* dwfl, std::uintptr_t address, CodePosition& out) {
  Dwfl_Module* module = dwfl_addrmodule(dwfl, address);
  if (!module) return false;
  if (const char* name =
          dwfl_module_info(module, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr))
    out.module = name;
  GElf_Off offset = 0;
  GElf_Sym symbol{};
  const char* function =
      dwfl_module_addrinfo(module, address, &offset, &symbol, nullptr, nullptr, nullptr);
  if (function && *function) out.function = Demangled(function);
  if (OutermostInlinedCall(module, address, out)) return true;
  if (Dwfl_Line* line = dwfl_module_getsrc(module, address)) {
    int lineNumber = 0;
    if (const char* file = dwfl_lineinfo(line, nullptr, &lineNumber, nullptr, nullptr, nullptr)) {
      out.file = InFolder(file, dwfl_line_comp_dir(line));
      out.line = lineNumber > 0 ? static_cast<unsigned long>(lineNumber) : 0;
    }
  }
  return !out.function.empty() || !out.file.empty();
}

// One session for the process: libdwfl is not thread-safe, so lookups take
// turns. A plain std::mutex: this layer sits below the library's locks. The
// destructor leaves the session open, so a lookup during exit still works.
class Symbolizer {
 public:
  bool Describe(std::uintptr_t address, CodePosition& out) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!dwfl_) {
      dwfl_ = dwfl_begin(&kCallbacks);
      if (!dwfl_) return false;
      ReportModules(dwfl_);
    }
    // An address in no known module may be in a library loaded since.
    if (!dwfl_addrmodule(dwfl_, address)) ReportModules(dwfl_);
    return platform::Describe(dwfl_, address, out);
  }

 private:
  std::mutex mutex_;
  Dwfl* dwfl_ = nullptr;  // guarded by mutex_; kept for the process
};

Symbolizer& TheSymbolizer() {
  static Symbolizer symbolizer;
  return symbolizer;
}

// Async-signal-safe writing ------------------------------------------------------

void WriteAll(int fd, const char* data, std::size_t size) noexcept {
  (void)internal::WriteAll(fd, data, size);
}

void WriteBareFrames(void* const* frames, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) {
    SignalSafeLine line;
    line.Text("  #").Decimal(i).Text(" ").Address(frames[i]).Text("\n");
    WriteAll(STDERR_FILENO, line.data(), line.size());
  }
}

// The child's part: a copy of the process, free to allocate; only the
// crashed thread runs in it.
[[noreturn]] void SymbolizeInChild(int out, void* const* frames, std::size_t count) {
  for (int signalNumber : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) ::signal(signalNumber, SIG_DFL);
  Dwfl* dwfl = dwfl_begin(&kCallbacks);
  if (dwfl) ReportModules(dwfl);
  for (std::size_t i = 0; i < count; ++i) {
    const auto address = reinterpret_cast<std::uintptr_t>(frames[i]);
    CodePosition position;
    if (dwfl) Describe(dwfl, address, position);
    SignalSafeLine head;
    head.Text("  #").Decimal(i).Text(" ").Address(frames[i]).Text(" ");
    WriteAll(out, head.data(), head.size());
    std::string text = position.function.empty() ? "??" : position.function;
    if (!position.file.empty()) {
      text += " at " + position.file + ":" + std::to_string(position.line);
    } else if (!position.module.empty()) {
      text += " in " + position.module;
    }
    text += '\n';
    WriteAll(out, text.data(), text.size());
  }
  const char done = '\0';  // tells the parent that every frame was written
  WriteAll(out, &done, 1);
  ::_exit(0);
}

// The child starts on whatever stack the crashed thread's handler had: for a
// thread other than the installing one that may be a small alternate stack
// (a sanitizer gives each thread one), too small for libdwfl. Then it moves
// to a stack of its own first.
constexpr std::size_t kChildStackSize = 8 * 1024 * 1024;
constexpr std::size_t kEnoughStack = 512 * 1024;
struct ChildJob {
  int out;
  void* const* frames;
  std::size_t count;
};
ChildJob g_childJob;  // set in the child only, before it changes stacks

void RunChildJob() { SymbolizeInChild(g_childJob.out, g_childJob.frames, g_childJob.count); }

bool OnSmallAlternateStack() {
  stack_t current{};
  return ::sigaltstack(nullptr, &current) == 0 && (current.ss_flags & SS_ONSTACK) != 0 &&
         current.ss_size < kEnoughStack;
}

[[noreturn]] void SymbolizeOnEnoughStack(int out, void* const* frames, std::size_t count) {
  // The child's own complaints (a sanitizer's, say) stay out of the report.
  const int quiet = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (quiet >= 0) ::dup2(quiet, STDERR_FILENO);
  g_childJob = ChildJob{out, frames, count};
  void* const stack = OnSmallAlternateStack()
                          ? ::mmap(nullptr, kChildStackSize, PROT_READ | PROT_WRITE,
                                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0)
                          : MAP_FAILED;
  if (stack != MAP_FAILED) {
    ucontext_t here{}, there{};
    if (::getcontext(&there) == 0) {
      there.uc_stack.ss_sp = stack;
      there.uc_stack.ss_size = kChildStackSize;
      there.uc_link = nullptr;
      ::makecontext(&there, &RunChildJob, 0);
      ::swapcontext(&here, &there);
    }
  }
  SymbolizeInChild(out, frames, count);
}

long MillisecondsNow() noexcept {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000L + now.tv_nsec / 1000000L;
}

constexpr long kLookupTimeoutMs = 15000;

}  // namespace

__attribute__((noinline)) std::size_t CaptureStack(void** frames, std::size_t maxFrames,
                                                   std::size_t skip) noexcept {
  if (!frames || maxFrames == 0) return 0;
  // The walk starts in this function, which is not a frame of the result.
  Walk walk{frames, maxFrames, skip + 1, 0};
  _Unwind_Backtrace(&StepFrame, &walk);
  return walk.count;
}

bool DescribeCode(const void* address, CodePosition& out) {
  out = CodePosition();
  if (!address) return false;
  return TheSymbolizer().Describe(reinterpret_cast<std::uintptr_t>(address), out);
}

void PrepareStackReport() noexcept {
  void* frames[4];
  CaptureStack(frames, 4, 0);
}

void WriteStackReport(void* const* frames, std::size_t count) noexcept {
  if (!frames || count == 0) return;
  int pipeEnds[2];
  if (::pipe2(pipeEnds, O_CLOEXEC) != 0) {
    WriteBareFrames(frames, count);
    return;
  }
  const pid_t child = ::_Fork();
  if (child == 0) {
    ::close(pipeEnds[0]);
    SymbolizeOnEnoughStack(pipeEnds[1], frames, count);
  }
  ::close(pipeEnds[1]);
  if (child < 0) {
    ::close(pipeEnds[0]);
    WriteBareFrames(frames, count);
    return;
  }
  // Forward what the child writes, up to its end mark or the deadline.
  char buffer[1024];
  bool complete = false;
  const long deadline = MillisecondsNow() + kLookupTimeoutMs;
  while (!complete) {
    const long left = deadline - MillisecondsNow();
    if (left <= 0) break;
    pollfd ready{pipeEnds[0], POLLIN, 0};
    const int polled = ::poll(&ready, 1, static_cast<int>(left));
    if (polled < 0 && errno == EINTR) continue;
    if (polled <= 0) break;
    const ssize_t got =
        internal::RetryOnEintr([&] { return ::read(pipeEnds[0], buffer, sizeof buffer); });
    if (got <= 0) break;
    std::size_t length = static_cast<std::size_t>(got);
    if (const void* mark = std::memchr(buffer, '\0', length)) {
      length = static_cast<std::size_t>(static_cast<const char*>(mark) - buffer);
      complete = true;
    }
    WriteAll(STDERR_FILENO, buffer, length);
  }
  ::close(pipeEnds[0]);
  if (!complete) ::kill(child, SIGKILL);
  int status = 0;
  internal::RetryOnEintr([&] { return ::waitpid(child, &status, 0); });
  if (!complete) {
    static const char kNote[] = "  (names could not be looked up; the frames are:)\n";
    WriteAll(STDERR_FILENO, kNote, sizeof kNote - 1);
    WriteBareFrames(frames, count);
  }
}

}  // namespace tvxcore::platform
