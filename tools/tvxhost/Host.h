// tvxhost: the console host of tvxcore. Every capability of the library adds a
// command (a file commands_<name>.cpp that registers itself with its
// subcommands, help and examples) and, where it has something to say, a
// section of the report printed without arguments.
//
// Exit statuses: 0 success, 1 a failed operation, 2 bad usage. A command
// reports bad usage by throwing UsageError and a failure by throwing Failure
// or letting a library exception through; main prints each once, on stderr.
#pragma once

#include <functional>
#include <iosfwd>
#include <stdexcept>
#include <string>
#include <vector>

namespace tvxhost {

using Args = std::vector<std::string>;

enum ExitStatus : int { kExitSuccess = 0, kExitFailure = 1, kExitUsage = 2 };

// Bad usage: an unknown subcommand or option, a missing or malformed
// argument. The text names the argument; main adds the command's usage.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A failed operation, with its text ready for a person (UTF-8).
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Options that apply to every command; they come before the command.
struct Options {
  std::string language;  // --lang, empty for the default (English)
  bool verbose = false;  // --verbose: start-up and shutdown steps on stderr
};
const Options& GetOptions();

struct Subcommand {
  std::string name;
  std::string synopsis;  // the arguments after the name, e.g. "[-r] <dir>"
  std::string summary;   // one line
  std::function<int(const Args&)> run;
};

// An example of the help: the arguments after "tvxhost" and what happens.
// An outcome "prints <text>" means exactly that text on standard output with
// status 0; "fails ..." means status 1; anything else describes the output.
struct Example {
  std::string command;
  std::string outcome;
};

// A command: "tvxhost <name> <subcommand> <args...>". A command without
// subcommands has one Subcommand with an empty name and runs as
// "tvxhost <name> <args...>".
struct CommandGroup {
  std::string name;
  std::string summary;  // one line for "tvxhost help"
  std::vector<Subcommand> subcommands;
  std::vector<std::string> notes;  // further lines of its help
  std::vector<Example> examples;
};

// A section of the report printed by "tvxhost" without arguments.
struct ReportSection {
  std::string title;
  std::function<void(std::ostream&)> print;
};

struct Registrar {
  explicit Registrar(CommandGroup group);
  explicit Registrar(ReportSection section);
};

}  // namespace tvxhost
