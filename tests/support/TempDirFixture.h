// A fresh directory per test, removed with everything in it afterwards. File
// tests never write outside it.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>

#include "tvxcore/utility/StringTypes.h"

namespace tvxtest {

inline tvxcore::UTF16String U(std::string_view utf8) {
  const std::u16string wide =
      std::filesystem::path(std::u8string(utf8.begin(), utf8.end())).u16string();
  return tvxcore::UTF16String(wide.begin(), wide.end());
}

inline std::string N(const tvxcore::UTF16String& path) {
  return std::filesystem::path(std::u16string(path.begin(), path.end())).string();
}

class TempDirTest : public ::testing::Test {
 protected:
  void SetUp() override {
    static std::atomic<int> counter{0};
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    root_ = Base() / ("tvxfs-" + std::to_string(std::random_device{}()) + "-" +
                      std::to_string(counter++) + "-" + info->name());
    std::filesystem::remove_all(root_);
    std::filesystem::create_directories(root_);
  }
  void TearDown() override {
    std::error_code ignored;
    std::filesystem::permissions(root_, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ignored);
    std::filesystem::remove_all(root_, ignored);
  }

  // Where the directory is made.
  virtual std::filesystem::path Base() const { return std::filesystem::temp_directory_path(); }

  // The native path of a name below the directory.
  std::string Native(std::string_view relative = {}) const {
    return relative.empty() ? root_.string() : (root_ / relative).string();
  }
  tvxcore::UTF16String Path(std::string_view relative = {}) const { return U(Native(relative)); }

  void Write(std::string_view relative, std::string_view text = "x") const {
    std::filesystem::create_directories((root_ / relative).parent_path());
    std::ofstream(root_ / relative, std::ios::binary) << text;
  }
  void MakeDir(std::string_view relative) const {
    std::filesystem::create_directories(root_ / relative);
  }
  bool OnDisk(std::string_view relative) const {
    std::error_code ignored;
    return std::filesystem::exists(std::filesystem::symlink_status(root_ / relative, ignored));
  }

  std::filesystem::path root_;
};

}  // namespace tvxtest
