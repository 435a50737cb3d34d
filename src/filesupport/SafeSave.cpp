#include "tvxcore/filesupport/SafeSave.h"

#include <exception>
#include <string>

#include "filesupport/internal/PathCodec.h"
#include "platform/AtomicReplace.h"
#include "platform/FileSystem.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/threads/Thread.h"
#include "tvxcore/utility/FileUtils.h"

namespace tvxcore::filesupport {
namespace {

namespace fu = utility::FileUtils;

void AppendDecimal(UTF16String& text, long long value) {
  for (char digit : std::to_string(value)) text.push_back(static_cast<UTF16Char>(digit));
}

UTF16String TempPathFor(const File& target) {
  UTF16String name = target.GetTitle();
  name.push_back(u'.');
  AppendDecimal(name, static_cast<long long>(threads::GetCurrentProcessID()));
  name.push_back(u'.');
  AppendDecimal(name, static_cast<long long>(threads::GetCurrentThreadID()));
  name += target.GetExtension(true);
  UTF16String parent, path;
  fu::SplitLongPath(target.FullPath(), &parent, nullptr, nullptr);
  fu::BuildPathSpec(parent, name, path);
  return path;
}

}  // namespace

SafeSave::SafeSave(const File& target)
    : target_(target), temp_(TempPathFor(target)), uncaughtAtStart_(std::uncaught_exceptions()) {}

SafeSave::~SafeSave() noexcept(false) {
  if (temp_.FullPath() == target_.FullPath() || !temp_.Exists()) return;
  try {
    temp_.Delete();
  } catch (const file_delete_exception&) {
    if (std::uncaught_exceptions() <= uncaughtAtStart_) throw;
  }
}

void SafeSave::Commit() {
  std::string from, to;
  const bool named =
      internal::ToNative(temp_.FullPath(), from) && internal::ToNative(target_.FullPath(), to);
  // A temporary file that can't be synced is no reason to stop: the rename
  // still gives a whole file in every case but a power loss. A missing one
  // makes the rename fail below.
  if (named) platform::SyncFileAtPath(from);
  const int error = named ? platform::ReplaceFileAtomically(from, to)
                          : static_cast<int>(platform::kErrorInvalidName);
  if (error != 0) throw rename_file(temp_, target_.GetName());
  temp_ = target_;
  UTF16String parent;
  fu::SplitLongPath(target_.FullPath(), &parent, nullptr, nullptr);
  std::string nativeParent;
  if (internal::ToNative(parent, nativeParent)) platform::SyncDirectoryAtPath(nativeParent);
}

}  // namespace tvxcore::filesupport
