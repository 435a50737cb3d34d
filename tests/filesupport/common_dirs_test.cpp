// The named places of the system (XDG answers) and the application's layout
// with its overrides.
#include "tvxcore/filesupport/CommonDirs.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>

#include "support/TempDirFixture.h"
#include "support/Unprivileged.h"
#include "tvxcore/config/ClientIdentity.h"
#include "tvxcore/filesupport/FileExceptions.h"

namespace {

using tvxcore::filesupport::Dir;
using tvxcore::filesupport::DirHelper;
using tvxcore::filesupport::File;
namespace fs = tvxcore::filesupport;
namespace commondirs = tvxcore::filesupport::commondirs;
using tvxtest::N;
using tvxtest::U;

// Sets or unsets the variables the folders depend on, and puts them back.
class Environment {
 public:
  ~Environment() {
    for (const auto& [name, value] : saved_) Put(name, value ? value->c_str() : nullptr);
  }
  void Set(const std::string& name, const char* value) {
    const char* old = std::getenv(name.c_str());
    saved_.try_emplace(name, old ? std::optional<std::string>(old) : std::nullopt);
    Put(name, value);
  }

 private:
  static void Put(const std::string& name, const char* value) {
    value ? ::setenv(name.c_str(), value, 1) : ::unsetenv(name.c_str());
  }
  std::map<std::string, std::optional<std::string>> saved_;
};

class CommonDirs : public tvxtest::TempDirTest {
 protected:
  // `text` with "{root}" replaced by this test's folder.
  std::string Rooted(std::string text) const {
    for (std::size_t at; (at = text.find("{root}")) != std::string::npos;)
      text.replace(at, 6, Native());
    return text;
  }
  void UserDirs(const std::string& configHome, const std::string& text) const {
    std::filesystem::create_directories(configHome);
    std::ofstream(configHome + "/user-dirs.dirs") << Rooted(text);
  }

  Environment environment_;
};

TEST_F(CommonDirs, SystemFoldersFollowTheXDGRules) {
  struct Row {
    const char* configHome;  // null: unset
    const char* userDirs;    // null: no file
    const char* dataDirs;
    const char* tmpDir;
    const char* globalPref;
    const char* documents;
    const char* desktop;
    const char* shared;
    const char* temp;
  };
  const Row rows[] = {
      {nullptr, nullptr, "{root}/share", nullptr, "{root}/h/.config", "{root}/h",
       "{root}/h/Desktop", "{root}/share", "/tmp"},
      {"{root}/cfg/", "XDG_DOCUMENTS_DIR=\"$HOME/My Docs\"\nXDG_DESKTOP_DIR=\"{root}/desk\"\n",
       "relative:{root}/s2/:/usr/share", "{root}/t/", "{root}/cfg", "{root}/h/My Docs",
       "{root}/desk", "{root}/s2", "{root}/t"},
      {"relative/cfg", "XDG_DOCUMENTS_DIR=\"$HOME/from dot config\"\n", "{root}/share", "",
       "{root}/h/.config", "{root}/h/from dot config", "{root}/h/Desktop", "{root}/share", "/tmp"},
      {"{root}/cfg",
       "# written by hand\n"
       "XDG_DOCUMENTS_DIR=\"relative/ignored\"\n"
       "  XDG_DOCUMENTS_DIR = \"$HOME/Quoted \\\"Docs\\\"\"\n"
       "XDG_DESKTOP_DIR=\"$HOME/\"\n"
       "XDG_DESKTOP_DIR=\"$HOME/unclosed\n"
       "XDG_MUSIC_DIR=\"$HOME/Music\"\n",
       "{root}/share", nullptr, "{root}/cfg", "{root}/h/Quoted \"Docs\"", "{root}/h",
       "{root}/share", "/tmp"},
  };
  environment_.Set("HOME", Rooted("{root}/h").c_str());
  for (const Row& row : rows) {
    SCOPED_TRACE(row.configHome ? row.configHome : "(unset)");
    environment_.Set("XDG_CONFIG_HOME", row.configHome ? Rooted(row.configHome).c_str() : nullptr);
    environment_.Set("XDG_DATA_DIRS", Rooted(row.dataDirs).c_str());
    environment_.Set("TMPDIR", row.tmpDir ? Rooted(row.tmpDir).c_str() : nullptr);
    std::filesystem::remove_all(Native("h/.config"));
    std::filesystem::remove_all(Native("cfg"));
    if (row.userDirs)
      UserDirs(
          Rooted(row.configHome && row.configHome[0] == '{' ? row.configHome : "{root}/h/.config"),
          row.userDirs);

    EXPECT_EQ(N(Dir::GlobalPrefDir().FullPath()), Rooted(row.globalPref));
    EXPECT_EQ(N(Dir::UserDocsDir().FullPath()), Rooted(row.documents));
    EXPECT_EQ(N(Dir(DirHelper::SystemDir(fs::kSystemFolder_Desktop | fs::kSystemFolder_FlagCreate))
                    .FullPath()),
              Rooted(row.desktop));
    EXPECT_EQ(N(Dir::SharedDocsDir().FullPath()), Rooted(row.shared));
    EXPECT_EQ(N(Dir::TempDir().FullPath()), Rooted(row.temp));
    for (const char* made : {row.globalPref, row.documents, row.desktop, row.shared})
      EXPECT_TRUE(std::filesystem::is_directory(Rooted(made))) << made;
  }
  EXPECT_EQ(N(Dir::CommonFilesDir().FullPath()), "/usr/local/lib");
}

TEST_F(CommonDirs, AFolderThatCannotBeFoundOrMadeFallsBackToTheApplicationFolder) {
  Write("file");
  environment_.Set("HOME", Native("h").c_str());
  environment_.Set("XDG_CONFIG_HOME", Native("file/cfg").c_str());
  EXPECT_EQ(Dir::GlobalPrefDir(), Dir::AppDir());
  EXPECT_EQ(Dir(DirHelper::SystemDir(0x7777)), Dir::AppDir());
  EXPECT_NE(Dir::AppDir().FullPath(), U(""));
}

TEST_F(CommonDirs, PrefDirMakesItsThreeLevelsOnTheWay) {
  environment_.Set("XDG_CONFIG_HOME", Native("cfg").c_str());
  tvxcore::config::SetCompanyName(u"Co/Op");
  tvxcore::config::SetClientName(u"..");
  tvxcore::config::SetClientInternalVersion(u"2.1");
  for (int i = 0; i < 2; ++i) {  // the second time every level is there
    EXPECT_EQ(N(Dir::PrefDir().FullPath()), Native("cfg/Co_Op/_/2.1"));
    EXPECT_TRUE(std::filesystem::is_directory(Native("cfg/Co_Op/_/2.1")));
  }
  EXPECT_EQ(std::filesystem::status(Native("cfg")).permissions() & std::filesystem::perms::all,
            std::filesystem::perms::owner_all)
      << "a configuration folder is made for its owner alone";
  std::filesystem::permissions(Native("cfg"), std::filesystem::perms::others_exec,
                               std::filesystem::perm_options::add);
  std::filesystem::remove(Native("cfg/Co_Op/_/2.1"));
  std::filesystem::permissions(Native("cfg/Co_Op/_"), std::filesystem::perms::owner_all,
                               std::filesystem::perm_options::remove);
  const Dir unmade(Path("cfg/Co_Op/_/2.1"));
  EXPECT_EQ(tvxtest::RunUnprivileged([&] {
              try {
                Dir::PrefDir();
              } catch (const fs::dir_create_exception& e) {
                return e.GetDir() == unmade ? 0 : 1;  // names the level that failed
              }
              return 2;
            }),
            0);
}

// The slots keep their first answer, so the whole story runs in one test.
TEST_F(CommonDirs, OverridesAndCachedAnswers) {
  const std::string exe = std::filesystem::read_symlink("/proc/self/exe").string();
  EXPECT_EQ(N(commondirs::MainExecutableFile().FullPath()), exe);
  EXPECT_EQ(N(Dir::AppDir().FullPath()), std::filesystem::path(exe).parent_path().string());

  // The folders worked out from the application folder, and their overrides.
  using Folder = Dir (*)();
  using Override = void (*)(const Dir&);
  const std::tuple<Folder, const char*, Override, const char*> folders[] = {
      {&Dir::PackageDir, "app", &commondirs::SetPackageDirOverride, "pkg"},
      {&commondirs::PluginsDir, "app/Plug-ins", &commondirs::SetPluginsDirOverride, "plug"},
      {&commondirs::RequiredPluginsDir, "app/Required", &commondirs::SetRequiredPluginsDirOverride,
       "req"},
      {&commondirs::ExecutableDir, "app", &commondirs::SetExecutableDirOverride, "exe"},
      {&commondirs::ResourcesDir, "app", &commondirs::SetResourcesDirOverride, "res"},
  };
  commondirs::SetAppDirOverride(Dir(Path("app")));
  for (const auto& [folder, fromApp, set, overridden] : folders)
    EXPECT_EQ(folder(), Dir(Path(fromApp))) << fromApp;

  commondirs::SetAppDirOverride(Dir(Path("later")));
  EXPECT_EQ(commondirs::PluginsDir(), Dir(Path("app/Plug-ins"))) << "worked out at first use";
  for (const auto& [folder, fromApp, set, overridden] : folders) set(Dir(Path(overridden)));
  commondirs::SetMainExecutableOverride(File(Path("bin/tool")));
  for (const auto& [folder, fromApp, set, overridden] : folders)
    EXPECT_EQ(folder(), Dir(Path(overridden))) << overridden;
  commondirs::SetAppDirOverride(Dir());
  EXPECT_EQ(Dir::AppDir(), Dir(Path("bin"))) << "an empty override looks again";

  // The user's folders report a failure instead of falling back.
  environment_.Set("HOME", Native("h").c_str());
  environment_.Set("XDG_CONFIG_HOME", Native("cfg").c_str());
  UserDirs(Native("cfg"),
           "XDG_DOCUMENTS_DIR=\"/dev/null/docs\"\nXDG_DESKTOP_DIR=\"/dev/null/d\"\n");
  const std::string docsKey =
      "$$$/tvxcore/filesupport/DirUserDocs=Could not find the user documents directory.";
  const std::pair<Dir (*)(), std::string> failures[] = {
      {&commondirs::UserDocumentsDir, docsKey},
      {&commondirs::CurrentUserDir, docsKey},
      {&commondirs::UserDesktopDir,
       "$$$/tvxcore/filesupport/DirDesktopDocs=Could not find the user desktop directory."},
  };
  for (const auto& [folder, key] : failures) {
    try {
      folder();
      ADD_FAILURE() << "no dir_exception for " << key;
    } catch (const fs::dir_exception& e) {
      EXPECT_EQ(e.what(), key);
    }
  }
  UserDirs(Native("cfg"), "XDG_DOCUMENTS_DIR=\"$HOME/docs\"\nXDG_DESKTOP_DIR=\"$HOME/desk\"\n");
  EXPECT_EQ(commondirs::UserDocumentsDir(), Dir(Path("h/docs")));
  EXPECT_EQ(commondirs::UserDesktopDir(), Dir(Path("h/desk")));
  EXPECT_EQ(commondirs::CurrentUserDir(), Dir(Path("h")));
  EXPECT_TRUE(std::filesystem::is_directory(Native("h/docs")));
  UserDirs(Native("cfg"), "XDG_DOCUMENTS_DIR=\"$HOME/moved\"\n");
  EXPECT_EQ(commondirs::UserDocumentsDir(), Dir(Path("h/docs"))) << "kept from first use";

  environment_.Set("XDG_DATA_DIRS", Native("share").c_str());
  EXPECT_EQ(commondirs::AllUsersDocumentsDir(), Dir(Path("share")));
  EXPECT_EQ(N(commondirs::AllUserPluginsDir().FullPath()), "/opt/Ostra/Common/Plug-ins");
  EXPECT_EQ(commondirs::UserPluginsDir(), commondirs::AllUserPluginsDir());

  for (const auto& [folder, fromApp, set, overridden] : folders) set(Dir());
  commondirs::SetMainExecutableOverride(File());
}

}  // namespace
