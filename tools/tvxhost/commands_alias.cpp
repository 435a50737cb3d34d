// tvxhost alias: relative aliases, the records that find a file again after
// the tree that holds it and its document moved.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "Args.h"
#include "FileChecks.h"
#include "Host.h"
#include "HostServices.h"
#include "tvxcore/filesupport/File.h"
#include "tvxcore/proplist/PropListUtils.h"
#include "tvxcore/utility/FileUtils.h"
#include "tvxcore/utility/RelativeAlias.h"

namespace tvxhost {
namespace {

using namespace tvxcore;
using tvxcore::utility::FileUtils::RelativeAlias;

// An absolute path for the library: relative to the working directory,
// without "." and ".." components, and with no separator at the end.
UTF16String AbsolutePath(const std::string& arg, const char* what) {
  PathArg(arg, what);  // refuses an empty one
  std::filesystem::path path(arg);
  if (path.is_relative()) path = std::filesystem::current_path() / path;
  std::string text = path.lexically_normal().string();
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return filesupport::File(filesupport::FileHelper(text)).FullPath();
}

// The document of --base, and whether it is a folder; null without one.
const UTF16String* Base(const ArgList& args, UTF16String& storage, bool& isDir) {
  if (!args.Has("--base")) return nullptr;
  storage = AbsolutePath(args.Value("--base", ""), "--base");
  isDir = filesupport::Dir(storage).Exists();
  return &storage;
}

std::string Native(const UTF16String& path) { return filesupport::File(path).FullPathMultiByte(); }

int Make(const Args& raw) {
  const ArgList args(raw, {{"--base", "-b", true}, {"--plist", "", false}}, {"<target>"});
  const UTF16String target = AbsolutePath(args[0], "<target>");
  RequireReachable(target);
  UTF16String base;
  bool baseIsDir = false;
  const UTF16String* basePath = Base(args, base, baseIsDir);
  const RelativeAlias alias(target, filesupport::Dir(target).Exists(), basePath, baseIsDir);
  if (args.Has("--plist")) {
    proplist::PropList list;
    alias.FlattenTo_PropList(list);
    UTF8String text;
    proplist::utils::WritePropList(text, list);
    std::cout << std::string(text.begin(), text.end());
  } else {
    const UTF8String text = alias.FlattenTo_UTF8_JSON();
    std::cout << std::string(text.begin(), text.end()) << '\n';
  }
  return kExitSuccess;
}

// The stored record of `arg`, or of standard input for "-".
std::string ReadRecord(const std::string& arg, std::string& name) {
  if (arg == "-") {
    name = "standard input";
    std::string text(std::istreambuf_iterator<char>(std::cin), {});
    if (std::cin.bad()) throw Failure("could not read standard input");
    return text;
  }
  name = Quoted(arg);
  RequireFile(PathArg(arg, "<record>"));
  std::ifstream file(arg, std::ios::binary);
  if (!file) throw Failure("could not read " + name + ": " + std::strerror(errno));
  std::string text(std::istreambuf_iterator<char>(file), {});
  if (file.bad()) throw Failure("could not read " + name + ": " + std::strerror(errno));
  return text;
}

int Resolve(const Args& raw) {
  const ArgList args(raw, {{"--base", "-b", true}, {"--no-mount", "", false}}, {"<record>"});
  std::string name;
  std::string text = ReadRecord(args[0], name);
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  if (text.empty()) throw Failure(name + " holds no alias record");
  UTF16String base;
  bool baseIsDir = false;
  const UTF16String* basePath = Base(args, base, baseIsDir);
  UTF16String found;
  utility::Flags<unsigned char> result;
  try {
    const RelativeAlias alias(UTF8String(text.begin(), text.end()));
    found = alias.ResolveAlias(basePath, baseIsDir, !args.Has("--no-mount"), false, result);
    if (found.empty())
      throw Failure("the target of " + name + " was not found: not at '" +
                    ToUtf8(alias.GetPlatformFullPath(nullptr, nullptr, 0)) + "'" +
                    (basePath && alias.HasRelativePath() ? ", nor relative to the base" : ""));
  } catch (const Failure&) {
    throw;
  } catch (const std::exception& error) {
    throw Failure(name + " is not a usable alias record: " + DescribeFailure(error));
  }
  std::cout << Native(found) << '\n';
  if (result.IsSet(RelativeAlias::kRelocated))
    std::cerr << "found away from the recorded path, relative to the base\n";
  return kExitSuccess;
}

const Registrar kAlias(CommandGroup{
    "alias",
    "relative aliases: records that find a file again after its tree moved",
    {
        {"make", "[--base <doc>] [--plist] <target>",
         "the stored record of <target> as seen from <doc>, as JSON (--plist: a property list)",
         Make},
        {"resolve", "[--base <doc>] [--no-mount] <record>",
         "the path a stored record leads to now, relative to <doc> first", Resolve},
    },
    {"<doc> is the document that holds the alias, usually a file; when the document",
     "and the target move together, 'resolve' finds the target relative to the",
     "document's new place. <record> is a file holding a record, or \"-\" for standard",
     "input; JSON and property lists are both read. 'resolve' tries the record's",
     "server share as mounted unless --no-mount."},
    {
        {"alias make /etc/os-release --base /etc/hostname",
         "the record of /etc/os-release as JSON, one line"},
        {"alias make /nonexistent/x", "fails: The file '/nonexistent/x' could not be found."},
    }});

}  // namespace
}  // namespace tvxhost
