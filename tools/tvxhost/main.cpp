#include <cctype>
#include <exception>
#include <iomanip>
#include <iostream>
#include <map>
#include <optional>

#include "Args.h"
#include "ConsoleHost.h"
#include "Host.h"
#include "HostServices.h"
#include "tvxcore/tvxcore.h"

namespace tvxhost {
namespace {

std::map<std::string, CommandGroup>& Groups() {
  static std::map<std::string, CommandGroup> groups;
  return groups;
}
std::vector<ReportSection>& Sections() {
  static std::vector<ReportSection> sections;
  return sections;
}
Options& MutableOptions() {
  static Options options;
  return options;
}

const char kUsage[] =
    "usage: tvxhost [--lang <code>] [--verbose] <command> [<subcommand>] [<args>]\n"
    "       tvxhost [--lang <code>] [--verbose] -c <console command line>\n"
    "       tvxhost [--lang <code>] [--verbose]\n"
    "       tvxhost --help | --version | help [<command>]\n";

const Example kExamples[] = {
    {"", "the report: version, allocator classes, host facts"},
    {"--version", "prints tvxhost " TVXCORE_VERSION_STRING " (tvxcore " TVXCORE_VERSION_STRING ")"},
    {"help fs", "the subcommands of fs"},
    {"-c 'trace.set.master 10'", "prints Master trace volume set to 10"},
};

void PrintExamples(std::ostream& out, const std::vector<Example>& examples) {
  if (examples.empty()) return;
  out << "\nExamples:\n";
  for (const Example& e : examples)
    out << "  tvxhost" << (e.command.empty() ? "" : " " + e.command) << "\n      " << e.outcome
        << '\n';
}

void PrintHelp(std::ostream& out) {
  out << kUsage
      << "\nStarts tvxcore as an application does (error manager, language, localizer,\n"
         "client name, trace handler, main thread, XML parser factory) and runs one\n"
         "command, then shuts down in the reverse order. Without a command it prints\n"
         "a report of the library and this machine.\n"
         "\nCommands:\n";
  for (const auto& [name, group] : Groups())
    out << "  " << std::left << std::setw(8) << name << ' ' << group.summary << '\n';
  out << "  " << std::left << std::setw(8) << "help" << ' '
      << "this text, or with a command that command's subcommands\n"
         "\nOptions (before the command):\n"
         "  --lang <code>  the language of the library's texts: de, fr (English without)\n"
         "  --verbose      each step of start-up and shutdown, on stderr\n"
         "  -c <line>      runs one line of the console (see 'tvxhost help console')\n"
         "  -h, --help     this text; after a command, that command's help\n"
         "  -V, --version  the version of tvxhost and of the tvxcore it runs on\n"
         "\nExit status:\n"
         "  0  success\n"
         "  1  the operation failed (a file could not be read or written, the library\n"
         "     reported an error, a change was refused without --force)\n"
         "  2  bad usage: an unknown command, subcommand or option, a missing or\n"
         "     malformed argument\n";
  PrintExamples(out, std::vector<Example>(std::begin(kExamples), std::end(kExamples)));
  out << "\nRun 'tvxhost help <command>' for the subcommands of one command.\n";
}

// A command without subcommands: "tvxhost <name> <args...>".
bool IsDirect(const CommandGroup& group) {
  return group.subcommands.size() == 1 && group.subcommands[0].name.empty();
}

void PrintGroupUsage(std::ostream& out, const CommandGroup& group) {
  const char* lead = "usage: ";
  for (const Subcommand& sub : group.subcommands) {
    out << lead << "tvxhost " << group.name << (sub.name.empty() ? "" : " " + sub.name)
        << (sub.synopsis.empty() ? "" : " " + sub.synopsis) << '\n';
    lead = "       ";
  }
}

void PrintGroupHelp(std::ostream& out, const CommandGroup& group) {
  PrintGroupUsage(out, group);
  out << "\n" << group.summary << '\n';
  if (!IsDirect(group)) {
    out << "\nSubcommands:\n";
    for (const Subcommand& sub : group.subcommands)
      out << "  " << std::left << std::setw(10) << sub.name << ' ' << sub.summary << '\n';
  }
  if (!group.notes.empty()) out << '\n';
  for (const std::string& line : group.notes) out << line << '\n';
  PrintExamples(out, group.examples);
}

// The host's version (that of the headers it was built with) and that of
// the library it runs on, which may be newer.
void PrintVersion() {
  std::cout << "tvxhost " TVXCORE_VERSION_STRING " (tvxcore " << tvxcore::GetLibraryVersion()
            << ")\n";
}

int Report() {
  std::cout << "tvxcore " << tvxcore::GetLibraryVersion() << " (headers " TVXCORE_VERSION_STRING
            << ")\n";
  for (const auto& section : Sections()) {
    std::cout << '\n' << section.title << '\n';
    section.print(std::cout);
  }
  return kExitSuccess;
}

bool IsHelp(const std::string& word) { return word == "--help" || word == "-h"; }

const CommandGroup& FindGroup(const std::string& name) {
  const auto it = Groups().find(name);
  if (it == Groups().end())
    throw UsageError("unknown command " + Quoted(name) + "; run 'tvxhost help' for the commands");
  return it->second;
}

// A language code: letters, then regions of letters and digits after "_" or
// "-" ("de", "fr_FR", "pt-BR"). It becomes part of a file name, so nothing
// else may pass.
void CheckLanguage(const std::string& code) {
  bool ok = !code.empty() && code.size() <= 35 && std::isalpha(static_cast<unsigned char>(code[0]));
  for (char c : code)
    ok = ok && (std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-');
  if (!ok)
    throw UsageError("--lang needs a language code such as de or fr_FR, not " + Quoted(code));
}

// Runs "<group> <args...>"; bad usage comes back as UsageError with the group
// (and subcommand, when known) in `where`.
int RunGroup(const CommandGroup& group, const Args& args, std::string& where) {
  where = group.name;
  if (args.empty() && !IsDirect(group)) throw UsageError("a subcommand is missing");
  if (!args.empty() && IsHelp(args[0])) {
    PrintGroupHelp(std::cout, group);
    return kExitSuccess;
  }
  const Subcommand* sub = IsDirect(group) ? &group.subcommands[0] : nullptr;
  for (const Subcommand& candidate : group.subcommands)
    if (sub == nullptr && candidate.name == args[0]) sub = &candidate;
  if (sub == nullptr) throw UsageError("unknown subcommand " + Quoted(args[0]));
  if (!IsDirect(group)) where += ' ' + sub->name;
  const Args rest(args.begin() + (IsDirect(group) ? 0 : 1), args.end());
  for (const std::string& word : rest) {
    if (word == "--") break;
    if (IsHelp(word)) {
      PrintGroupHelp(std::cout, group);
      return kExitSuccess;
    }
  }
  return sub->run(rest);
}

// Starts the library's services when made and stops them, in the reverse
// order, when it goes: after the last message has been printed.
class HostSession {
 public:
  HostSession() { StartHostServices(); }
  ~HostSession() { StopHostServices(); }
  HostSession(const HostSession&) = delete;
  HostSession& operator=(const HostSession&) = delete;
};

int Main(const Args& argv) {
  std::size_t at = 0;
  std::string where;  // the command that bad usage concerns
  std::optional<HostSession> session;
  const std::string* consoleLine = nullptr;  // -c
  try {
    for (; at < argv.size() && argv[at].size() > 1 && argv[at][0] == '-'; ++at) {
      const std::string& word = argv[at];
      if (IsHelp(word)) {
        PrintHelp(std::cout);
        return kExitSuccess;
      }
      if (word == "--version" || word == "-V") {
        PrintVersion();
        return kExitSuccess;
      }
      if (word == "--lang") {
        if (at + 1 == argv.size()) throw UsageError("--lang needs a language code such as de");
        MutableOptions().language = argv[++at];
      } else if (word.rfind("--lang=", 0) == 0) {
        MutableOptions().language = word.substr(7);
      } else if (word == "--verbose") {
        MutableOptions().verbose = true;
        continue;
      } else if (word == "-c") {
        if (at + 1 == argv.size()) throw UsageError("-c needs a console command line");
        consoleLine = &argv[++at];
        continue;
      } else {
        throw UsageError("unknown option " + Quoted(word) + "; run 'tvxhost help' for the options");
      }
      CheckLanguage(MutableOptions().language);
    }
    if (consoleLine != nullptr && at != argv.size())
      throw UsageError("-c takes one console command line; quote it: -c " +
                       Quoted(*consoleLine + " " + argv[at]));
    session.emplace();
    return RunOnMainThreadLoop([&]() -> int {
      if (consoleLine != nullptr) return RunConsoleLine(*consoleLine);
      if (at == argv.size()) return Report();
      const std::string& command = argv[at];
      const Args rest(argv.begin() + static_cast<long>(at) + 1, argv.end());
      if (command == "help") {
        if (rest.empty() || (rest.size() == 1 && IsHelp(rest[0]))) {
          PrintHelp(std::cout);
          return kExitSuccess;
        }
        if (rest.size() > 1) throw UsageError("help takes one command, not " + Quoted(rest[1]));
        PrintGroupHelp(std::cout, FindGroup(rest[0]));
        return kExitSuccess;
      }
      return RunGroup(FindGroup(command), rest, where);
    });
  } catch (const UsageError& error) {
    std::cerr << "tvxhost: " << (where.empty() ? "" : where + ": ") << error.what() << '\n';
    if (!where.empty()) {
      const auto space = where.find(' ');
      const CommandGroup& group = Groups().at(where.substr(0, space));
      if (space == std::string::npos) {
        PrintGroupUsage(std::cerr, group);
      } else {
        for (const Subcommand& sub : group.subcommands)
          if (sub.name == where.substr(space + 1))
            std::cerr << "usage: tvxhost " << where << (sub.synopsis.empty() ? "" : " ")
                      << sub.synopsis << '\n';
      }
      std::cerr << "Run 'tvxhost help " << group.name << "' for more.\n";
    }
    return kExitUsage;
  } catch (const std::exception& error) {
    PrintError(DescribeFailure(error));
    return kExitFailure;
  }
}

}  // namespace

const Options& GetOptions() { return MutableOptions(); }

Registrar::Registrar(CommandGroup group) {
  auto name = group.name;
  Groups().emplace(std::move(name), std::move(group));
}
Registrar::Registrar(ReportSection section) { Sections().push_back(std::move(section)); }

}  // namespace tvxhost

int main(int argc, char** argv) {
  // A crash ends with its text and stack on stderr (status 255).
  tvxcore::utility::exceptions::InstallMachineExceptionHandlers();
  try {
    return tvxhost::Main(tvxhost::Args(argv + 1, argv + argc));
  } catch (...) {
    std::cerr << "tvxhost: internal error\n";
    return tvxhost::kExitFailure;
  }
}
