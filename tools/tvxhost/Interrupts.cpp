#include "Interrupts.h"

#include <csignal>

namespace tvxhost {
namespace {

volatile std::sig_atomic_t interrupted = 0;

extern "C" void OnInterrupt(int) { interrupted = 1; }

void Restore(int signal, void (*previous)(int)) {
  std::signal(signal, previous == SIG_ERR ? SIG_DFL : previous);
}

}  // namespace

InterruptGuard::InterruptGuard()
    : previousInt_(std::signal(SIGINT, OnInterrupt)),
      previousTerm_(std::signal(SIGTERM, OnInterrupt)) {
  interrupted = 0;
}

InterruptGuard::~InterruptGuard() {
  Restore(SIGINT, previousInt_);
  Restore(SIGTERM, previousTerm_);
}

bool InterruptGuard::Interrupted() { return interrupted != 0; }

void InterruptGuard::Interrupt() { interrupted = 1; }

}  // namespace tvxhost
