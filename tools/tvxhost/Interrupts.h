// Ctrl-C and SIGTERM while a long command runs (copy, watch): the guard
// installs handlers that only raise a flag, which the command reads from its
// loop, and puts the previous handlers back when it ends.
#pragma once

namespace tvxhost {

class InterruptGuard {
 public:
  InterruptGuard();
  ~InterruptGuard();
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;

  // True once SIGINT or SIGTERM arrived while a guard was alive.
  static bool Interrupted();
  // Counts as an interrupt (Ctrl-C read as a key in character mode).
  static void Interrupt();

 private:
  void (*previousInt_)(int);
  void (*previousTerm_)(int);
};

}  // namespace tvxhost
