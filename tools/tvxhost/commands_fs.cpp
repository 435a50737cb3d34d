// "tvxhost fs": files, listings, volumes, legal names and copying through the
// library's file classes.

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/make_shared.hpp>
#include <iomanip>
#include <iostream>
#include <string>

#include "Host.h"
#include "tvxcore/filesupport/DirIterators.h"
#include "tvxcore/filesupport/FileExceptions.h"
#include "tvxcore/utility/FileUtils.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxhost {
namespace {

using namespace tvxcore;
using namespace tvxcore::filesupport;
namespace fu = tvxcore::utility::FileUtils;

// Native bytes to the library's path form and back; names that aren't UTF-8
// survive the trip.
UTF16String PathArg(const std::string& native) { return FileHelper(native).Path(); }
std::string Native(const UTF16String& path) { return File(path).FullPathMultiByte(); }

std::string Text(const UTF16String& text) {
  const UTF8String bytes = utility::UTF16to8(text);
  return std::string(bytes.begin(), bytes.end());
}

int Info(const std::string& arg) {
  const UTF16String path = PathArg(arg);
  const File file(path);
  if (!file.Exists()) {
    std::cerr << "fs: nothing at " << arg << '\n';
    return 1;
  }
  const bool isDir = fu::IsDir(path);
  std::cout << "path:      " << file.FullPathMultiByte() << '\n'
            << "kind:      " << (isDir ? "directory" : "file") << '\n';
  if (!isDir) {
    std::cout << "name:      " << Text(file.GetName()) << '\n'
              << "title:     " << Text(file.GetTitle()) << '\n'
              << "extension: " << Text(file.GetExtension(true)) << '\n'
              << "size:      " << file.Size() << '\n'
              << "read-only: " << (file.IsReadOnly() ? "yes" : "no") << '\n';
  }
  std::cout << "created:   " << boost::posix_time::to_simple_string(file.Created()) << " UTC\n"
            << "modified:  " << boost::posix_time::to_simple_string(file.Modified()) << " UTC\n";
  UTF16String volume, label;
  if (fu::GetVolumePath(path, volume)) {
    std::cout << "volume:    " << Native(volume) << " (" << Text(fu::GetVolumeNameForPath(path))
              << ")\n"
              << "free:      " << fu::GetVolumeFreeSpace(path) << " of " << fu::GetVolumeSize(path)
              << " bytes\n";
  }
  const UTF16String host = fu::GetPathVolumeHostName(path, &label, false);
  if (!host.empty()) std::cout << "host:      " << Text(host) << " / " << Text(label) << '\n';
  return 0;
}

int List(const Args& args) {
  bool recursive = false;
  std::string where;
  for (const auto& arg : args) {
    if (arg == "-r")
      recursive = true;
    else if (where.empty())
      where = arg;
    else
      return UsageError("fs");
  }
  if (where.empty()) return UsageError("fs");
  const Dir dir(PathArg(where));
  if (!dir.Exists()) {
    std::cerr << "fs: no directory " << where << '\n';
    return 1;
  }
  auto byName = boost::make_shared<PathCompare>(
      [](const UTF16String& a, const UTF16String& b) { return CompareFileNames(a, b) < 0; });
  std::size_t count = 0;
  if (recursive) {
    for (RecursiveFileIterator it(dir, false, {}, UTF16String(), byName);
         it != RecursiveFileIterator(); ++it, ++count)
      std::cout << (*it).FullPathMultiByte() << '\n';
  } else {
    for (auto it = dir.BeginSubdirs(false, nullptr, byName); it != Dir::EndSubdirs(); ++it)
      std::cout << (*it).FullPathMultiByte() << "/\n";
    for (auto it = dir.BeginFiles(false, nullptr, false, byName); it != Dir::EndFiles();
         ++it, ++count)
      std::cout << (*it).FullPathMultiByte() << '\n';
  }
  std::cerr << count << " files\n";
  return 0;
}

int Volumes() {
  for (auto it = Dir::BeginVolumes(); it != Dir::EndVolumes(); ++it) {
    const UTF16String path = (*it).FullPath();
    std::cout << std::left << std::setw(30) << Native(path) << ' '
              << Text(fu::GetVolumeNameForPath(path)) << '\n';
  }
  return 0;
}

int LegalName(const std::string& arg) {
  UTF16String name = utility::UTF8to16(UTF8String(arg.begin(), arg.end()));
  const bool changed = fu::ReplaceIllegalFileNameCharacters(name, u'_');
  std::cout << Text(name) << (changed ? "  (changed)" : "  (already legal)") << '\n';
  return 0;
}

bool ShowProgress(double fraction, void*) {
  const int width = 40;
  const int filled = static_cast<int>(fraction * width);
  std::cerr << "\r[" << std::string(filled, '#') << std::string(width - filled, ' ') << "] "
            << std::setw(3) << static_cast<int>(fraction * 100) << '%' << std::flush;
  return false;
}

int CopyFile(const std::string& from, const std::string& to) {
  const bool done = fu::CopyWithProgress(PathArg(from), PathArg(to), ShowProgress, nullptr);
  std::cerr << '\n';
  if (!done) {
    std::cerr << "fs: copy cancelled\n";
    return 1;
  }
  return 0;
}

int Run(const Args& args) {
  try {
    if (args.size() == 2 && args[0] == "info") return Info(args[1]);
    if (!args.empty() && args[0] == "ls") return List(Args(args.begin() + 1, args.end()));
    if (args.size() == 1 && args[0] == "volumes") return Volumes();
    if (args.size() == 2 && args[0] == "legalname") return LegalName(args[1]);
    if (args.size() == 3 && args[0] == "copy") return CopyFile(args[1], args[2]);
  } catch (const file_exception& e) {
    std::cerr << "fs: " << e.what() << "  [" << e.GetFile().FullPathMultiByte() << "]\n";
    return 1;
  } catch (const dir_exception& e) {
    std::cerr << "fs: " << e.what() << "  [" << e.GetDir().FullPathMultiByte() << "]\n";
    return 1;
  }
  return UsageError("fs");
}

const Registrar kFs(CommandGroup{
    "fs",
    {"info <path>", "ls [-r] <dir>", "volumes", "legalname <name>", "copy <from> <to>"},
    Run});

}  // namespace
}  // namespace tvxhost
