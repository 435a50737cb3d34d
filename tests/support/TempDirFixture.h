// A fresh directory per test, removed with everything in it afterwards, and
// the conversions between native paths and the library's UTF-16 paths.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
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
  void SetUp() override;
  void TearDown() override;

  // Where the directory is made.
  virtual std::filesystem::path Base() const { return std::filesystem::temp_directory_path(); }

  // The native path of a name below the directory.
  std::string Native(std::string_view relative = {}) const;
  tvxcore::UTF16String Path(std::string_view relative = {}) const { return U(Native(relative)); }

  void Write(std::string_view relative, std::string_view text = "x") const;
  std::string Read(std::string_view relative) const;
  // The names in a folder below the directory, hidden ones included.
  std::set<std::string> Entries(std::string_view relative = ".") const;
  void MakeDir(std::string_view relative) const;
  // True when the name exists, links included (dangling or not).
  bool OnDisk(std::string_view relative) const;

  std::filesystem::path root_;
};

}  // namespace tvxtest
