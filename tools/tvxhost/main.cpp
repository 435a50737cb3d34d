#include <cstring>
#include <exception>
#include <iostream>
#include <map>

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

void PrintHelp(std::ostream& out) {
  out << "usage: tvxhost [--lang <code>] [<group> <args...>]\n"
         "  (no arguments)   print the library version and what it can do\n"
         "  help             this text\n";
  for (const auto& [name, group] : Groups()) {
    for (const auto& line : group.usage) out << "  " << name << ' ' << line << '\n';
  }
}

int Report() {
  std::cout << "tvxcore " << tvxcore::GetLibraryVersion() << " (headers " TVXCORE_VERSION_STRING
            << ")\n";
  for (const auto& section : Sections()) {
    std::cout << '\n' << section.title << '\n';
    section.print(std::cout);
  }
  return 0;
}

}  // namespace

const Options& GetOptions() { return MutableOptions(); }

Registrar::Registrar(CommandGroup group) {
  auto name = group.name;
  Groups().emplace(std::move(name), std::move(group));
}
Registrar::Registrar(ReportSection section) { Sections().push_back(std::move(section)); }

int UsageError(const std::string& group) {
  auto it = Groups().find(group);
  std::cerr << "usage:\n";
  if (it != Groups().end()) {
    for (const auto& line : it->second.usage)
      std::cerr << "  tvxhost " << group << ' ' << line << '\n';
  }
  return 2;
}

}  // namespace tvxhost

int main(int argc, char** argv) {
  using namespace tvxhost;
  Args args;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--lang") == 0 && i + 1 < argc) {
      MutableOptions().language = argv[++i];
    } else if (std::strncmp(argv[i], "--lang=", 7) == 0) {
      MutableOptions().language = argv[i] + 7;
    } else {
      args.emplace_back(argv[i]);
    }
  }
  try {
    StartHostServices();
    if (args.empty()) return Report();
    if (args[0] == "help" || args[0] == "--help" || args[0] == "-h") {
      PrintHelp(std::cout);
      return 0;
    }
    auto it = Groups().find(args[0]);
    if (it == Groups().end()) {
      std::cerr << "tvxhost: unknown command '" << args[0] << "'\n";
      PrintHelp(std::cerr);
      return 2;
    }
    return it->second.run(Args(args.begin() + 1, args.end()));
  } catch (const std::exception& e) {
    std::cerr << "tvxhost: " << e.what() << '\n';
    return 1;
  }
}
