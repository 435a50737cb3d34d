// tvxhost errors ...: the error road of tvxcore through the host's manager
// and dictionary localizer.
#include <cstdlib>
#include <iostream>
#include <vector>

#include "../../src/debug/internal/ContractCheck.h"
#include "Host.h"
#include "HostServices.h"
#include "tvxcore/Locale.h"
#include "tvxcore/config/Errors.h"
#include "tvxcore/utility/HostInfo.h"

namespace tvxhost {
namespace {

using tvxcore::config::ReplacementValue;

// Runs `body` at the top level; says (and returns 1) when an error stopped it.
int RunAtTopLevel(const boost::function0<void>& body) {
  bool caught = false;
  tvxcore::config::ExecuteTopLevelFunction<void>(body, &caught);
  std::cout << (caught ? "stopped by the error at the top level\n" : "returned normally\n");
  return caught ? 1 : 0;
}

// "i:-5" signed, "u:7" unsigned, "d:2.5" double, "s:text" string, "-" empty;
// without a prefix an integer is signed, a decimal number a double, the rest a string.
ReplacementValue ParseValue(const std::string& arg) {
  if (arg == "-") return ReplacementValue();
  if (arg.size() >= 2 && arg[1] == ':') {
    const std::string rest = arg.substr(2);
    switch (arg[0]) {
      case 'i':
        return ReplacementValue(std::strtoll(rest.c_str(), nullptr, 10));
      case 'u':
        return ReplacementValue(std::strtoull(rest.c_str(), nullptr, 10));
      case 'd':
        return ReplacementValue(std::strtod(rest.c_str(), nullptr));
      case 's':
        return ReplacementValue(FromUtf8(rest));
      default:
        break;
    }
  }
  char* end = nullptr;
  const long long integer = std::strtoll(arg.c_str(), &end, 10);
  if (!arg.empty() && *end == '\0') return ReplacementValue(integer);
  const double number = std::strtod(arg.c_str(), &end);
  if (!arg.empty() && *end == '\0') return ReplacementValue(number);
  return ReplacementValue(FromUtf8(arg));
}

// A bare pattern becomes a literal whose default text is the pattern.
std::string AsLiteral(const std::string& pattern) {
  return pattern.rfind("$$$/", 0) == 0 ? pattern : "$$$/tvxhost/pattern=" + pattern;
}

int ErrorsTest(const Args& args) {
  bool fatal = false, deferred = false;
  for (std::size_t i = 1; i < args.size(); ++i) {
    if (args[i] == "--fatal") {
      fatal = true;
    } else if (args[i] == "--deferred") {
      deferred = true;
    } else {
      return UsageError("errors");
    }
  }
  return RunAtTopLevel([fatal, deferred] {
    if (!deferred) {
      tvxcore::config::TestThrowError(fatal);
      return;
    }
    tvxcore::config::DeferredErrorReporter reporter(true);
    tvxcore::config::TestThrowError(fatal);
    tvxcore::config::TestThrowError(fatal);
    std::cout << "deferred errors recorded: " << reporter.GetErrorCount() << '\n';
    reporter.Finish();
  });
}

int ErrorsSubstitute(const Args& args) {
  if (args.size() < 2 || args.size() > 6) return UsageError("errors");
  ReplacementValue values[4];
  for (std::size_t i = 2; i < args.size(); ++i) values[i - 2] = ParseValue(args[i]);
  const std::string literal = AsLiteral(args[1]);
  std::cout << ToUtf8(tvxcore::config::SubstituteErrorMessage(literal.c_str(), values[0], values[1],
                                                              values[2], values[3]))
            << '\n';
  return 0;
}

int ErrorsContract(const Args& args) {
  if (args.size() != 1) return UsageError("errors");
  return RunAtTopLevel([] {
    const int count = -1;
    TVX_CONTRACT(count >= 0, __FILE__, __LINE__);
    std::cout << "the checking function carried on\n";
  });
}

Registrar errors(CommandGroup{
    "errors",
    {
        "test [--fatal] [--deferred]         raise the library's test error",
        "substitute \"<pattern>\" [<v1>..<v4>]  fill ^1..^4 (i:, u:, d:, s: prefixes; - empty)",
        "contract                            violate a contract check",
    },
    [](const Args& args) -> int {
      if (args.empty()) return UsageError("errors");
      if (args[0] == "test") return ErrorsTest(args);
      if (args[0] == "substitute") return ErrorsSubstitute(args);
      if (args[0] == "contract") return ErrorsContract(args);
      return UsageError("errors");
    }});

Registrar locale(ReportSection{
    "locale", [](std::ostream& out) {
      const auto& localizer = GetHostLocalizer();
      out << "  processors:  " << tvxcore::utility::CPUCount() << '\n'
          << "  memory:      " << (tvxcore::utility::TotalPhysicalMemory() >> 20) << " MiB\n"
          << "  language:    " << ToUtf8(tvxcore::Locale::ApplicationLangauge())
          << (tvxcore::Locale::IsInitialized() ? "" : " (default)") << '\n'
          << "  dictionary:  "
          << (localizer.LoadedFile().empty()
                  ? std::string("(none)")
                  : localizer.LoadedFile() + " (" + std::to_string(localizer.EntryCount()) +
                        " entries)")
          << '\n'
          << "  nan text:    "
          << ToUtf8(tvxcore::config::Localizer::Get()->Translate(
                 "$$$/tvxui/controls/UI_NumberEdit/NANDisplayString=nan"))
          << '\n';
    }});

}  // namespace
}  // namespace tvxhost
