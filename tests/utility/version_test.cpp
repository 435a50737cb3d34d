#include <gtest/gtest.h>

#include <string>

#include "tvxcore/tvxcore.h"

TEST(Version, LoadedLibraryMatchesHeaders) {
  EXPECT_EQ(std::string(tvxcore::GetLibraryVersion()), TVXCORE_VERSION_STRING);
  EXPECT_EQ(std::string(TVXCORE_VERSION_STRING), std::to_string(TVXCORE_VERSION_MAJOR) + "." +
                                                     std::to_string(TVXCORE_VERSION_MINOR) + "." +
                                                     std::to_string(TVXCORE_VERSION_PATCH));
}
