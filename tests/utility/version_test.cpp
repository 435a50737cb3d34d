#include <gtest/gtest.h>

#include <string>

#include "tvxcore/tvxcore.h"

TEST(Version, LoadedLibraryMatchesHeaders) {
  EXPECT_EQ(std::string(tvxcore::GetLibraryVersion()), TVXCORE_VERSION_STRING);
}
