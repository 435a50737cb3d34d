// Runs a piece of a test in a forked child: on a terminal of its own (a pty
// the test types into), or detached from any terminal. The child answers
// through its exit status; everything it writes to the terminal, and to
// standard output and standard error, comes back to the test.
#pragma once

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

namespace tvxtest {

struct ChildResult {
  int status = -1;       // raw wait status
  std::string terminal;  // what the child wrote to its terminal, "\r" removed
  std::string output;    // its standard output and standard error, "\r" kept
  bool timedOut = false;

  int ExitCode() const { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }
};

// How often `part` occurs in `text`, overlaps included.
inline std::size_t Count(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

namespace detail {

// Reads `fd` until end of file or the deadline; false on the deadline. Each
// time `prompt` appears once more in what was read, the next of `answers`
// is written to `fd`.
inline bool Drain(int fd, std::string& into, std::chrono::steady_clock::time_point deadline,
                  const std::vector<std::string>& answers = {},
                  const std::string& prompt = std::string()) {
  char buffer[4096];
  std::size_t given = 0;
  for (;;) {
    const std::size_t prompts = prompt.empty() ? 0 : Count(into, prompt);
    while (given < answers.size() && given < prompts) {
      const std::string& answer = answers[given++];
      if (write(fd, answer.data(), answer.size()) < 0) break;
    }
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                          deadline - std::chrono::steady_clock::now())
                          .count();
    if (left <= 0) return false;
    pollfd ready{fd, POLLIN, 0};
    const int polled = poll(&ready, 1, static_cast<int>(left));
    if (polled < 0) continue;
    if (polled == 0) return false;
    const ssize_t got = read(fd, buffer, sizeof buffer);
    if (got <= 0) return true;  // end of file, or EIO once a pty's child side is gone
    into.append(buffer, static_cast<std::size_t>(got));
  }
}

}  // namespace detail

// Forks; the child leaves the test's terminal (a session of its own), forgets
// $DISPLAY and $WAYLAND_DISPLAY, and with `withTerminal` opens a new pty as
// its controlling terminal. It runs `body` and exits with its result.
// `typed` is what a person types there, one answer (a line, or a lone ^D)
// each time a "Choice: " prompt appears. Standard output and error of the
// child go to one pipe.
inline ChildResult RunInChild(const std::function<int()>& body, bool withTerminal,
                              const std::string& typed = std::string(), int timeoutSeconds = 60) {
  ChildResult result;
  int master = -1;
  std::string slaveName;
  if (withTerminal) {
    master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) return result;
    slaveName = ptsname(master);
  }
  int output[2];
  if (pipe2(output, O_CLOEXEC) != 0) return result;
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    setsid();
    if (withTerminal) {
      // The first terminal a session leader opens becomes its controlling one.
      const int slave = open(slaveName.c_str(), O_RDWR);
      if (slave < 0) _exit(120);
    }
    dup2(output[1], STDOUT_FILENO);
    dup2(output[1], STDERR_FILENO);
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
    const int code = body();
    std::fflush(nullptr);
    _exit(code);
  }
  close(output[1]);
  if (child < 0) return result;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
  if (withTerminal) {
    std::vector<std::string> answers;
    for (char c : typed) {
      if (answers.empty() || answers.back().back() == '\n' || answers.back() == "\x04")
        answers.emplace_back();
      answers.back() += c;
    }
    result.timedOut = !detail::Drain(master, result.terminal, deadline, answers, "Choice: ");
    if (result.timedOut) kill(child, SIGKILL);
  }
  result.timedOut = !detail::Drain(output[0], result.output, deadline) || result.timedOut;
  if (result.timedOut) kill(child, SIGKILL);
  waitpid(child, &result.status, 0);
  close(output[0]);
  if (master >= 0) close(master);
  std::erase(result.terminal, '\r');
  return result;
}

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The executable's file name (as it was started) and the calling thread's
// system name, as the assertion text shows them.
inline std::string ExecutableName() { return program_invocation_short_name; }
inline std::string ThreadName() {
  std::string name = ReadFile("/proc/thread-self/comm");
  while (!name.empty() && name.back() == '\n') name.pop_back();
  return name;
}

}  // namespace tvxtest
