#include "tvxcore/proplist/PropListFiles.h"

#include <algorithm>
#include <cstdint>
#include <memory>

#include "platform/FileSystem.h"
#include "proplist/internal/RoutedReader.h"
#include "tvxcore/config/Errors.h"
#include "tvxcore/filesupport/BufferedByteStreams.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/filesupport/PlatformByteStreams.h"
#include "tvxcore/filesupport/SafeSave.h"
#include "tvxcore/proplist/PropListXMLHandler.h"
#include "tvxcore/utility/UnicodeConversion.h"
#include "tvxcore/xml/XMLParser.h"
#include "xml/internal/FileRead.h"

namespace tvxcore::proplist::utils {
namespace {

constexpr char kMissingParserFactoryLoad[] =
    "$$$/tvxcore/proplist/Error/PropListUtils/MissingParserFactoryLoad=Missing XML Parser Factory "
    "in LoadPropList.";
constexpr char kParsingPropertiesListLoad[] =
    "$$$/tvxcore/proplist/Error/PropListUtils/ParsingPropertiesListLoad=Error parsing properties "
    "list from file \"^1\".";
constexpr char kParsingPropertiesListCorruptRename[] =
    "$$$/tvxcore/proplist/Error/PropListUtils/ParsingPropertiesListCorruptRename=Error parsing "
    "properties list from file \"^1\". It has been renamed to \"^2\" for backup. Proceeding.";

constexpr char kReadingPropertiesListLoad[] =
    "$$$/tvxcore/proplist/Error/PropListUtils/ReadingPropertiesListLoad=Could not read properties "
    "list from file \"^1\": ^2.";

constexpr std::uint32_t kModule = 104;
constexpr std::uint32_t kWriteWindow = 64 * 1024;
constexpr std::uint32_t kWriteBlock = 4096;

void Report(const char* key, std::int32_t number,
            const config::ReplacementValue& value1 = config::ReplacementValue(),
            const config::ReplacementValue& value2 = config::ReplacementValue()) {
  config::ThrowError(config::kErrorLevel_NonFatal, key, kModule, number, true, value1, value2,
                     config::ReplacementValue(), config::ReplacementValue());
}

// Puts a corrupt file aside as "<name>.old", replacing an older backup, and
// answers the backup's name.
UTF16String PutAside(filesupport::File& file) {
  static constexpr UTF16Char kSuffix[] = u".old";
  const UTF16String backupName = file.GetName() + kSuffix;
  filesupport::File backup(file.FullPath() + kSuffix);
  if (backup.Exists()) backup.Delete();
  file.Rename(backupName);
  return backupName;
}

template <typename T, std::size_t N>
void ReadArray(const UTF8String& key, const PropList& list, T (&out)[N]) {
  PropList::List<T> values;
  if (!list.GetValue(key, values)) return;
  std::size_t i = 0;
  for (auto it = values.begin(); it != values.end() && i < N; ++it) out[i++] = *it;
}

}  // namespace

void LoadPropList(const UTF16String& path, PropList& list, bool renameCorrupt) {
  std::unique_ptr<xml::AbstractParseHandler> handler =
      std::make_unique<internal::RoutedPropListXMLHandler>(&list);
  std::unique_ptr<xml::AbstractDocParser> parser = xml::GetParser(handler);
  if (!parser) {
    Report(kMissingParserFactoryLoad, 21);
    return;
  }
  xml::XMLParseStatus status;
  try {
    status = parser->ParseDocument(path);
  } catch (...) {
    // A report from inside the parse (a version too new) that the error
    // manager turned into an exception: the list must not keep what was read.
    list.Clear();
    throw;
  }
  if (status == xml::kXMLParseStatus_Success) return;
  list.Clear();
  // Only a file that was read and did not parse is corrupt. One that could
  // not be read (a directory, no permission, an I/O error) is reported as
  // such and never put aside; a missing one is the plain load error.
  xml::internal::FileReadFailure failure;
  if (!xml::internal::LastReadFailure(*parser, failure)) failure = xml::internal::ProbeFile(path);
  parser.reset();
  const bool missing =
      failure.code == platform::kErrorFileNotFound || failure.code == platform::kErrorPathNotFound;
  if (failure.code != platform::kErrorSuccess && !missing) {
    Report(kReadingPropertiesListLoad, 23, config::ReplacementValue(path),
           config::ReplacementValue(
               utility::UTF8to16(UTF8String(failure.reason.begin(), failure.reason.end()))));
    return;
  }
  filesupport::File file(path);
  if (renameCorrupt && !missing && file.Exists()) {
    const UTF16String backupName = PutAside(file);
    Report(kParsingPropertiesListCorruptRename, 22, config::ReplacementValue(path),
           config::ReplacementValue(backupName));
    return;
  }
  Report(kParsingPropertiesListLoad, 22, config::ReplacementValue(path));
}

void SavePropList(filesupport::File& file, const PropList& list) {
  UTF8String text;
  WritePropList(text, list);
  filesupport::SafeSave save(file);
  filesupport::File& temp = save.CreateTempFile();
  {
    filesupport::OPlatformByteStream out(temp, filesupport::kPlatformStreamDefault);
    filesupport::OBufferedByteStream buffered(out, kWriteWindow, kWriteBlock);
    const unsigned char* bytes = text.data();
    std::size_t left = text.size();
    while (left > 0) {
      const auto count = static_cast<std::uint32_t>(std::min<std::size_t>(left, 1u << 30));
      buffered.WriteBlock(bytes, count);
      bytes += count;
      left -= count;
    }
    buffered.Flush();
  }
  save.Commit();
}

void SavePropList(const UTF16String& path, const PropList& list) {
  filesupport::File file(path);
  SavePropList(file, list);
}

void WriteRect32(const UTF8String& key, const geom::RectT<long>& rect, PropList& list) {
  list.SetValue(key, PropList::List<std::int32_t>{static_cast<std::int32_t>(rect.left),
                                                  static_cast<std::int32_t>(rect.top),
                                                  static_cast<std::int32_t>(rect.right),
                                                  static_cast<std::int32_t>(rect.bottom)});
}

void WriteRectF32(const UTF8String& key, const geom::RectT<float>& rect, PropList& list) {
  list.SetValue(key, PropList::List<float>{rect.left, rect.top, rect.right, rect.bottom});
}

void WritePoint32(const UTF8String& key, const geom::PointT<long>& point, PropList& list) {
  list.SetValue(key, PropList::List<std::int32_t>{static_cast<std::int32_t>(point.x),
                                                  static_cast<std::int32_t>(point.y)});
}

void WritePointF32(const UTF8String& key, const geom::PointT<float>& point, PropList& list) {
  list.SetValue(key, PropList::List<float>{point.x, point.y});
}

geom::RectT<long> ReadRect32(const UTF8String& key, const PropList& list) {
  std::int32_t v[4] = {};
  ReadArray(key, list, v);
  return geom::RectT<long>{v[0], v[1], v[2], v[3]};
}

geom::RectT<float> ReadRectF32(const UTF8String& key, const PropList& list) {
  float v[4] = {};
  ReadArray(key, list, v);
  return geom::RectT<float>{v[0], v[1], v[2], v[3]};
}

geom::PointT<long> ReadPoint32(const UTF8String& key, const PropList& list) {
  std::int32_t v[2] = {};
  ReadArray(key, list, v);
  return geom::PointT<long>{v[0], v[1]};
}

geom::PointT<float> ReadPointF32(const UTF8String& key, const PropList& list) {
  float v[2] = {};
  ReadArray(key, list, v);
  return geom::PointT<float>{v[0], v[1]};
}

}  // namespace tvxcore::proplist::utils
