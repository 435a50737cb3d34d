// tvxhost errors ...: the error road of tvxcore through the host's manager
// and dictionary localizer.
#include <charconv>
#include <cmath>
#include <iostream>
#include <vector>

#include "../../src/debug/internal/ContractCheck.h"
#include "Args.h"
#include "Host.h"
#include "HostServices.h"
#include "tvxcore/Locale.h"
#include "tvxcore/ZString.h"
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
  return caught ? kExitFailure : kExitSuccess;
}

// "i:-5" signed, "u:7" unsigned, "d:2.5" double, "s:text" string, "-" empty;
// without a prefix a whole number is signed, a decimal number a double, the
// rest a string.
ReplacementValue ParseValue(const std::string& arg, const std::string& what) {
  if (arg == "-") return ReplacementValue();
  if (arg.size() >= 2 && arg[1] == ':') {
    const std::string rest = arg.substr(2);
    switch (arg[0]) {
      case 'i':
        return ReplacementValue(ParseInteger<long long>(rest, what));
      case 'u':
        return ReplacementValue(ParseInteger<unsigned long long>(rest, what));
      case 'd':
        return ReplacementValue(ParseReal<double>(rest, what));
      case 's':
        return ReplacementValue(TextArg(rest, what));
      default:
        break;
    }
  }
  const char* end = arg.data() + arg.size();
  long long integer = 0;
  auto parsed = std::from_chars(arg.data(), end, integer);
  if (!arg.empty() && parsed.ec == std::errc() && parsed.ptr == end)
    return ReplacementValue(integer);
  double number = 0;
  parsed = std::from_chars(arg.data(), end, number);
  if (!arg.empty() && parsed.ec == std::errc() && parsed.ptr == end && std::isfinite(number))
    return ReplacementValue(number);
  return ReplacementValue(TextArg(arg, what));
}

// A bare pattern becomes a literal whose default text is the pattern.
std::string AsLiteral(const std::string& pattern) {
  TextArg(pattern, "<pattern>");
  return pattern.rfind("$$$/", 0) == 0 ? pattern : "$$$/tvxhost/pattern=" + pattern;
}

int ErrorsTest(const Args& raw) {
  const ArgList args(raw, {{"--fatal", "", false}, {"--deferred", "", false}}, {});
  const bool fatal = args.Has("--fatal"), deferred = args.Has("--deferred");
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

int ErrorsSubstitute(const Args& raw) {
  const ArgList args(raw, {}, {"<pattern>", "[<v1>]", "[<v2>]", "[<v3>]", "[<v4>]"});
  ReplacementValue values[4];
  for (std::size_t i = 1; i < args.Count(); ++i)
    values[i - 1] = ParseValue(args[i], "<v" + std::to_string(i) + ">");
  const std::string literal = AsLiteral(args[0]);
  std::cout << ToUtf8(tvxcore::config::SubstituteErrorMessage(literal.c_str(), values[0], values[1],
                                                              values[2], values[3]))
            << '\n';
  return kExitSuccess;
}

int ErrorsZString(const Args& raw) {
  std::vector<std::string> names = {"<pattern>"};
  for (int i = 0; i < 10; ++i) names.push_back("[<s" + std::to_string(i) + ">]");
  const ArgList args(raw, {}, names);
  std::vector<tvxcore::UTF16String> values(10);
  for (std::size_t i = 1; i < args.Count(); ++i) values[i - 1] = TextArg(args[i], names[i]);
  const std::string literal = AsLiteral(args[0]);
  std::cout << ToUtf8(tvxcore::ZString(literal.c_str(), values[0], values[1], values[2], values[3],
                                       values[4], values[5], values[6], values[7], values[8],
                                       values[9]))
            << '\n';
  return kExitSuccess;
}

int ErrorsContract(const Args& raw) {
  const ArgList args(raw, {}, {});
  return RunAtTopLevel([] {
    const int count = -1;
    TVX_CONTRACT(count >= 0, __FILE__, __LINE__);
    std::cout << "the checking function carried on\n";
  });
}

Registrar errors(CommandGroup{
    "errors",
    "the library's error road through the host's error manager and localizer",
    {
        {"test", "[--fatal] [--deferred]",
         "raise the library's test error (twice, under a deferring reporter, with --deferred)",
         ErrorsTest},
        {"substitute", "<pattern> [<v1>..<v4>]",
         "fill ^1..^4 of a pattern or library literal (i:, u:, d:, s: prefixes; - empty)",
         ErrorsSubstitute},
        {"zstring", "<pattern> [<s0>..<s9>]", "fill @0..@9 of the translated text", ErrorsZString},
        {"contract", "", "violate a contract check", ErrorsContract},
    },
    {"An error that stops a command is printed once on stderr and gives status 1;",
     "a deferred error is printed when it happens, marked \"(deferred)\"."},
    {
        {"errors substitute \"^1 of ^2\" 3 u:7", "prints 3 of 7"},
        {"errors zstring \"@0 and @1\" salt pepper", "prints salt and pepper"},
        {"--lang de errors test", "fails with the library's test error, in German"},
        {"errors test --deferred", "two deferred errors, each printed once"},
    }});

Registrar locale(ReportSection{
    "Host and language", [](std::ostream& out) {
      const auto& localizer = GetHostLocalizer();
      out << "  processors:  " << tvxcore::utility::CPUCount() << '\n'
          << "  memory:      " << HumanBytes(tvxcore::utility::TotalPhysicalMemory()) << '\n'
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
