#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "platform/Dialog.h"
#include "platform/internal/Posix.h"

extern char** environ;

namespace tvxcore::platform {
namespace {

using internal::RetryOnEintr;
using internal::ScopedFd;

// A window holds no more than this many bytes of text; a longer text is cut
// (the terminal shows it whole). Also keeps the argument far below the
// system's limit for one argument (128 KiB).
constexpr std::size_t kWindowTextLimit = 16 * 1024;
// Bytes read from a dialog program's output, and of one typed answer.
constexpr std::size_t kAnswerLimit = 4096;

bool HasValue(const char* variable) {
  const char* value = std::getenv(variable);
  return value && *value;
}

bool DisplayAvailable() { return HasValue("DISPLAY") || HasValue("WAYLAND_DISPLAY"); }

// The path of `name` on $PATH, or empty.
std::string FindProgram(const char* name) {
  const char* path = std::getenv("PATH");
  const std::string folders = path && *path ? path : "/usr/local/bin:/usr/bin:/bin";
  std::size_t start = 0;
  while (start <= folders.size()) {
    std::size_t end = folders.find(':', start);
    if (end == std::string::npos) end = folders.size();
    std::string candidate = folders.substr(start, end - start);
    candidate = (candidate.empty() ? std::string(".") : candidate) + "/" + name;
    struct stat info {};
    if (::stat(candidate.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
        ::access(candidate.c_str(), X_OK) == 0)
      return candidate;
    start = end + 1;
  }
  return std::string();
}

// "\r\n" becomes "\n"; the text ends with one line end.
std::string AsLines(const std::string& text) {
  std::string lines;
  lines.reserve(text.size() + 1);
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
    lines += text[i];
  }
  if (lines.empty() || lines.back() != '\n') lines += '\n';
  return lines;
}

// Length of the well-formed UTF-8 sequence at `at`, or 0.
std::size_t SequenceLength(const std::string& text, std::size_t at) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(at);
  if (lead < 0x80) return 1;
  std::size_t length = lead >= 0xF0 && lead <= 0xF4 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC2 ? 2 : 0;
  if (lead >= 0xF5) length = 0;
  if (length == 0 || at + length > text.size()) return 0;
  for (std::size_t i = 1; i < length; ++i)
    if ((byte(at + i) & 0xC0) != 0x80) return 0;
  const unsigned char second = byte(at + 1);
  if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
      (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F))
    return 0;
  return length;
}

// The text as a window shows it: lines, well-formed UTF-8 (a stray byte
// becomes U+FFFD), cut to kWindowTextLimit.
std::string ForWindow(const std::string& text) {
  const std::string lines = AsLines(text);
  std::string shown;
  for (std::size_t at = 0; at < lines.size();) {
    if (shown.size() >= kWindowTextLimit) {
      shown += "\n[...]";
      break;
    }
    const std::size_t length = SequenceLength(lines, at);
    if (length == 0) {
      shown += "\xEF\xBF\xBD";
      ++at;
    } else {
      shown.append(lines, at, length);
      at += length;
    }
  }
  while (!shown.empty() && shown.back() == '\n') shown.pop_back();
  return shown;
}

struct Outcome {
  bool ran = false;
  int status = -1;  // exit status; -1 when it did not exit normally
  std::string output;
};

// Runs `program` with `arguments`, feeding it `input` (when given) and,
// with `captureOutput`, collecting its standard output. Its standard error
// goes to /dev/null: desktop toolkits are chatty there.
Outcome RunProgram(const std::string& program, const std::vector<std::string>& arguments,
                   const std::string* input, bool captureOutput) {
  Outcome outcome;
  int outputEnds[2] = {-1, -1};
  int inputEnds[2] = {-1, -1};
  if (captureOutput && ::pipe2(outputEnds, O_CLOEXEC) != 0) return outcome;
  ScopedFd outputRead(outputEnds[0]), outputWrite(outputEnds[1]);
  // A socket rather than a pipe: writing to a child that has gone raises no
  // SIGPIPE with MSG_NOSIGNAL.
  if (input && ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, inputEnds) != 0) return outcome;
  ScopedFd inputWrite(inputEnds[0]), inputRead(inputEnds[1]);

  posix_spawn_file_actions_t actions;
  if (posix_spawn_file_actions_init(&actions) != 0) return outcome;
  if (input) {
    posix_spawn_file_actions_adddup2(&actions, inputRead.get(), STDIN_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  }
  if (captureOutput) {
    posix_spawn_file_actions_adddup2(&actions, outputWrite.get(), STDOUT_FILENO);
  } else {
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  }
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);

  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(program.c_str()));
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  pid_t child = -1;
  const int spawned =
      ::posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  outputWrite.Reset();
  inputRead.Reset();
  if (spawned != 0) return outcome;

  if (input) {
    const char* data = input->data();
    std::size_t left = input->size();
    while (left > 0) {
      const ssize_t sent =
          RetryOnEintr([&] { return ::send(inputWrite.get(), data, left, MSG_NOSIGNAL); });
      if (sent <= 0) break;
      data += sent;
      left -= static_cast<std::size_t>(sent);
    }
    inputWrite.Reset();
  }
  if (captureOutput) {
    char buffer[512];
    for (;;) {
      const ssize_t got =
          RetryOnEintr([&] { return ::read(outputRead.get(), buffer, sizeof buffer); });
      if (got <= 0) break;
      if (outcome.output.size() < kAnswerLimit)
        outcome.output.append(buffer, static_cast<std::size_t>(got));
    }
  }
  int status = 0;
  if (RetryOnEintr([&] { return ::waitpid(child, &status, 0); }) != child) return outcome;
  outcome.ran = true;
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return outcome;
}

std::string WithoutLineEnd(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  return text;
}

void CopyToClipboard(const std::string& text) {
  struct Tool {
    const char* name;
    std::vector<std::string> arguments;
  };
  std::vector<Tool> tools;
  if (HasValue("WAYLAND_DISPLAY")) tools.push_back({"wl-copy", {}});
  if (HasValue("DISPLAY")) {
    tools.push_back({"xclip", {"-selection", "clipboard"}});
    tools.push_back({"xsel", {"--clipboard", "--input"}});
  }
  for (const Tool& tool : tools) {
    const std::string path = FindProgram(tool.name);
    if (path.empty()) continue;
    const std::string lines = AsLines(text);
    // The tool stays behind to serve the clipboard, so its output is not
    // waited for.
    RunProgram(path, tool.arguments, &lines, false);
    return;
  }
}

// The window form: the chosen index, or kDialogNotAnswered when no window
// program is there, it failed, or it was closed without an answer.
int AskInWindow(const std::string& title, const std::string& text,
                const std::vector<DialogButton>& buttons, int defaultButton) {
  if (!DisplayAvailable()) return kDialogNotAnswered;
  const std::string shown = ForWindow(text);
  if (std::string zenity = FindProgram("zenity"); !zenity.empty()) {
    // OK is the default answer; every other button is an extra one, which
    // zenity names on its output and ends with status 1.
    std::vector<std::string> arguments = {"--warning", "--no-markup", "--title=" + title,
                                          "--text=" + shown,
                                          "--ok-label=" + buttons[defaultButton].label};
    for (std::size_t i = 0; i < buttons.size(); ++i)
      if (static_cast<int>(i) != defaultButton)
        arguments.push_back("--extra-button=" + buttons[i].label);
    const Outcome outcome = RunProgram(zenity, arguments, nullptr, true);
    if (outcome.ran && outcome.status == 0) return defaultButton;
    const std::string answer = WithoutLineEnd(outcome.output);
    if (outcome.ran && outcome.status == 1)
      for (std::size_t i = 0; i < buttons.size(); ++i)
        if (buttons[i].label == answer) return static_cast<int>(i);
    return kDialogNotAnswered;
  }
  if (std::string kdialog = FindProgram("kdialog"); !kdialog.empty()) {
    // A menu of the answers, tagged by index; kdialog prints the tag.
    std::vector<std::string> arguments = {"--title", title, "--menu", shown};
    for (std::size_t i = 0; i < buttons.size(); ++i) {
      arguments.push_back(std::to_string(i));
      arguments.push_back(buttons[i].label);
    }
    arguments.push_back("--default");
    arguments.push_back(buttons[defaultButton].label);
    const Outcome outcome = RunProgram(kdialog, arguments, nullptr, true);
    const std::string answer = WithoutLineEnd(outcome.output);
    if (outcome.ran && outcome.status == 0 && !answer.empty() && answer.size() <= 3 &&
        std::all_of(answer.begin(), answer.end(), [](char c) { return c >= '0' && c <= '9'; })) {
      const std::size_t index = std::stoul(answer);
      if (index < buttons.size()) return static_cast<int>(index);
    }
    return kDialogNotAnswered;
  }
  return kDialogNotAnswered;
}

// Terminal prompts take turns, so two asking threads never mix their lines.
std::mutex& TerminalTurn() {
  static std::mutex turn;  // destroying it does nothing, so a prompt may run during exit
  return turn;
}

ScopedFd OpenTerminal() { return ScopedFd(::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC)); }

void WriteAll(int fd, const std::string& text) {
  (void)internal::WriteAll(fd, text.data(), text.size());
}

// One typed line without its end; false at end of input or on an error.
bool ReadLine(int fd, std::string& line) {
  line.clear();
  for (;;) {
    char c = 0;
    const ssize_t got = RetryOnEintr([&] { return ::read(fd, &c, 1); });
    if (got <= 0) return false;
    if (c == '\n') return true;
    if (line.size() < kAnswerLimit) line += c;
  }
}

std::string Trimmed(const std::string& text) {
  std::size_t begin = 0, end = text.size();
  while (begin < end && std::isspace(static_cast<unsigned char>(text[begin]))) ++begin;
  while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1]))) --end;
  return text.substr(begin, end - begin);
}

bool SameIgnoringCase(const std::string& a, const std::string& b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(a[i])) !=
        std::tolower(static_cast<unsigned char>(b[i])))
      return false;
  return true;
}

int MatchAnswer(const std::string& typed, const std::vector<DialogButton>& buttons,
                int defaultButton) {
  const std::string answer = Trimmed(typed);
  if (answer.empty()) return defaultButton;
  for (std::size_t i = 0; i < buttons.size(); ++i) {
    const bool byKey =
        answer.size() == 1 && std::tolower(static_cast<unsigned char>(answer[0])) ==
                                  std::tolower(static_cast<unsigned char>(buttons[i].key));
    if (byKey || SameIgnoringCase(answer, buttons[i].label)) return static_cast<int>(i);
  }
  return kDialogNotAnswered;
}

}  // namespace

int ShowChoiceDialog(const std::string& title, const std::string& text,
                     const std::vector<DialogButton>& buttons, int defaultButton, int copyButton) {
  if (buttons.empty()) return kDialogNotAnswered;
  if (defaultButton < 0 || defaultButton >= static_cast<int>(buttons.size())) defaultButton = 0;
  for (;;) {
    const int chosen = AskInWindow(title, text, buttons, defaultButton);
    if (chosen == kDialogNotAnswered) break;
    if (chosen != copyButton) return chosen;
    CopyToClipboard(text);
  }

  ScopedFd terminal = OpenTerminal();
  if (!terminal.valid()) return kDialogNotAnswered;
  std::lock_guard<std::mutex> turn(TerminalTurn());
  std::string choices;
  for (std::size_t i = 0; i < buttons.size(); ++i) {
    choices += std::string(i == 0 ? "" : "  ") + "[" + buttons[i].key + "] " + buttons[i].label;
    if (static_cast<int>(i) == defaultButton) choices += " (Enter)";
  }
  WriteAll(terminal.get(), "\n*** " + title + " ***\n\n" + AsLines(text) + "\n");
  for (;;) {
    WriteAll(terminal.get(), choices + "\nChoice: ");
    std::string typed;
    if (!ReadLine(terminal.get(), typed)) {
      WriteAll(terminal.get(), "\n");
      return kDialogNotAnswered;
    }
    const int chosen = MatchAnswer(typed, buttons, defaultButton);
    if (chosen == kDialogNotAnswered) {
      WriteAll(terminal.get(), "Please answer with one of the letters in brackets.\n");
    } else if (chosen == copyButton) {
      std::string lines = AsLines(text);
      lines.insert(lines.begin(), '\n');
      lines += '\n';
      WriteAll(terminal.get(), lines);
    } else {
      return chosen;
    }
  }
}

void ShowMessageDialog(const std::string& title, const std::string& text) {
  if (DisplayAvailable()) {
    const std::string shown = ForWindow(text);
    if (std::string zenity = FindProgram("zenity"); !zenity.empty()) {
      const Outcome outcome =
          RunProgram(zenity, {"--warning", "--no-markup", "--title=" + title, "--text=" + shown},
                     nullptr, false);
      if (outcome.ran && outcome.status == 0) return;
    } else if (std::string kdialog = FindProgram("kdialog"); !kdialog.empty()) {
      const Outcome outcome =
          RunProgram(kdialog, {"--title", title, "--sorry", shown}, nullptr, false);
      if (outcome.ran && outcome.status == 0) return;
    }
  }
  if (ScopedFd terminal = OpenTerminal(); terminal.valid()) {
    std::lock_guard<std::mutex> turn(TerminalTurn());
    WriteAll(terminal.get(), (title.empty() ? std::string() : title + ": ") + AsLines(text));
  }
}

}  // namespace tvxcore::platform
