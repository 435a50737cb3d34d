// tvxhost console: an interactive console of the library's commands, with
// line editing, history and completion of command names by libedit.
#include <histedit.h>

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <list>
#include <string>
#include <vector>

#include "Args.h"
#include "ConsoleHost.h"
#include "Host.h"
#include "HostServices.h"
#include "tvxcore/console/Console.h"
#include "tvxcore/filesupport/File.h"
#include "tvxcore/utility/TextStreams.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxhost {
namespace {

constexpr char kPrompt[] = "tvx> ";
constexpr int kHistorySize = 1000;

// Set by the host's "exit" command; the interactive loop ends after it.
bool exitRequested = false;

class HelpCommand : public tvxcore::console::Command {
 public:
  void Execute(tvxcore::UTF16String const&, tvxcore::console::UTF16OutputStream& out) override {
    tvxcore::console::ListCommands(out);
  }
};

class ExitCommand : public tvxcore::console::Command {
 public:
  void Execute(tvxcore::UTF16String const&, tvxcore::console::UTF16OutputStream&) override {
    exitRequested = true;
  }
};

// The library's commands and the host's own, registered once.
void RegisterCommands() {
  static bool registered = false;
  if (registered) return;
  registered = true;
  tvxcore::console::Initialize();
  tvxcore::console::CommandRegistry::RegisterCommand(
      u"help", u"help - Lists every command with what it does.", new HelpCommand);
  tvxcore::console::CommandRegistry::RegisterCommand(
      u"exit", u"exit - Leaves the console (so does Ctrl-D).", new ExitCommand);
}

std::vector<std::string> CommandNames() {
  std::list<tvxcore::UTF16String> names;
  tvxcore::console::CommandRegistry::GetCommandNames(names);
  std::vector<std::string> out;
  for (const auto& name : names) out.push_back(ToUtf8(name));
  return out;
}

// Runs a line; false when no command of that name is known. The output goes
// to stdout as UTF-8.
bool Execute(const std::string& line) {
  // Blanks before the name are the person's, not part of it.
  const auto first = line.find_first_not_of(" \t");
  const std::string text = first == std::string::npos ? std::string() : line.substr(first);
  tvxcore::utility::UTF16StringBuf buffer;
  tvxcore::utility::UTF16OutputStream out(&buffer);
  const bool ran = tvxcore::console::ExecuteCommand(TextArg(text, "the command line"), out);
  std::cout << ToUtf8(buffer.str()) << std::flush;
  return ran;
}

std::string UnknownCommand(const std::string& line) {
  const std::string name = line.substr(0, line.find(' '));
  return "unknown console command " + Quoted(name) + "; 'help' lists the commands";
}

// The history file in the preferences folder; empty when there is none.
std::string HistoryPath() {
  try {
    return tvxcore::filesupport::File(tvxcore::filesupport::Dir::PrefDir(), u"Console History.txt")
        .FullPathMultiByte();
  } catch (const std::exception& error) {
    PrintVerbose("no console history: " + DescribeFailure(error));
    return std::string();
  }
}

// Tab: completes the command name before the cursor, or lists the choices.
unsigned char Complete(EditLine* editLine, int) {
  const LineInfo* info = el_line(editLine);
  const std::string typed(info->buffer, info->cursor);
  if (typed.find(' ') != std::string::npos) return CC_ERROR;  // names only
  std::vector<std::string> matches;
  for (const std::string& name : CommandNames())
    if (name.compare(0, typed.size(), typed) == 0) matches.push_back(name);
  if (matches.empty()) return CC_ERROR;
  if (matches.size() == 1) {
    const std::string rest = matches[0].substr(typed.size()) + " ";
    return el_insertstr(editLine, rest.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
  }
  // The part all choices share, else the choices themselves.
  std::string common = matches[0];
  for (const std::string& name : matches) {
    std::size_t n = 0;
    while (n < common.size() && n < name.size() && common[n] == name[n]) ++n;
    common.resize(n);
  }
  if (common.size() > typed.size()) {
    const std::string rest = common.substr(typed.size());
    return el_insertstr(editLine, rest.c_str()) == 0 ? CC_REFRESH : CC_ERROR;
  }
  std::cout << '\n';
  for (const std::string& name : matches) std::cout << name << '\n';
  std::cout << std::flush;
  return CC_REDISPLAY;
}

char* Prompt(EditLine*) { return const_cast<char*>(kPrompt); }

// Keeps the history file whole: the new one is written beside it and then
// renamed over it.
void SaveHistory(History* history, const std::string& path) {
  if (path.empty()) return;
  HistEvent event;
  const std::string temporary = path + ".new";
  if (::history(history, &event, H_SAVE, temporary.c_str()) < 0) {
    std::error_code ignored;
    std::filesystem::remove(temporary, ignored);
    PrintWarning("could not save the console history to " + Quoted(path));
    return;
  }
  std::error_code failed;
  std::filesystem::rename(temporary, path, failed);
  if (failed) PrintWarning("could not save the console history to " + Quoted(path));
}

// Whether standard input is a terminal: on Linux its descriptor names a
// character device (/dev/pts/N, /dev/ttyN), and not the null device.
bool InputIsTerminal() {
  std::error_code failed;
  const std::filesystem::path input = std::filesystem::canonical("/proc/self/fd/0", failed);
  return !failed && input != "/dev/null" && std::filesystem::is_character_file(input, failed);
}

// Runs one line typed or read, reporting an unknown command and going on,
// then the calls queued to the main thread meanwhile: the console waits for
// input outside the event loop.
void RunInteractiveLine(const std::string& line) {
  const auto first = line.find_first_not_of(" \t");
  if (first == std::string::npos) return;
  try {
    if (!Execute(line)) PrintError(UnknownCommand(line.substr(first)));
  } catch (const UsageError& error) {
    PrintError(error.what());
  } catch (const std::exception& error) {
    PrintError(DescribeFailure(error));
  }
  ServeMainThreadCalls();
}

// Without a terminal: plain lines from standard input, no prompt, no
// history.
void ReadPlainLines() {
  std::string line;
  while (!exitRequested && std::getline(std::cin, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    RunInteractiveLine(line);
  }
}

void EditLines() {
  EditLine* editLine = el_init("tvxhost", stdin, stdout, stderr);
  History* history = history_init();
  if (editLine == nullptr || history == nullptr) {
    if (history != nullptr) history_end(history);
    if (editLine != nullptr) el_end(editLine);
    ReadPlainLines();
    return;
  }
  HistEvent event;
  ::history(history, &event, H_SETSIZE, kHistorySize);
  ::history(history, &event, H_SETUNIQUE, 1);
  const std::string historyPath = HistoryPath();
  if (!historyPath.empty() && std::filesystem::exists(historyPath))
    ::history(history, &event, H_LOAD, historyPath.c_str());
  el_set(editLine, EL_EDITOR, "emacs");
  el_set(editLine, EL_HIST, ::history, history);
  el_set(editLine, EL_PROMPT, &Prompt);
  el_set(editLine, EL_SIGNAL, 1);
  el_set(editLine, EL_ADDFN, "tvx-complete", "Completes a command name", &Complete);
  el_set(editLine, EL_BIND, "^I", "tvx-complete", nullptr);
  std::cout << "tvxcore console: 'help' lists the commands, Tab completes a name, "
               "'exit' or Ctrl-D leaves.\n"
            << std::flush;
  bool entered = false;
  int count = 0;
  while (!exitRequested) {
    const char* read = el_gets(editLine, &count);
    if (read == nullptr || count <= 0) {
      std::cout << '\n' << std::flush;  // Ctrl-D leaves the prompt's line open
      break;
    }
    std::string line(read, static_cast<std::size_t>(count));
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    if (line.find_first_not_of(" \t") == std::string::npos) continue;
    if (FindInvalidUtf8(line) == std::string::npos) {
      ::history(history, &event, H_ENTER, line.c_str());
      entered = true;
    }
    RunInteractiveLine(line);
  }
  if (entered) SaveHistory(history, historyPath);
  history_end(history);
  el_end(editLine);
}

int RunConsole(const Args& args) {
  ArgList(args, {}, {});
  RegisterCommands();
  exitRequested = false;
  if (InputIsTerminal()) {
    EditLines();
  } else {
    ReadPlainLines();
  }
  return kExitSuccess;
}

const Registrar kConsole(CommandGroup{
    "console",
    "an interactive console of the library's commands (trace, debug, filesupport)",
    {{"", "", "reads command lines and runs them until 'exit' or the end of input", RunConsole}},
    {"Commands of the library: trace.set, trace.get, trace.getcategories, trace.set.master,",
     "trace.get.master, trace.createdefaultconsolelogfile, debug.get, debug.set, debug.list,",
     "debug.clear, filesupport.listdirs, filesupport.listvols, filesupport.file,",
     "filesupport.dir; of the host: help (lists every command with what it does) and exit.",
     "On a terminal, lines can be edited, Tab completes a command name and the history is",
     "kept in 'Console History.txt' in the preferences folder (~/.config/tvxcore/tvxhost/1).",
     "Without a terminal, lines are read from standard input as they come. An unknown",
     "command is reported and the console goes on. 'tvxhost -c <line>' runs one line."},
    {{"-c 'trace.get Render'", "prints trace volume for category Render is 5"},
     {"-c 'debug.list'", "the debug settings, one 'key = value' a line"},
     {"console", "the console; 'help' lists the commands"}},
});

}  // namespace

int RunConsoleLine(const std::string& line) {
  RegisterCommands();
  const auto first = line.find_first_not_of(" \t");
  if (first == std::string::npos) throw UsageError("-c needs a console command line");
  if (!Execute(line)) throw UsageError(UnknownCommand(line.substr(first)));
  return kExitSuccess;
}

}  // namespace tvxhost
