// tvxhost text: the library's text helpers from the command line.
//   text calc "<expr>"
//   text number <value> [--group] [--digits N] [--plus]
//   text utf8 <text>
//   text normalize <form> <text>
//   text upper|lower|fold|title <text>
// Further sub-commands are added to Subcommands() below.
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include "Host.h"
#include "tvxcore/utility/CaseMapping.h"
#include "tvxcore/utility/NumberText.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxhost {
namespace {

using tvxcore::UTF16String;
using tvxcore::UTF8String;
namespace utility = tvxcore::utility;

UTF16String Wide(const std::string& text) {
  return utility::UTF8to16(UTF8String(text.begin(), text.end()));
}
std::string Narrow(const UTF16String& text) {
  const UTF8String bytes = utility::UTF16to8(text);
  return std::string(bytes.begin(), bytes.end());
}

int Calc(const Args& args) {
  if (args.size() != 1) return UsageError("text");
  const double value = utility::Calculate(Wide(args[0]), 0);
  std::cout << Narrow(utility::NumberToString(value, 0, 6, utility::kNumberKeepCommas, 64)) << '\n';
  return 0;
}

int Number(const Args& args) {
  if (args.empty()) return UsageError("text");
  utility::NumberFlags flags;
  std::uint64_t digits = 2;
  for (std::size_t i = 1; i < args.size(); ++i) {
    if (args[i] == "--group") {
      flags.Set(utility::kNumberGroupThousands);
    } else if (args[i] == "--plus") {
      flags.Set(utility::kNumberForcePlus);
    } else if (args[i] == "--digits" && i + 1 < args.size()) {
      digits = std::strtoull(args[++i].c_str(), nullptr, 10);
    } else {
      return UsageError("text");
    }
  }
  const double value = utility::StringToNumber(Wide(args[0]), 0);
  std::cout << Narrow(utility::NumberToString(value, 1, digits, flags, 64)) << '\n';
  return 0;
}

int Utf8(const Args& args) {
  if (args.size() != 1) return UsageError("text");
  const UTF8String bytes(args[0].begin(), args[0].end());
  utility::UnicodeErrorCode error = utility::kUnicodeNoError;
  std::size_t count = 0;
  const UTF16String units = utility::UTF8to16(bytes, &error, &count);
  static const char* const kErrors[] = {"none", "source exhausted", "target exhausted",
                                        "source illegal"};
  std::cout << "bytes " << bytes.size() << ':';
  for (auto b : bytes) std::cout << ' ' << std::hex << std::setw(2) << std::setfill('0') << +b;
  std::cout << std::dec << "\nunits " << count << ':';
  for (auto u : units) std::cout << " U+" << std::hex << std::uppercase << std::setw(4) << +u;
  std::cout << std::dec << std::nouppercase << "\ncharacters "
            << utility::GetUTF8CharacterCount(bytes.c_str(), static_cast<int>(bytes.size()))
            << "\nerror " << kErrors[error] << '\n';
  return error == utility::kUnicodeNoError ? 0 : 1;
}

int Normalize(const Args& args) {
  if (args.size() != 2) return UsageError("text");
  static const std::pair<const char*, utility::UnicodeNormalizationForm> kForms[] = {
      {"nfc", utility::kUnicodeNormalizationComposed},
      {"nfd", utility::kUnicodeNormalizationDecomposed},
      {"nfkc", utility::kUnicodeNormalizationCompatibilityComposed},
      {"nfkd", utility::kUnicodeNormalizationCompatibilityDecomposed}};
  for (const auto& [name, form] : kForms) {
    if (args[0] != name) continue;
    const UTF16String result = utility::NormalizedString(Wide(args[1]), form);
    std::cout << Narrow(result) << "\nunits " << result.size() << ':';
    for (auto u : result)
      std::cout << " U+" << std::hex << std::uppercase << std::setw(4) << std::setfill('0') << +u;
    std::cout << std::dec << '\n';
    return 0;
  }
  return UsageError("text");
}

// The words of the arguments joined by blanks, as one text.
UTF16String JoinedText(const Args& args) {
  std::string text;
  for (const auto& word : args) text += (text.empty() ? "" : " ") + word;
  return Wide(text);
}

template <UTF16String (*Map)(const UTF16String&)>
int MapCase(const Args& args) {
  if (args.empty()) return UsageError("text");
  std::cout << Narrow(Map(JoinedText(args))) << '\n';
  return 0;
}

struct Subcommand {
  const char* name;
  const char* usage;
  std::function<int(const Args&)> run;
};

// The sub-commands of "text"; add a row to extend the group.
const std::vector<Subcommand>& Subcommands() {
  static const std::vector<Subcommand> table = {
      {"calc", "calc \"<expr>\"      evaluate as a numeric entry field does", Calc},
      {"number", "number <value> [--group] [--digits N] [--plus]", Number},
      {"utf8", "utf8 <text>          UTF-8 bytes, UTF-16 units and the decode result", Utf8},
      {"normalize", "normalize nfc|nfd|nfkc|nfkd <text>", Normalize},
      {"upper", "upper <text>         upper case (a sharp s becomes SS)",
       MapCase<utility::UpperCase>},
      {"lower", "lower <text>         lower case", MapCase<utility::LowerCase>},
      {"fold", "fold <text>          folded for comparison", MapCase<utility::FoldCase>},
      {"title", "title <text>         each word capitalised, the rest lower case",
       MapCase<utility::TitleCase>},
  };
  return table;
}

std::vector<std::string> Usage() {
  std::vector<std::string> lines;
  for (const auto& s : Subcommands()) lines.emplace_back(s.usage);
  return lines;
}

int Run(const Args& args) {
  if (args.empty()) return UsageError("text");
  for (const auto& s : Subcommands()) {
    if (args[0] == s.name) return s.run(Args(args.begin() + 1, args.end()));
  }
  return UsageError("text");
}

const Registrar kTextCommands(CommandGroup{"text", Usage(), Run});

}  // namespace
}  // namespace tvxhost
