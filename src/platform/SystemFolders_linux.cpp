// Linux answers for the named folders: the XDG base-directory rules
// ($XDG_CONFIG_HOME, $XDG_DATA_DIRS) and the xdg-user-dirs file
// "user-dirs.dirs", read as the xdg-user-dir tool reads it.
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "platform/SystemFolders.h"
#include "platform/internal/Posix.h"

namespace tvxcore::platform {
namespace {

using internal::RetryOnEintr;
using internal::ScopedFd;

// user-dirs.dirs is a few hundred bytes; anything past this is not the file
// the rules describe.
constexpr std::size_t kUserDirsLimit = 64 * 1024;

std::string WithoutTrailingSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? std::string(value) : std::string();
}

bool IsAbsolute(const std::string& path) { return !path.empty() && path[0] == '/'; }

// $HOME, else the home folder of the user's password entry; empty when
// neither says.
std::string HomeFolder() {
  std::string home = Environment("HOME");
  if (IsAbsolute(home)) return WithoutTrailingSlashes(home);
  long size = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(size > 0 ? static_cast<std::size_t>(size) : 16384);
  struct passwd entry {};
  struct passwd* found = nullptr;
  while (::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found) == ERANGE &&
         buffer.size() < (1u << 20))
    buffer.resize(buffer.size() * 2);
  if (!found || !found->pw_dir || found->pw_dir[0] != '/') return std::string();
  return WithoutTrailingSlashes(found->pw_dir);
}

// $XDG_CONFIG_HOME when it is an absolute path (the rules ignore a relative
// one), else ~/.config.
std::string ConfigHome(const std::string& home) {
  const std::string configured = Environment("XDG_CONFIG_HOME");
  if (IsAbsolute(configured)) return WithoutTrailingSlashes(configured);
  if (home.empty()) return std::string();
  return home + "/.config";
}

std::string ReadSmallFile(const std::string& path) {
  ScopedFd fd(RetryOnEintr([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC); }));
  if (!fd.valid()) return std::string();
  std::string text;
  char chunk[4096];
  while (text.size() < kUserDirsLimit) {
    const ssize_t got = RetryOnEintr([&] { return ::read(fd.get(), chunk, sizeof(chunk)); });
    if (got <= 0) break;
    text.append(chunk, static_cast<std::size_t>(got));
  }
  return text;
}

bool SkipPrefix(std::string_view& text, std::string_view prefix) {
  if (text.substr(0, prefix.size()) != prefix) return false;
  text.remove_prefix(prefix.size());
  return true;
}

void SkipBlanks(std::string_view& text) {
  while (!text.empty() && (text[0] == ' ' || text[0] == '\t')) text.remove_prefix(1);
}

// The value of XDG_<name>_DIR in the user-dirs.dirs text: the last line that
// sets it to a quoted "$HOME/..." or absolute path wins; other lines are
// ignored. A backslash in the quotes takes the next byte as it stands.
bool UserDirFromFile(std::string_view text, std::string_view name, const std::string& home,
                     std::string& out) {
  bool found = false;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    SkipBlanks(line);
    if (!SkipPrefix(line, "XDG_") || !SkipPrefix(line, name) || !SkipPrefix(line, "_DIR")) continue;
    SkipBlanks(line);
    if (!SkipPrefix(line, "=")) continue;
    SkipBlanks(line);
    if (!SkipPrefix(line, "\"")) continue;
    std::string value;
    if (SkipPrefix(line, "$HOME/")) {
      if (home.empty()) continue;
      value = home + "/";
    } else if (line.empty() || line[0] != '/') {
      continue;
    }
    bool closed = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
      if (line[i] == '"') {
        closed = true;
        break;
      }
      if (line[i] == '\\' && i + 1 < line.size()) ++i;
      value.push_back(line[i]);
    }
    if (!closed) continue;
    out = WithoutTrailingSlashes(value);
    found = true;
  }
  return found;
}

// The user's folder of the kind xdg-user-dirs calls `name`; as the
// xdg-user-dir tool, the home folder when the file doesn't say (the desktop:
// ~/Desktop).
std::string UserDir(std::string_view name) {
  const std::string home = HomeFolder();
  const std::string config = ConfigHome(home);
  std::string path;
  if (!config.empty() &&
      UserDirFromFile(ReadSmallFile(config + "/user-dirs.dirs"), name, home, path))
    return path;
  if (home.empty()) return std::string();
  return name == "DESKTOP" ? home + "/Desktop" : home;
}

// The first absolute entry of $XDG_DATA_DIRS, else its default's first entry.
std::string SharedDataDir() {
  const std::string dirs = Environment("XDG_DATA_DIRS");
  std::string_view rest = dirs;
  while (!rest.empty()) {
    const std::size_t colon = rest.find(':');
    const std::string entry(rest.substr(0, colon));
    rest.remove_prefix(colon == std::string_view::npos ? rest.size() : colon + 1);
    if (IsAbsolute(entry)) return WithoutTrailingSlashes(entry);
  }
  return "/usr/local/share";
}

bool IsDirectory(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Makes `path` and its missing parents, one level at a time.
bool MakeFolder(const std::string& path, mode_t mode) {
  if (IsDirectory(path)) return true;
  std::size_t next = 1;
  while (next <= path.size()) {
    std::size_t slash = path.find('/', next);
    if (slash == std::string::npos) slash = path.size();
    const std::string level = path.substr(0, slash);
    if (::mkdir(level.c_str(), mode) != 0 && errno != EEXIST) return false;
    next = slash + 1;
  }
  return IsDirectory(path);
}

}  // namespace

std::string SystemFolderPath(SystemFolder folder, bool create) {
  std::string path;
  mode_t mode = 0777;
  switch (folder) {
    case SystemFolder::kApplicationData:
      path = ConfigHome(HomeFolder());
      mode = 0700;
      break;
    case SystemFolder::kDocuments:
      path = UserDir("DOCUMENTS");
      break;
    case SystemFolder::kDesktop:
      path = UserDir("DESKTOP");
      break;
    case SystemFolder::kSharedDocuments:
      path = SharedDataDir();
      break;
    case SystemFolder::kProgramFiles:
      path = "/opt";
      break;
    case SystemFolder::kCommonProgramFiles:
      path = "/usr/local/lib";
      break;
  }
  if (path.empty()) return path;
  if (create && !MakeFolder(path, mode)) return std::string();
  return path;
}

std::string TemporaryFolderPath() {
  const std::string configured = Environment("TMPDIR");
  return configured.empty() ? std::string("/tmp") : WithoutTrailingSlashes(configured);
}

std::string MainExecutablePath() {
  std::string buffer(256, '\0');
  for (;;) {
    const ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
    if (length < 0) return std::string();
    if (static_cast<std::size_t>(length) < buffer.size()) {
      buffer.resize(static_cast<std::size_t>(length));
      return buffer;
    }
    buffer.resize(buffer.size() * 2);
  }
}

}  // namespace tvxcore::platform
