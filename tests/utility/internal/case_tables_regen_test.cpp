// The committed case table is exactly what its generator writes from the
// Unicode data installed on this machine (Debian package unicode-data).

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "support/TempDirFixture.h"

namespace {

namespace fs = std::filesystem;

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
  const fs::path output = root_ / "CaseTables.cpp";
  const fs::path errors = root_ / "stderr.txt";
  const std::string command = "python3 " + ShellQuote(script.string()) + " --ucd " +
                              ShellQuote(kUnicodeDataDir) + " --output " +
                              ShellQuote(output.string()) + " 2> " + ShellQuote(errors.string());
  const int status = std::system(command.c_str());
  ASSERT_EQ(status, 0) << command << "\n"
                       << ReadAll(errors)
                       << "(python3 and the Debian package unicode-data come with "
                       << "scripts/deps.sh)";

  const std::string expected = ReadAll(committed);
  const std::string regenerated = ReadAll(output);
  ASSERT_FALSE(regenerated.empty());
  EXPECT_TRUE(regenerated == expected)
      << committed << " differs from what the generator writes; run " << script
      << " and commit the result (" << regenerated.size() << " bytes against " << expected.size()
      << ")";
}

}  // namespace
