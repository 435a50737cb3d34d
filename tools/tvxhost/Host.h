// tvxhost: the console host of tvxcore. Every capability of the library adds a
// command group (a file commands_<group>.cpp that registers itself) and, where
// it has something to say, a section of the start-up report.
#pragma once

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

namespace tvxhost {

using Args = std::vector<std::string>;

// Options that apply to every command.
struct Options {
  std::string language;  // --lang, empty for the default
};
const Options& GetOptions();

// A command group: "tvxhost <group> <args...>". The handler returns the exit code.
struct CommandGroup {
  std::string name;
  std::vector<std::string> usage;  // one line per form, without the group name
  std::function<int(const Args&)> run;
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

// Prints "usage: tvxhost <group> ..." for one group on stderr and returns 2.
int UsageError(const std::string& group);

}  // namespace tvxhost
