#include <dlfcn.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/HostInfo.h"
#include "platform/internal/Posix.h"

namespace tvxcore::platform {
namespace {

std::string DirectoryPart(const std::string& path) {
  auto slash = path.rfind('/');
  if (slash == std::string::npos) return std::string();
  return slash == 0 ? std::string("/") : path.substr(0, slash);
}

}  // namespace

std::uint32_t ProcessorCount() noexcept {
  cpu_set_t set;
  CPU_ZERO(&set);
  if (sched_getaffinity(0, sizeof(set), &set) == 0) {
    int count = CPU_COUNT(&set);
    if (count > 0) return static_cast<std::uint32_t>(count);
  }
  long online = sysconf(_SC_NPROCESSORS_ONLN);
  return online > 0 ? static_cast<std::uint32_t>(online) : 1u;
}

std::uint64_t PhysicalMemoryBytes() noexcept {
  long pages = sysconf(_SC_PHYS_PAGES);
  long pageSize = sysconf(_SC_PAGESIZE);
  if (pages <= 0 || pageSize <= 0) return 0;
  return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize);
}

// Async-signal-safe: the fault-signal path asks this too, so no allocation
// and no stdio, only open/read/close on a stack buffer.
bool TracerAttached() noexcept {
  internal::ScopedFd fd(
      internal::RetryOnEintr([] { return ::open("/proc/self/status", O_RDONLY | O_CLOEXEC); }));
  if (!fd.valid()) return false;
  char buffer[4096];
  std::size_t length = 0;
  (void)internal::ReadAll(fd.get(), buffer, sizeof(buffer) - 1, length);
  buffer[length] = '\0';
  const char* field = std::strstr(buffer, "TracerPid:");
  if (!field) return false;
  field += 10;
  while (*field == ' ' || *field == '\t') ++field;
  return *field >= '1' && *field <= '9';
}

void TrapIntoDebugger() noexcept { raise(SIGTRAP); }

std::string NativeLocaleName() {
  for (const char* variable : {"LC_ALL", "LC_NUMERIC", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value && *value) return value;
  }
  return "C";
}

std::string ModuleDirectoryOf(const void* address) {
  Dl_info info{};
  if (dladdr(address, &info) == 0 || !info.dli_fname || !*info.dli_fname) return std::string();
  std::string path = info.dli_fname;
  char resolved[PATH_MAX];
  if (realpath(path.c_str(), resolved)) path = resolved;
  return DirectoryPart(path);
}

std::string ExecutableDirectory() {
  char buffer[PATH_MAX];
  ssize_t length = readlink("/proc/self/exe", buffer, sizeof(buffer) - 1);
  if (length <= 0) return std::string();
  return DirectoryPart(std::string(buffer, static_cast<std::size_t>(length)));
}

bool IsDirectory(const std::string& path) noexcept {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::string ProcessName() {
  char buffer[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", buffer, sizeof(buffer) - 1);
  if (length > 0) {
    const std::string path(buffer, static_cast<std::size_t>(length));
    return path.substr(path.rfind('/') + 1);
  }
  char name[17] = {};
  if (prctl(PR_GET_NAME, name, 0, 0, 0) == 0) return name;
  return std::string();
}

std::string CurrentThreadName() {
  char name[17] = {};
  if (prctl(PR_GET_NAME, name, 0, 0, 0) != 0) return std::string();
  return name;
}

bool HasEnvironmentVariable(const char* name) noexcept {
  return name && std::getenv(name) != nullptr;
}

void TerminateCurrentProcess() noexcept { _exit(255); }

}  // namespace tvxcore::platform
