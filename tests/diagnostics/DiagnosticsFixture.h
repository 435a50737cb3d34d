// A preferences folder of its own for every test, and scenarios that run in a
// fresh process (the test binary started again for the one test), where the
// client name is not set and nothing of the library has run yet.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include "support/TempDirFixture.h"
#include "tvxcore/config/ClientIdentity.h"

namespace tvxtest {

inline tvxcore::UTF8String U8(std::string_view text) {
  return tvxcore::UTF8String(text.begin(), text.end());
}
inline std::string S8(const tvxcore::UTF8String& text) {
  return std::string(text.begin(), text.end());
}

// Environment variable that hands the parent's folder to a fresh process.
inline constexpr char kRootVariable[] = "TVX_DIAGNOSTICS_TEST_ROOT";

class DiagnosticsTest : public TempDirTest {
 protected:
  void SetUp() override {
    if (const char* inherited = std::getenv(kRootVariable)) {
      root_ = inherited;
      child_ = true;
    } else {
      TempDirTest::SetUp();
      MakeDir("home");
      ::setenv(kRootVariable, root_.c_str(), 1);
    }
    ::setenv("HOME", (root_ / "home").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (root_ / "config").c_str(), 1);
  }

  void TearDown() override {
    if (child_) return;
    ::unsetenv(kRootVariable);
    TempDirTest::TearDown();
  }

  // The identity whose preferences folder is PrefDir() below.
  static void SetIdentity() {
    tvxcore::config::SetCompanyName(u"TestCo");
    tvxcore::config::SetClientInternalVersion(u"1.0");
    tvxcore::config::SetClientName(u"Diag");
  }

  static constexpr char kPref[] = "config/TestCo/Diag/1.0/";
  std::filesystem::path PrefDir() const { return root_ / "config" / "TestCo" / "Diag" / "1.0"; }

  std::string ReadPref(std::string_view name) const { return Read(kPref + std::string(name)); }
  bool PrefExists(std::string_view name) const { return OnDisk(kPref + std::string(name)); }
  void WritePref(std::string_view name, std::string_view bytes) const {
    Write(kPref + std::string(name), bytes);
  }

  // Runs `body` in a fresh process; its failures fail this test. The folder
  // of this test is shared, so files left by one scenario are there for the
  // next. Code of the test before the call runs again in the fresh process,
  // so it must not depend on being run once.
  template <typename Body>
  static void InFreshProcess(Body body) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
          body();
          std::exit(ReportFailures());
        },
        ::testing::ExitedWithCode(0), "");
  }

  // In the fresh process: the failures so far, written where the parent
  // shows them; the exit status.
  static int ReportFailures() {
    const ::testing::TestResult* result =
        ::testing::UnitTest::GetInstance()->current_test_info()->result();
    for (int i = 0; i < result->total_part_count(); ++i) {
      const ::testing::TestPartResult& part = result->GetTestPartResult(i);
      if (part.failed())
        std::fprintf(stderr, "%s:%d: %s\n", part.file_name() ? part.file_name() : "?",
                     part.line_number(), part.message());
    }
    return ::testing::Test::HasFailure() ? 1 : 0;
  }

  bool child_ = false;
};

}  // namespace tvxtest
