// Path strings: splitting, joining, comparing and the Windows forms. Pure
// functions on the text; nothing here asks the file system.
#include "filesupport/internal/TextFold.h"
#include "tvxcore/utility/FileUtils.h"

namespace tvxcore::utility::FileUtils {

void SplitLongPath(const UTF16String& path, UTF16String* outParent, UTF16String* outTitle,
                   UTF16String* outExtension) {
  const auto slash = path.rfind(u'/');
  const auto dot = path.rfind(u'.');
  const std::size_t nameStart = slash == UTF16String::npos ? 0 : slash + 1;
  const bool hasExtension = dot != UTF16String::npos && dot >= nameStart;
  if (outParent != nullptr) {
    if (slash == UTF16String::npos || path.size() == 1)
      outParent->clear();
    else if (slash == 0)
      *outParent = u"/";  // a name in the root
    else
      *outParent = path.substr(0, slash);
  }
  if (outTitle != nullptr)
    *outTitle = path.substr(nameStart, hasExtension ? dot - nameStart : UTF16String::npos);
  if (outExtension != nullptr && hasExtension) *outExtension = path.substr(dot);
}

bool GetParentPath(const UTF16String& path, UTF16String& out) {
  const auto slash = path.rfind(u'/');
  if (slash == UTF16String::npos) return false;
  UTF16String parent = path.substr(0, slash);
  if (parent.empty()) {
    if (path.size() == 1) return false;  // "/" has no parent
    parent = u"/";
  } else if (parent.size() > 1 && parent.back() == u'/') {
    parent.pop_back();
  }
  out = parent;
  return true;
}

UTF16String GetPathFileName(const UTF16String& path) {
  const auto slash = path.rfind(u'/');
  return slash == UTF16String::npos ? UTF16String() : path.substr(slash + 1);
}

void BuildPathSpec(const UTF16String& dir, const UTF16String& name, UTF16String& out) {
  UTF16String result = dir;
  if (!result.empty() && result.back() != u'/') result.push_back(u'/');
  result += name;
  out = std::move(result);
}

UTF16String NormalizePath(const UTF16String& path) {
  return filesupport::internal::FoldCase(filesupport::internal::ComposeNfc(path));
}

bool PathsEqual(const UTF16String& a, const UTF16String& b) {
  return NormalizePath(a) == NormalizePath(b);
}

bool GetWindowsVolumePath(const UTF16String& path, UTF16String& out) {
  out.clear();
  UTF16String copy = path;
  if (copy.size() >= 5 && copy[0] == u'\\' && copy[1] == u'\\') {
    const auto afterServer = copy.find(u'\\', 3);
    if (afterServer != UTF16String::npos && afterServer < copy.size() - 1) {
      const auto afterShare = copy.find(u'\\', afterServer + 1);
      if (afterShare != UTF16String::npos) copy.resize(afterShare);
      out = copy;
    }
  }
  if (copy.size() >= 2 && IsDriveLetter(copy[0]) && copy[1] == u':') out = copy.substr(0, 2);
  return !out.empty();
}

UTF16String ExtendedPathForm(const UTF16String& path) {
  if (path.find(u"\\\\?\\") != UTF16String::npos) return path;
  if (path.find(u"\\\\") != UTF16String::npos) return u"\\\\?\\UNC" + path.substr(1);
  if (path.size() >= 2 && IsDriveLetter(path[0]) && path[1] == u':') return u"\\\\?\\" + path;
  return path;
}

bool IsDriveLetter(UTF16Char unit) {
  return (unit >= u'A' && unit <= u'Z') || (unit >= u'a' && unit <= u'z');
}

UTF16Char GetDriveLetterForPath(const UTF16String& path) {
  return path.size() >= 2 && path[1] == u':' ? path[0] : UTF16Char(0);
}

}  // namespace tvxcore::utility::FileUtils
