#include "support/Unprivileged.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

namespace tvxtest {

int RunInChild(const std::function<int()>& body, bool unprivileged) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == -1) return -1;
  if (child == 0) {
    if (unprivileged && geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(100);
    _exit(body());
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  const int code = WEXITSTATUS(status);
  return code == 100 ? -1 : code;
}

}  // namespace tvxtest
