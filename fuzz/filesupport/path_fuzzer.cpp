// Legal file names, path normal forms and the path codec on arbitrary input.
// Checks: a legal name is always legal and, with a neutral replacement, stable;
// normal forms are stable where they are meant to be; native names round-trip.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "filesupport/internal/PathCodec.h"
#include "tvxcore/filesupport/File.h"
#include "tvxcore/utility/FileUtils.h"

using namespace tvxcore;
namespace fu = tvxcore::utility::FileUtils;

namespace {

void Check(bool condition) {
  if (!condition) std::abort();
}

bool IsDevice(const UTF16String& name) {
  static const char* const kDevices[] = {
      "con",  "prn",  "aux",  "nul",  "com1", "com2", "com3", "com4", "com5", "com6", "com7",
      "com8", "com9", "lpt1", "lpt2", "lpt3", "lpt4", "lpt5", "lpt6", "lpt7", "lpt8", "lpt9"};
  for (const char* device : kDevices) {
    const std::size_t n = std::char_traits<char>::length(device);
    if (name.size() < n) continue;
    bool same = true;
    for (std::size_t i = 0; i < n && same; ++i) {
      UTF16Char unit = name[i];
      if (unit >= u'A' && unit <= u'Z') unit = static_cast<UTF16Char>(unit + 32);
      same = unit == static_cast<UTF16Char>(device[i]);
    }
    if (same && (name.size() == n || name[n] == u'.')) return true;
  }
  return false;
}

void CheckLegalName(const UTF16String& input, UTF16Char replacement) {
  UTF16String name = input;
  fu::ReplaceIllegalFileNameCharacters(name, replacement);
  if (input.empty()) {
    Check(name.empty());
    return;
  }
  Check(!name.empty());
  for (UTF16Char unit : name) {
    Check(fu::GetIllegalFilenameCharacters().find(unit) == UTF16String::npos);
    // A control replacement is used as given: it is the only control left.
    Check(!(unit >= 1 && unit <= 31) || unit == replacement);
  }
  Check(name.front() != u'.');
  Check(name.back() != u'.' && name.back() != u' ');
  // A replacement that is no letter or digit can't spell a device name, so
  // the result is final.
  if (replacement == u'_' || replacement == u'-') {
    Check(!IsDevice(name));
    UTF16String again = name;
    Check(!fu::ReplaceIllegalFileNameCharacters(again, replacement));
    Check(again == name);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const std::uint8_t mode = data[0];
  ++data;
  --size;
  UTF16String units;
  for (std::size_t i = 0; i + 1 < size; i += 2)
    units.push_back(static_cast<UTF16Char>(data[i] | (data[i + 1] << 8)));

  // Legal names, with a fixed replacement, none, or one from the input.
  const UTF16Char replacements[] = {u'_', u'-', 0, units.empty() ? u'?' : units[0]};
  CheckLegalName(units, replacements[mode & 3]);

  // Native normal forms are stable.
  const UTF16String file = filesupport::File(units).FullPath();
  Check(filesupport::File(file).FullPath() == file);
  Check(file.find(u"//") == UTF16String::npos);
  const UTF16String dir = filesupport::Dir(units).FullPath();
  Check(filesupport::Dir(dir).FullPath() == dir);
  Check(dir.size() <= 1 || dir.back() != u'/');

  // The Windows normal form has no "/" and no run of backslashes after index 0.
  for (bool isDir : {false, true}) {
    const UTF16String windows = filesupport::NormalizeWindowsPath(units, isDir);
    Check(windows.find(u'/') == UTF16String::npos);
    Check(windows.size() < 2 || windows.find(u"\\\\", 1) == UTF16String::npos);
  }
  Check(filesupport::PrepAsLongPathName(units).compare(0, 4, u"\\\\?\\") == 0);
  UTF16String volume, parent, title, extension;
  fu::GetWindowsVolumePath(units, volume);
  fu::SplitLongPath(units, &parent, &title, &extension);
  (void)fu::ExtendedPathForm(units);
  (void)fu::NormalizePath(units);
  Check(filesupport::CompareFileNames(units, units) == 0);

  // Native bytes survive the trip through UTF-16.
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  std::string back;
  const UTF16String decoded = filesupport::internal::FromNative(bytes);
  if (bytes.find('\0') == std::string::npos) {
    Check(filesupport::internal::ToNative(decoded, back));
    Check(back == bytes);
  }
  return 0;
}
