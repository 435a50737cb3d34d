#include <setjmp.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>

#include "platform/Signals.h"

namespace tvxcore::platform {

std::uint32_t ExceptionCodeForSignal(int signalNumber, int signalCode) noexcept {
  switch (signalNumber) {
    case SIGSEGV:
      return 0xC0000005u;  // access violation, whatever the cause
    case SIGBUS:
      return signalCode == BUS_ADRALN ? 0x80000002u : 0xC0000005u;
    case SIGFPE:
      switch (signalCode) {
        case FPE_INTDIV:
          return 0xC0000094u;
        case FPE_INTOVF:
          return 0xC0000095u;
        case FPE_FLTDIV:
          return 0xC000008Eu;
        case FPE_FLTOVF:
          return 0xC0000091u;
        case FPE_FLTUND:
          return 0xC0000093u;
        case FPE_FLTRES:
          return 0xC000008Fu;
        case FPE_FLTINV:
          return 0xC0000090u;
        case FPE_FLTSUB:
          return 0xC000008Cu;
        default:
          return 0;
      }
    case SIGILL:
      switch (signalCode) {
        case ILL_PRVOPC:
        case ILL_PRVREG:
          return 0xC0000096u;
        case ILL_ILLOPC:
        case ILL_ILLOPN:
        case ILL_ILLADR:
        case ILL_ILLTRP:
        case ILL_COPROC:
        case ILL_BADSTK:
          return 0xC000001Du;  // illegal instruction
        default:
          return 0;
      }
    case SIGTRAP:
      switch (signalCode) {
        case TRAP_BRKPT:
          return 0x80000003u;
        case TRAP_TRACE:
          return 0x80000004u;
        default:
          return 0;
      }
    default:
      return 0;
  }
}

namespace {

constexpr int kFaultSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};
// Room for the report on the alternate stack, including a stack walk and the
// child that looks up names (it starts on a copy of this stack). Mapped once,
// committed only where touched.
constexpr std::size_t kAlternateStackSize = 1024 * 1024;

std::atomic<FaultSignalCallback> g_faultCallback{nullptr};
// The kernel id of the thread reporting a fault; 0 while none is.
std::atomic<long> g_reportingThread{0};
FaultSignal g_currentFault{};

struct GuardFrame {
  sigjmp_buf jump;
  GuardFilter filter;
  void* filterContext;
  GuardFrame* outer;
};
// Read by the fault handler: initial-exec keeps the access a plain offset
// from the thread pointer, with no lazy allocation inside a signal handler.
thread_local GuardFrame* t_guard __attribute__((tls_model("initial-exec"))) = nullptr;

long KernelThreadId() noexcept { return ::syscall(SYS_gettid); }

const void* FaultingInstruction(void* context) noexcept {
  if (!context) return nullptr;
  const auto* machine = &static_cast<const ucontext_t*>(context)->uc_mcontext;
#if defined(__x86_64__)
  return reinterpret_cast<const void*>(machine->gregs[REG_RIP]);
#elif defined(__aarch64__)
  return reinterpret_cast<const void*>(machine->pc);
#else
  (void)machine;
  return nullptr;
#endif
}

[[noreturn]] void TakeDefaultAction(int signalNumber) noexcept {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  sigemptyset(&action.sa_mask);
  ::sigaction(signalNumber, &action, nullptr);
  sigset_t unblock;
  sigemptyset(&unblock);
  sigaddset(&unblock, signalNumber);
  ::pthread_sigmask(SIG_UNBLOCK, &unblock, nullptr);
  ::raise(signalNumber);
  // A fault signal that was blocked or ignored elsewhere still ends here.
  ::_exit(128 + signalNumber);
}

void OnFaultSignal(int signalNumber, siginfo_t* info, void* context) {
  const FaultSignal fault{ExceptionCodeForSignal(signalNumber, info ? info->si_code : 0),
                          signalNumber, info ? info->si_addr : nullptr,
                          FaultingInstruction(context)};
  if (GuardFrame* guard = t_guard) {
    t_guard = guard->outer;
    if (guard->filter(fault.exceptionCode, guard->filterContext)) siglongjmp(guard->jump, 1);
  }
  const long self = KernelThreadId();
  long reporting = 0;
  if (!g_reportingThread.compare_exchange_strong(reporting, self)) {
    if (reporting == self) TakeDefaultAction(signalNumber);  // the report itself faulted
    for (;;) ::pause();  // the reporting thread ends the process
  }
  g_currentFault = fault;
  const FaultSignalCallback callback = g_faultCallback.load();
  if (callback && callback(fault)) ::_exit(255);
  TakeDefaultAction(signalNumber);
}

void GiveThreadAnAlternateStack() {
  static void* stackMemory = nullptr;
  if (stackMemory) return;
  void* memory = ::mmap(nullptr, kAlternateStackSize, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_STACK, -1, 0);
  if (memory == MAP_FAILED) return;
  stack_t stack{};
  stack.ss_sp = memory;
  stack.ss_size = kAlternateStackSize;
  if (::sigaltstack(&stack, nullptr) != 0) {
    ::munmap(memory, kAlternateStackSize);
    return;
  }
  stackMemory = memory;
}

}  // namespace

void SetFaultSignalCallback(FaultSignalCallback callback) {
  g_faultCallback.store(callback);
  struct sigaction action {};
  sigemptyset(&action.sa_mask);
  if (!callback) {
    action.sa_handler = SIG_DFL;
  } else {
    GiveThreadAnAlternateStack();
    action.sa_sigaction = OnFaultSignal;
    // SA_NODEFER: a fault inside the report is caught by the handler again,
    // which then takes the default action instead of hanging blocked.
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
  }
  for (int signalNumber : kFaultSignals) ::sigaction(signalNumber, &action, nullptr);
}

const FaultSignal* CurrentFaultSignal() noexcept {
  const long reporting = g_reportingThread.load();
  return reporting != 0 && reporting == KernelThreadId() ? &g_currentFault : nullptr;
}

bool RunGuarded(GuardedBody body, void* context, GuardFilter filter, void* filterContext) {
  GuardFrame frame;
  frame.filter = filter;
  frame.filterContext = filterContext;
  frame.outer = t_guard;
  if (sigsetjmp(frame.jump, 1) != 0) {
    // The handler has already put the outer guard back.
    return false;
  }
  t_guard = &frame;
  body(context);
  t_guard = frame.outer;
  return true;
}

}  // namespace tvxcore::platform
