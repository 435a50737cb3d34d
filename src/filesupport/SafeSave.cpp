#include "tvxcore/filesupport/SafeSave.h"

#include <exception>
#include <string>

#include "filesupport/internal/ErrorMapping.h"
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

File& SafeSave::CreateTempFile() {
  std::string temp, target;
  const int error =
      internal::ToNative(temp_.FullPath(), temp) && internal::ToNative(target_.FullPath(), target)
          ? platform::CreateFileLike(temp, target)
          : static_cast<int>(platform::kErrorInvalidName);
  // The user asked to save the target: a failure names it, not the temporary file.
  internal::ThrowCreateError(error, target_);
  return temp_;
}

void SafeSave::Commit() {
  std::string from, to;
  if (!internal::ToNative(temp_.FullPath(), from) || !internal::ToNative(target_.FullPath(), to))
    throw rename_file(target_, target_.GetName());
  // The new version takes the old one's permission bits, and must be whole on
  // the device before it takes the target's name: a failed flush (an I/O
  // error, a full disk or quota) may have lost some of what was written. A
  // missing temporary file leaves both steps to the rename, which reports it.
  int error = platform::PrepareReplacement(from, to);
  if (error != 0 && error != platform::kErrorFileNotFound &&
      error != platform::kErrorPathNotFound) {
    try {
      temp_.Delete();
    } catch (const file_delete_exception&) {
      // The destructor tries again.
    }
    throw file_exception(target_);
  }
  error = platform::ReplaceFileAtomically(from, to);
  if (error != 0) throw rename_file(target_, target_.GetName());
  temp_ = target_;
  UTF16String parent;
  fu::SplitLongPath(target_.FullPath(), &parent, nullptr, nullptr);
  std::string nativeParent;
  if (internal::ToNative(parent, nativeParent)) platform::SyncDirectoryAtPath(nativeParent);
}

}  // namespace tvxcore::filesupport
