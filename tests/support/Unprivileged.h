// Runs a piece of a test in a forked child process: to survive a crash or a
// stack overflow it provokes, to see a fresh process's view of the library,
// or without root's power to ignore permissions.
#pragma once

#include <functional>

namespace tvxtest {

// Runs `body` in a forked child and returns the exit status it returns (0 to
// 99), or -1 when the child could not be made or did not exit normally (a
// signal, a crash). With `unprivileged`, a child of a suite run as root first
// becomes the user "nobody" (65534), and -1 also means it could not.
int RunInChild(const std::function<int()>& body, bool unprivileged = false);

inline int RunUnprivileged(const std::function<int()>& body) { return RunInChild(body, true); }

}  // namespace tvxtest
