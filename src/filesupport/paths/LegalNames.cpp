// Legal file names: the units no name may hold and the reserved device names.
#include "base/NoDestructor.h"
#include "filesupport/internal/TextFold.h"
#include "tvxcore/utility/FileUtils.h"

namespace tvxcore::utility::FileUtils {
namespace {

const UTF16String kDeviceNames[] = {u"CON",  u"PRN",  u"AUX",  u"NUL",  u"COM1", u"COM2",
                                    u"COM3", u"COM4", u"COM5", u"COM6", u"COM7", u"COM8",
                                    u"COM9", u"LPT1", u"LPT2", u"LPT3", u"LPT4", u"LPT5",
                                    u"LPT6", u"LPT7", u"LPT8", u"LPT9"};

}  // namespace

const UTF16String& GetIllegalFilenameCharacters() {
  static const base::NoDestructor<UTF16String> kIllegal(u"\\/:*?\"<>|");
  return *kIllegal;
}

bool ReplaceIllegalFileNameCharacters(UTF16String& name, UTF16Char replacement) {
  if (name.empty()) return false;
  const UTF16String input = name;
  const UTF16String& illegal = GetIllegalFilenameCharacters();
  if (replacement != 0 && (illegal.find(replacement) != UTF16String::npos || replacement == u'.' ||
                           replacement == u' '))
    replacement = u'-';

  auto replaceWhere = [&](auto isBad) {
    UTF16String out;
    out.reserve(name.size());
    for (UTF16Char unit : name) {
      if (!isBad(unit))
        out.push_back(unit);
      else if (replacement != 0)
        out.push_back(replacement);
    }
    name.swap(out);
  };
  replaceWhere([&](UTF16Char unit) { return illegal.find(unit) != UTF16String::npos; });
  replaceWhere([](UTF16Char unit) { return unit >= 1 && unit <= 31; });

  const UTF16String folded = filesupport::internal::FoldCase(name);
  const auto firstDot = folded.find(u'.');
  for (const UTF16String& device : kDeviceNames) {
    const UTF16String foldedDevice = filesupport::internal::FoldCase(device);
    if (folded == foldedDevice) {
      name.push_back(replacement != 0 ? replacement : u'-');
      break;
    }
    if (folded.starts_with(foldedDevice) && firstDot == foldedDevice.size()) {
      if (replacement != 0)
        name.insert(foldedDevice.size(), 1, replacement);
      else
        name.replace(0, foldedDevice.size(), u"-");
      break;
    }
  }

  auto endsBadly = [&] { return !name.empty() && (name.back() == u'.' || name.back() == u' '); };
  if (endsBadly()) {
    if (replacement != 0) {
      name.back() = replacement;
    } else {
      while (endsBadly()) name.pop_back();
    }
  }
  if (!name.empty() && name.front() == u'.') {
    if (replacement != 0) {
      name.front() = replacement;
    } else {
      std::size_t dots = 0;
      while (dots < name.size() && name[dots] == u'.') ++dots;
      name.erase(0, dots);
    }
  }
  if (replacement == 0 && name.empty()) name = u"-";
  return name != input;
}

}  // namespace tvxcore::utility::FileUtils
