// The committed case table is exactly what its generator writes from the
// Unicode data installed on this machine (Debian package unicode-data), and
// its parts agree with one another.

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "support/TempDirFixture.h"
#include "utility/internal/CaseTables.h"

namespace {

namespace fs = std::filesystem;
namespace in = tvxcore::utility::internal;

const char* const kUnicodeDataDir = "/usr/share/unicode";

std::string ReadAll(const fs::path& inPath) {
  std::ifstream file(inPath, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

std::string ShellQuote(const std::string& inText) {
  std::string out = "'";
  for (char c : inText) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}

class CaseTablesFile : public tvxtest::TempDirTest {};

TEST_F(CaseTablesFile, RegeneratingFromTheUnicodeDataGivesTheCommittedFile) {
  const char* testData = std::getenv("TVX_TEST_DATA");
  ASSERT_NE(testData, nullptr) << "TVX_TEST_DATA is not set; run this test through ctest";
  const fs::path root = fs::path(testData).parent_path().parent_path();
  const fs::path script = root / "tools" / "unicode" / "gen_case_tables.py";
  const fs::path committed = root / "src" / "utility" / "CaseTables.cpp";
  ASSERT_TRUE(fs::is_regular_file(script)) << script << " is missing";
  ASSERT_TRUE(fs::is_regular_file(committed)) << committed << " is missing";

  for (const char* name : {"UnicodeData.txt", "SpecialCasing.txt", "CaseFolding.txt"}) {
    ASSERT_TRUE(fs::is_regular_file(fs::path(kUnicodeDataDir) / name))
        << kUnicodeDataDir << "/" << name
        << " is missing; install the Debian package unicode-data (scripts/deps.sh)";
  }

  const fs::path output = root_ / "CaseTables.cpp";
  const fs::path errors = root_ / "stderr.txt";
  const std::string command = "python3 " + ShellQuote(script.string()) + " --ucd " +
                              ShellQuote(kUnicodeDataDir) + " --output " +
                              ShellQuote(output.string()) + " 2> " + ShellQuote(errors.string());
  const int status = std::system(command.c_str());
  ASSERT_EQ(status, 0) << command << "\n"
                       << ReadAll(errors) << "(python3 comes with scripts/deps.sh)";

  const std::string expected = ReadAll(committed);
  const std::string regenerated = ReadAll(output);
  ASSERT_FALSE(regenerated.empty());
  EXPECT_TRUE(regenerated == expected)
      << committed << " differs from what the generator writes; run " << script
      << " and commit the result (" << regenerated.size() << " bytes against " << expected.size()
      << ")";
}

// The row bitmap and the three form tables come from one pass of the
// generator; a unit is a row exactly when some form differs from the unit.
TEST(CaseTables, RowBitmapMarksExactlyTheUnitsWithAMapping) {
  std::size_t rows = 0;
  int failures = 0;
  for (unsigned c = 0; c < 0x10000; ++c) {
    const auto unit = static_cast<tvxcore::UTF16Char>(c);
    bool mapped = false;
    for (auto form : {in::kCaseLower, in::kCaseUpper, in::kCaseFold}) {
      tvxcore::UTF16Char single;
      std::size_t length;
      const tvxcore::UTF16Char* units = in::CaseFormOf(unit, form, single, length);
      ASSERT_GE(length, 1u);
      ASSERT_LE(length, 3u);
      if (length != 1 || units[0] != unit) mapped = true;
    }
    if (in::IsSurrogateUnit(unit)) {
      EXPECT_FALSE(mapped) << std::hex << c;
    }
    if (mapped != in::IsCaseTableRow(unit) && ++failures <= 10) {
      ADD_FAILURE() << "U+" << std::hex << c << (mapped ? " maps but is no row" : " is a bare row");
    }
    rows += mapped ? 1 : 0;
  }
  EXPECT_EQ(rows, in::kCaseTableRowCount);
  EXPECT_GT(rows, 1400u);
}

}  // namespace
