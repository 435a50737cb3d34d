// Host names of volumes and the cache of reachable network shares.
#include <map>

#include "base/NoDestructor.h"
#include "filesupport/internal/ErrorMapping.h"
#include "filesupport/internal/PathCodec.h"
#include "filesupport/internal/PathQueries.h"
#include "tvxcore/threads/CheckedLocks.h"
#include "tvxcore/utility/FileUtils.h"

namespace tvxcore::utility::FileUtils {
namespace {

using filesupport::internal::FromNative;
using filesupport::internal::SplitNetworkSource;

// The answers of MountHost, keyed by CreateServerHostString, until
// PurgeServerHostCache. Used from any thread until process exit.
class HostCache {
 public:
  static HostCache& Instance() {
    static base::NoDestructor<HostCache> cache;
    return *cache;
  }

  bool Find(const UTF16String& host, bool* outReachable) TVX_EXCLUDES(mutex_) {
    threads::CheckedLock lock(mutex_);
    auto it = hosts_.find(host);
    if (it == hosts_.end()) return false;
    if (outReachable != nullptr) *outReachable = it->second;
    return true;
  }
  void Store(const UTF16String& host, bool reachable) TVX_EXCLUDES(mutex_) {
    threads::CheckedLock lock(mutex_);
    hosts_[host] = reachable;
  }
  void Clear() TVX_EXCLUDES(mutex_) {
    threads::CheckedLock lock(mutex_);
    hosts_.clear();
  }

 private:
  threads::BoostMutex mutex_;
  std::map<UTF16String, bool> hosts_ TVX_GUARDED_BY(mutex_);
};

}  // namespace

UTF16String CreateServerHostString(const UTF16String& server, const UTF16String& share) {
  return u"\\\\" + server + u"\\" + share;
}

bool MountHost(const UTF16String& server, const UTF16String& share, bool reportFailure) {
  const UTF16String host = CreateServerHostString(server, share);
  bool reachable = false;
  if (!IsServerHostCached(host, &reachable)) {
    // On Linux a share is reachable when it is mounted and answers.
    UTF16String mountPath;
    reachable = filesupport::internal::FindShareMount(server, share, mountPath);
    CacheServerHost(host, reachable);
  }
  if (!reachable && reportFailure)
    filesupport::internal::ThrowForError(platform::kErrorBadNetPath, host);
  return reachable;
}

bool IsServerHostCached(const UTF16String& host, bool* outReachable) {
  return HostCache::Instance().Find(host, outReachable);
}

void CacheServerHost(const UTF16String& host, bool reachable) {
  HostCache::Instance().Store(host, reachable);
}

void PurgeServerHostCache() { HostCache::Instance().Clear(); }

UTF16String GetPathVolumeHostName(const UTF16String& path, UTF16String* outShareOrLabel,
                                  bool reportFailure) {
  UTF16String result;
  int error = 0;
  bool network = false;
  if (!GetVolumePath(path, result)) {
    error = platform::kErrorPathNotFound;
  } else if (result.starts_with(u"\\\\")) {
    network = true;
  } else if (result[0] == u'/') {
    platform::MountPoint mount;
    std::string server, share;
    filesupport::internal::MountOf(result, mount);
    if (platform::IsNetworkFileSystem(mount.fsType) &&
        SplitNetworkSource(mount.source, server, share)) {
      result = FromNative(server);
      if (outShareOrLabel != nullptr) *outShareOrLabel = FromNative(share);
    } else {
      // A local volume: its label (empty if it has none), and this computer.
      if (outShareOrLabel != nullptr) {
        std::string label;
        platform::GetVolumeLabel(mount, label);
        *outShareOrLabel = FromNative(label);
      }
      std::string host;
      error = platform::GetHostName(host);
      result = error == 0 ? FromNative(host.substr(0, host.find('.'))) : UTF16String();
    }
  } else {
    // A drive letter names no volume on Linux.
    error = platform::kErrorNotConnected;
    result.clear();
  }
  if (network) {
    result.erase(0, 2);
    const auto slash = result.find(u'\\');
    if (slash == UTF16String::npos) {
      result.clear();
    } else {
      if (outShareOrLabel != nullptr) *outShareOrLabel = result.substr(slash + 1);
      result.resize(slash);
    }
  }
  if (!result.empty()) return result;
  if (reportFailure) filesupport::internal::ThrowForError(error, path);
  return UTF16String();
}

}  // namespace tvxcore::utility::FileUtils

namespace tvxcore::filesupport::internal {

// Server and share of a network mount's source: "//server/share/..." or
// "server:/export".
bool SplitNetworkSource(const std::string& source, std::string& server, std::string& share) {
  if (source.rfind("//", 0) == 0) {
    auto slash = source.find('/', 2);
    server = source.substr(2, slash == std::string::npos ? std::string::npos : slash - 2);
    share = slash == std::string::npos ? std::string() : source.substr(slash + 1);
    return !server.empty();
  }
  auto colon = source.find(':');
  if (colon == std::string::npos || colon == 0) return false;
  server = source.substr(0, colon);
  share = source.substr(colon + 1);
  return true;
}

bool FindShareMount(const UTF16String& server, const UTF16String& share, UTF16String& mountPath) {
  namespace fu = utility::FileUtils;
  UTF16String wanted = share;
  while (!wanted.empty() && (wanted.front() == u'/' || wanted.front() == u'\\')) wanted.erase(0, 1);
  for (const auto& mount : platform::ReadMounts()) {
    std::string mountServer, mountShare;
    if (!platform::IsNetworkFileSystem(mount.fsType) ||
        !SplitNetworkSource(mount.source, mountServer, mountShare))
      continue;
    UTF16String shareText = FromNative(mountShare);
    while (!shareText.empty() && shareText.front() == u'/') shareText.erase(0, 1);
    if (fu::PathsEqual(FromNative(mountServer), server) && fu::PathsEqual(shareText, wanted) &&
        fu::DirectoryExists(FromNative(mount.path))) {
      mountPath = FromNative(mount.path);
      return true;
    }
  }
  return false;
}

}  // namespace tvxcore::filesupport::internal
