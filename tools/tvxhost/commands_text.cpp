// tvxhost text: the library's text helpers from the command line.
#include <cmath>
#include <iomanip>
#include <iostream>
#include <string>
#include <vector>

#include "Args.h"
#include "Host.h"
#include "HostServices.h"
#include "tvxcore/utility/CaseMapping.h"
#include "tvxcore/utility/NumberText.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxhost {
namespace {

using tvxcore::UTF16String;
using tvxcore::UTF8String;
namespace utility = tvxcore::utility;

int Calc(const Args& raw) {
  const ArgList args(raw, {}, {"<expression>"});
  const double value = utility::Calculate(TextArg(args[0], "<expression>"), 0);
  if (!std::isfinite(value)) throw Failure("the result of " + Quoted(args[0]) + " is too large");
  std::cout << ToUtf8(utility::NumberToString(value, 0, 6, utility::kNumberKeepCommas, 64)) << '\n';
  return kExitSuccess;
}

int Number(const Args& raw) {
  const ArgList args(raw, {{"--group", "", false}, {"--plus", "", false}, {"--digits", "", true}},
                     {"<value>"});
  const double value = ParseReal<double>(args[0], "<value>");
  utility::NumberFlags flags;
  if (args.Has("--group")) flags.Set(utility::kNumberGroupThousands);
  if (args.Has("--plus")) flags.Set(utility::kNumberForcePlus);
  // The library rounds to the digits by scaling the value by ten to their
  // number, so a value takes at most as many as keep that finite.
  std::uint64_t mostDigits = 400;
  while (mostDigits > 0 && !std::isfinite(std::fabs(value) * std::pow(10.0, double(mostDigits))))
    --mostDigits;
  const auto digits =
      ParseInteger<std::uint64_t>(args.Value("--digits", "2"), "--digits", 0, mostDigits);
  std::cout << ToUtf8(utility::NumberToString(value, 1, digits, flags, 64)) << '\n';
  return kExitSuccess;
}

int Utf8(const Args& raw) {
  const ArgList args(raw, {}, {"<text>"});
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
  std::cout << std::dec << std::nouppercase << std::setfill(' ') << "\ncharacters "
            << utility::GetUTF8CharacterCount(bytes.c_str(), static_cast<int>(bytes.size()))
            << "\nerror " << kErrors[error] << '\n';
  if (error == utility::kUnicodeNoError) return kExitSuccess;
  throw Failure("the text is not valid UTF-8: " + std::string(kErrors[error]) + " after " +
                std::to_string(count) + (count == 1 ? " unit" : " units"));
}

int Normalize(const Args& raw) {
  const ArgList args(raw, {}, {"<form>", "<text>"});
  static const std::pair<const char*, utility::UnicodeNormalizationForm> kForms[] = {
      {"nfc", utility::kUnicodeNormalizationComposed},
      {"nfd", utility::kUnicodeNormalizationDecomposed},
      {"nfkc", utility::kUnicodeNormalizationCompatibilityComposed},
      {"nfkd", utility::kUnicodeNormalizationCompatibilityDecomposed}};
  for (const auto& [name, form] : kForms) {
    if (args[0] != name) continue;
    const UTF16String result = utility::NormalizedString(TextArg(args[1], "<text>"), form);
    std::cout << ToUtf8(result) << "\nunits " << result.size() << ':';
    for (auto u : result)
      std::cout << " U+" << std::hex << std::uppercase << std::setw(4) << std::setfill('0') << +u;
    std::cout << std::dec << std::nouppercase << std::setfill(' ') << '\n';
    return kExitSuccess;
  }
  throw UsageError("<form> must be nfc, nfd, nfkc or nfkd, not " + Quoted(args[0]));
}

// The words of the arguments joined by blanks, as one text.
template <UTF16String (*Map)(const UTF16String&)>
int MapCase(const Args& raw) {
  const ArgList args(raw, {}, {"<text>..."});
  std::string text;
  for (const auto& word : args.Operands()) text += (text.empty() ? "" : " ") + word;
  std::cout << ToUtf8(Map(TextArg(text, "<text>"))) << '\n';
  return kExitSuccess;
}

const Registrar kTextCommands(CommandGroup{
    "text",
    "the library's text helpers: case, normal forms, numbers, UTF-8",
    {
        {"calc", "<expression>", "evaluate arithmetic as a numeric entry field does", Calc},
        {"number", "<value> [--group] [--digits <n>] [--plus]",
         "format a number in the user's locale with <n> fraction digits (2)", Number},
        {"utf8", "<text>", "the UTF-8 bytes, UTF-16 units and decoding result of any bytes", Utf8},
        {"normalize", "nfc|nfd|nfkc|nfkd <text>", "a Unicode normal form, with its units",
         Normalize},
        {"upper", "<text>...", "upper case (a sharp s becomes SS)", MapCase<utility::UpperCase>},
        {"lower", "<text>...", "lower case", MapCase<utility::LowerCase>},
        {"fold", "<text>...", "folded for comparisons that ignore case",
         MapCase<utility::FoldCase>},
        {"title", "<text>...", "each word capitalised, the rest lower case",
         MapCase<utility::TitleCase>},
    },
    {"Text must be UTF-8 (only 'utf8' takes any bytes). Several words are joined by",
     "blanks; put \"--\" before text that begins with \"-\"."},
    {
        {"text upper straße", "prints STRASSE"},
        {"text title \"hello wORLD\"", "prints Hello World"},
        {"text calc \"(1+2)*3\"", "prints 9"},
        {"text number 1234.5 --group", "prints 1,234.50"},
        {"text number -0.125 --digits 3", "prints -0.125"},
    }});

}  // namespace
}  // namespace tvxhost
