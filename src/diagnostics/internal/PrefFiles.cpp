#include "diagnostics/internal/PrefFiles.h"

#include <algorithm>
#include <new>

#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/filesupport/PlatformByteStreams.h"
#include "tvxcore/filesupport/SafeSave.h"
#include "tvxcore/utility/FileUtils.h"

namespace tvxcore::debug::internal {

FileReading ReadWholeFile(const filesupport::File& file, std::string& outText, bool& outCut) {
  outText.clear();
  outCut = false;
  try {
    if (!file.Exists()) return FileReading::kMissing;
    filesupport::IPlatformByteStream in(file, filesupport::kPlatformStreamDefault);
    const unsigned long long length = in.Length();
    outCut = length > kMaxDatabaseBytes;
    outText.resize(
        static_cast<std::size_t>(std::min<unsigned long long>(length, kMaxDatabaseBytes)));
    if (!outText.empty()) {
      in.ReadBlock(reinterpret_cast<unsigned char*>(outText.data()),
                   static_cast<std::uint32_t>(outText.size()));
    }
    return FileReading::kRead;
  } catch (const filesupport::file_not_found_exception&) {
    return FileReading::kMissing;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (...) {
    outText.clear();
    return FileReading::kUnreadable;
  }
}

bool SaveWholeFile(const filesupport::File& file, std::string_view text, bool keepOld) {
  try {
    if (keepOld && file.Exists())
      utility::FileUtils::Copy(file.FullPath(), file.FullPath() + u".old");
    filesupport::SafeSave save(file);
    {
      filesupport::OPlatformByteStream out(save.CreateTempFile(),
                                           filesupport::kPlatformStreamDefault);
      while (!text.empty()) {
        const std::size_t count = std::min<std::size_t>(text.size(), std::size_t{1} << 30);
        out.WriteBlock(reinterpret_cast<const unsigned char*>(text.data()),
                       static_cast<std::uint32_t>(count));
        text.remove_prefix(count);
      }
    }
    save.Commit();
    return true;
  } catch (const std::bad_alloc&) {
    throw;
  } catch (...) {
    return false;
  }
}

}  // namespace tvxcore::debug::internal
