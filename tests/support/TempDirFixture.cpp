#include "support/TempDirFixture.h"

#include <atomic>
#include <fstream>
#include <iterator>
#include <random>

namespace tvxtest {

void TempDirTest::SetUp() {
  static std::atomic<int> counter{0};
  const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string name = info->name();
  for (char& c : name)
    if (c == '/') c = '-';  // parameterised names
  root_ = Base() / ("tvxfs-" + std::to_string(std::random_device{}()) + "-" +
                    std::to_string(counter++) + "-" + name);
  std::filesystem::remove_all(root_);
  std::filesystem::create_directories(root_);
}

void TempDirTest::TearDown() {
  std::error_code ignored;
  std::filesystem::permissions(root_, std::filesystem::perms::owner_all,
                               std::filesystem::perm_options::add, ignored);
  std::filesystem::remove_all(root_, ignored);
}

std::string TempDirTest::Native(std::string_view relative) const {
  return relative.empty() ? root_.string() : (root_ / relative).string();
}

void TempDirTest::Write(std::string_view relative, std::string_view text) const {
  std::filesystem::create_directories((root_ / relative).parent_path());
  std::ofstream(root_ / relative, std::ios::binary) << text;
}

std::string TempDirTest::Read(std::string_view relative) const {
  std::ifstream in(root_ / relative, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

std::set<std::string> TempDirTest::Entries(std::string_view relative) const {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(root_ / relative))
    names.insert(entry.path().filename().string());
  return names;
}

void TempDirTest::MakeDir(std::string_view relative) const {
  std::filesystem::create_directories(root_ / relative);
}

bool TempDirTest::OnDisk(std::string_view relative) const {
  std::error_code ignored;
  return std::filesystem::exists(std::filesystem::symlink_status(root_ / relative, ignored));
}

}  // namespace tvxtest
