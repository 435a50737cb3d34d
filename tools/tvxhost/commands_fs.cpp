// tvxhost fs: files, listings, volumes, legal names and copying through the
// library's file classes.

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/make_shared.hpp>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string>

#include "Args.h"
#include "FileChecks.h"
#include "Host.h"
#include "HostServices.h"
#include "tvxcore/filesupport/DirIterators.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/utility/FileUtils.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxhost {
namespace {

using namespace tvxcore;
using namespace tvxcore::filesupport;
namespace fu = tvxcore::utility::FileUtils;

// The host's own texts about paths, translated like the library's.
constexpr char kUnreadableDir[] =
    "$$$/tvxhost/fs/UnreadableDir=Could not read the directory '@0'. Access was denied.";
constexpr char kIsAFile[] = "$$$/tvxhost/fs/IsAFile='@0' is a file, not a directory.";
constexpr char kExists[] = "$$$/tvxhost/fs/Exists='@0' exists already. Add --force to replace it.";
constexpr char kSameFile[] = "$$$/tvxhost/fs/SameFile='@0' and '@1' are the same file.";

std::string Native(const UTF16String& path) { return File(path).FullPathMultiByte(); }

// "2024-05-01T12:30:00.123456Z"
std::string IsoDate(const boost::posix_time::ptime& time) {
  return boost::posix_time::to_iso_extended_string(time) + "Z";
}

// The free and the total space of the volume that holds the directory `dir`.
// The library asks about a path's parent, so it is given a name inside.
bool VolumeSpace(const UTF16String& dir, unsigned long long& free, unsigned long long& total) {
  UTF16String inside;
  fu::BuildPathSpec(dir, u".", inside);
  try {
    free = fu::GetVolumeFreeSpace(inside);
    total = fu::GetVolumeSize(inside);
    return true;
  } catch (const file_exception&) {
    return false;
  }
}

int Info(const Args& raw) {
  const ArgList args(raw, {}, {"<path>"});
  const UTF16String path = PathArg(args[0], "<path>");
  RequireReachable(path);
  const File file(path);
  const bool isDir = fu::IsDir(path);
  std::cout << "path:      " << file.FullPathMultiByte() << '\n'
            << "kind:      " << (isDir ? "directory" : "file") << '\n';
  if (!isDir) {
    const unsigned long long size = file.Size();
    std::cout << "name:      " << ToUtf8(file.GetName()) << '\n'
              << "title:     " << ToUtf8(file.GetTitle()) << '\n'
              << "extension: " << ToUtf8(file.GetExtension(true)) << '\n'
              << "size:      " << HumanBytes(size)
              << (size >= 1024 ? " (" + std::to_string(size) + " bytes)" : "") << '\n'
              << "read-only: " << (file.IsReadOnly() ? "yes" : "no") << '\n';
  }
  const Dir dir(path);
  std::cout << "created:   " << IsoDate(isDir ? dir.Created() : file.Created()) << '\n'
            << "modified:  " << IsoDate(isDir ? dir.Modified() : file.Modified()) << '\n';
  UTF16String volume;
  unsigned long long free = 0, total = 0;
  if (fu::GetVolumePath(path, volume)) {
    std::cout << "volume:    " << Native(volume) << " (" << ToUtf8(fu::GetVolumeNameForPath(path))
              << ")\n";
    if (VolumeSpace(volume, free, total))
      std::cout << "free:      " << HumanBytes(free) << " of " << HumanBytes(total) << '\n';
  }
  return kExitSuccess;
}

int List(const Args& raw) {
  const ArgList args(raw, {{"-r", "--recursive", false}}, {"<dir>"});
  const UTF16String path = PathArg(args[0], "<dir>");
  const Dir dir(path);
  if (!dir.Exists()) {
    RequireReachable(path);
    throw Failure(Localized(kIsAFile, path));
  }
  auto byName = boost::make_shared<PathCompare>(
      [](const UTF16String& a, const UTF16String& b) { return CompareFileNames(a, b) < 0; });
  std::size_t files = 0, dirs = 0;
  if (args.Has("-r")) {
    for (RecursiveFileIterator it(dir, false, {}, UTF16String(), byName);
         it != RecursiveFileIterator(); ++it, ++files)
      std::cout << (*it).FullPathMultiByte() << '\n';
  } else {
    for (auto it = dir.BeginSubdirs(false, nullptr, byName); it != Dir::EndSubdirs(); ++it, ++dirs)
      std::cout << (*it).FullPathMultiByte() << "/\n";
    for (auto it = dir.BeginFiles(false, nullptr, false, byName); it != Dir::EndFiles();
         ++it, ++files)
      std::cout << (*it).FullPathMultiByte() << '\n';
  }
  // A listing says nothing of a directory it could not read: it is empty. One
  // that may not be searched can be told; one that may be searched but not
  // read cannot, with what the library offers.
  if (files == 0 && dirs == 0 && !Searchable(path)) throw Failure(Localized(kUnreadableDir, path));
  std::cerr << files << (files == 1 ? " file" : " files");
  if (!args.Has("-r")) std::cerr << ", " << dirs << (dirs == 1 ? " directory" : " directories");
  std::cerr << '\n';
  return kExitSuccess;
}

int Volumes(const Args& raw) {
  const ArgList args(raw, {}, {});
  std::cout << std::left << std::setw(24) << "MOUNTED ON" << ' ' << std::setw(12) << "KIND" << ' '
            << std::setw(16) << "LABEL" << ' ' << std::right << std::setw(10) << "FREE" << ' '
            << std::setw(10) << "SIZE" << '\n';
  for (auto it = Dir::BeginVolumes(); it != Dir::EndVolumes(); ++it) {
    const UTF16String path = (*it).FullPath();
    // The library names a volume by its label, or by its kind when it has
    // none; the host name call gives the label (or a share) alone.
    UTF16String label;
    fu::GetPathVolumeHostName(path, &label, false);
    const UTF16String name = fu::GetVolumeNameForPath(path);
    const std::string kind = name == label ? "-" : ToUtf8(name, true);
    unsigned long long free = 0, total = 0;
    const bool space = VolumeSpace(path, free, total);
    std::cout << std::left << std::setw(24) << Native(path) << ' ' << std::setw(12) << kind << ' '
              << std::setw(16) << (label.empty() ? "-" : ToUtf8(label, true)) << ' ' << std::right
              << std::setw(10) << (space ? HumanBytes(free) : "?") << ' ' << std::setw(10)
              << (space ? HumanBytes(total) : "?") << '\n';
  }
  return kExitSuccess;
}

int LegalName(const Args& raw) {
  const ArgList args(raw, {}, {"<name>"});
  UTF16String name = TextArg(args[0], "<name>");
  const bool changed = fu::ReplaceIllegalFileNameCharacters(name, u'_');
  std::cout << ToUtf8(name) << (changed ? "  (changed)" : "  (already legal)") << '\n';
  return kExitSuccess;
}

bool ShowProgress(double fraction, void* context) {
  static_cast<Progress*>(context)->Update(fraction);
  return false;
}

int CopyFile(const Args& raw) {
  const ArgList args(raw, {{"--force", "-f", false}}, {"<from>", "<to>"});
  const UTF16String from = PathArg(args[0], "<from>");
  UTF16String to = PathArg(args[1], "<to>");
  RequireFile(from);
  if (Dir(to).Exists()) fu::BuildPathSpec(to, File(from).GetName(), to);
  if (File(to).Exists()) {
    std::error_code ignored;
    if (std::filesystem::equivalent(Native(from), Native(to), ignored))
      throw Failure(Localized(kSameFile, from, to));
    if (!args.Has("--force")) throw Failure(Localized(kExists, to));
  }
  Progress progress("copying");
  fu::CopyWithProgress(from, to, ShowProgress, &progress);
  return kExitSuccess;
}

const Registrar kFs(CommandGroup{
    "fs",
    "files and directories through the library's File and Dir classes",
    {
        {"info", "<path>", "what the library knows of a file or directory", Info},
        {"ls", "[-r] <dir>", "the directories and files of a directory; -r every file below it",
         List},
        {"volumes", "", "mounted volumes with their kind, label and space", Volumes},
        {"legalname", "<name>", "a name made legal for every file system the library knows",
         LegalName},
        {"copy", "[--force] <from> <to>",
         "copy a file (into <to> when it is a directory); --force replaces <to>", CopyFile},
    },
    {"Dates are ISO 8601 in UTC. The counts of 'ls' go to stderr."},
    {
        {"fs legalname \"a:b?\"", "prints a_b_  (changed)"},
        {"fs info /", "kind, dates and volume of the root directory"},
        {"fs ls -r /usr/share/doc/cmake", "a recursive listing"},
        {"fs volumes", "mount points with their kind and space"},
        {"fs copy /etc/os-release /tmp/os-release.copy", "copies a file"},
    }});

}  // namespace
}  // namespace tvxhost
