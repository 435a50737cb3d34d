// Runs a piece of a test without root's power to ignore permissions.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <functional>

namespace tvxtest {

// Runs `body` in a child process which, when the suite runs as root, first
// becomes the unprivileged user "nobody" (65534). Returns the exit status
// `body` returns (0 to 99), or -1 when the child could not be made, could not
// give up root or did not exit normally.
inline int RunUnprivileged(const std::function<int()>& body) {
  const pid_t child = fork();
  if (child == -1) return -1;
  if (child == 0) {
    if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(100);
    _exit(body());
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  const int code = WEXITSTATUS(status);
  return code == 100 ? -1 : code;
}

}  // namespace tvxtest
