#include <gtest/gtest.h>

#include "config/ErrorTestSupport.h"
#include "tvxcore/config/ClientIdentity.h"

namespace {

using namespace tvxcore::config;
using tvxtest::S;
using tvxtest::U;

// Identity values can be set but never reset, so the defaults are checked
// first, before any test of this binary sets a value.
TEST(ClientIdentity, StartsWithTheDefaults) {
  EXPECT_FALSE(IsClientNameInitialized());
  EXPECT_EQ(S(GetClientVersion()), "No Client Version");
  EXPECT_EQ(S(GetSuiteClientName()), "No Company Name No Client Name QXNo Client Version (Linux)");
}

TEST(ClientIdentity, SuiteVersionIsDerivedFromTheClientVersionUntilSet) {
  const struct {
    const char* clientVersion;
    const char* suiteVersion;
  } cases[] = {
      {"6.0.1", "QX6"}, {"5.5.2", "QX5.5.2"}, {"QX6.0", "QX6"}, {"7.", "QX7."},  {"10.0", "QX10"},
      {"8", "QX8"},     {"Q", "QXQ"},         {"", "QX"},       {"3.05", "QX3"}, {"QX", "QX"},
  };
  for (const auto& c : cases) {
    SetClientVersion(U(c.clientVersion));
    EXPECT_EQ(S(GetSuiteClientVersion()), c.suiteVersion) << c.clientVersion;
  }
  SetClientVersion(U("6.0.1"));
  SetCompanyName(U("Acme"));
  SetClientName(U("Cutter"));
  EXPECT_EQ(S(GetSuiteClientName()), "Acme Cutter QX6 (Linux)");
  SetClientSuiteVersion(U("2027"));
  EXPECT_EQ(S(GetSuiteClientVersion()), "2027") << "a set suite version is used as it stands";
  EXPECT_EQ(S(GetSuiteClientName()), "Acme Cutter 2027 (Linux)");
}

TEST(ClientIdentity, ApplicationNameFollowsTheClientNameUntilSet) {
  SetClientName(U("First"));
  EXPECT_TRUE(IsClientNameInitialized());
  EXPECT_EQ(S(GetApplicationName()), "First");
  SetClientName(U("Second"));
  EXPECT_EQ(S(GetApplicationName()), "Second");
  SetApplicationName(U("Editor"));
  SetClientName(U("Third"));
  EXPECT_EQ(S(GetApplicationName()), "Editor");
  EXPECT_EQ(S(GetClientName()), "Third");

  SetClientInternalVersion(U("1.2.3.4"));
  SetClientBuildNumber(U("b77"));
  EXPECT_EQ(S(GetClientInternalVersion()), "1.2.3.4");
  EXPECT_EQ(S(GetClientBuildNumber()), "b77");
}

}  // namespace
