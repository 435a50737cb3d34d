// The library's console commands: trace.*, debug.* and filesupport.*.
#include <boost/date_time/posix_time/posix_time.hpp>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <functional>
#include <list>
#include <new>
#include <string>

#include "tvxcore/console/Console.h"
#include "tvxcore/console/ConsoleLogFile.h"
#include "tvxcore/debug/DebugDatabase.h"
#include "tvxcore/debug/Trace.h"
#include "tvxcore/filesupport/CommonDirs.h"
#include "tvxcore/filesupport/DirIterators.h"
#include "tvxcore/filesupport/File.h"
#include "tvxcore/utility/UnicodeConversion.h"

namespace tvxcore::console {
namespace {

constexpr UTF16Char kBlanks[] = u" \t";

UTF16String Utf16(const std::string& text) {
  return utility::UTF8to16(UTF8String(text.begin(), text.end()));
}

UTF16String Number(long long value) { return Utf16(std::to_string(value)); }

UTF16String Trimmed(const UTF16String& text) {
  const auto first = text.find_first_not_of(kBlanks);
  if (first == UTF16String::npos) return UTF16String();
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// A whole decimal number, cut to the range of long; false for anything
// else (no digits, trailing text).
bool ParseVolume(const UTF16String& text, long& outValue) {
  if (text.empty() || text.size() > 64) return false;
  std::string narrow;
  for (UTF16Char unit : text) {
    if (unit > 0x7F) return false;
    narrow += static_cast<char>(unit);
  }
  const char* begin = narrow.c_str();
  if (!(*begin >= '0' && *begin <= '9') && *begin != '-' && *begin != '+') return false;
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(begin, &end, 10);
  if (end == begin || *end != '\0') return false;
  outValue = value;  // strtol cuts an overflow to LONG_MIN or LONG_MAX
  return true;
}

// The arguments' first word and what follows it.
struct Words {
  UTF16String first;
  UTF16String rest;
};
Words Split(const UTF16String& arguments) {
  Tokenizer tokens(arguments, kBlanks, true);
  Words words;
  words.first = tokens.NextToken();
  words.rest = Trimmed(tokens.Rest());
  return words;
}

void Line(UTF16OutputStream& out, const UTF16String& text) { out << text << u'\n'; }

// Runs `describe` for one labelled line; a failure to find the place shows
// as "(unavailable)" and the listing goes on.
void Labelled(UTF16OutputStream& out, const char16_t* label,
              const std::function<UTF16String()>& describe) {
  UTF16String text;
  try {
    text = describe();
  } catch (const std::bad_alloc&) {
    throw;
  } catch (...) {
    text = u"(unavailable)";
  }
  Line(out, label + text);
}

UTF16String TimeText(const boost::posix_time::ptime& time) {
  return Utf16(boost::posix_time::to_simple_string(time));
}

UTF8String Key(const UTF16String& text) { return utility::UTF16to8(text); }

}  // namespace

namespace commands::trace {

class Get : public Command {
 public:
  void Execute(UTF16String const& inArguments, UTF16OutputStream& inOutput) override {
    const UTF16String category = Split(inArguments).first;
    if (category.empty()) return;
    const UTF8String name = Key(category);
    const long volume = debug::GetTraceVolume(name.c_str());
    Line(inOutput, u"trace volume for category " + category + u" is " + Number(volume));
  }
};

class Set : public Command {
 public:
  void Execute(UTF16String const& inArguments, UTF16OutputStream& inOutput) override {
    const Words words = Split(inArguments);
    long volume = 0;
    if (words.first.empty()) return;
    if (!ParseVolume(Split(words.rest).first, volume)) {
      Get().Execute(words.first, inOutput);
      return;
    }
    const UTF8String name = Key(words.first);
    debug::SetTraceVolume(name.c_str(), volume);
    Line(inOutput, u"trace category " + words.first + u" set to volume " +
                       Number(debug::GetTraceVolume(name.c_str())));
  }
};

class GetCategories : public Command {
 public:
  void Execute(UTF16String const&, UTF16OutputStream& inOutput) override {
    std::list<UTF8String> categories;
    debug::GetTraceCategories(categories);
    Line(inOutput, u"Trace Categories:");
    for (const UTF8String& category : categories) Line(inOutput, utility::UTF8to16(category));
  }
};

class GetMaster : public Command {
 public:
  void Execute(UTF16String const&, UTF16OutputStream& inOutput) override {
    Line(inOutput, u"Master trace volume is " + Number(debug::GetMasterTraceVolume()));
  }
};

class SetMaster : public Command {
 public:
  void Execute(UTF16String const& inArguments, UTF16OutputStream& inOutput) override {
    long volume = 0;
    if (!ParseVolume(Split(inArguments).first, volume)) {
      GetMaster().Execute(inArguments, inOutput);
      return;
    }
    debug::SetMasterTraceVolume(volume);
    Line(inOutput, u"Master trace volume set to " + Number(debug::GetMasterTraceVolume()));
  }
};

class CreateDefaultConsoleLogFile : public Command {
 public:
  void Execute(UTF16String const&, UTF16OutputStream& inOutput) override {
    UTF16String path;
    const bool created = ConsoleLogFile::GetInstance()->CreateDefaultLogFile(path);
    Line(inOutput, (created ? u"Created log file at: " : u"Error creating log file at: ") + path);
  }
};

}  // namespace commands::trace

namespace commands::debug {

void PrintEntry(UTF16OutputStream& out, const UTF16String& path) {
  tvxcore::debug::DebugDatabase& database = tvxcore::debug::DebugDatabase::Instance();
  const UTF8String key = Key(path);
  const UTF8String value = database.HasEntry(key) ? database.GetEntry(key) : UTF8String();
  Line(out, path + u" = " + utility::UTF8to16(value));
}

class Get : public Command {
 public:
  void Execute(UTF16String const& inArguments, UTF16OutputStream& inOutput) override {
    if (!inArguments.empty()) PrintEntry(inOutput, inArguments);
  }
};

class Set : public Command {
 public:
  void Execute(UTF16String const& inArguments, UTF16OutputStream& inOutput) override {
    const auto equals = inArguments.find(u'=');
    const UTF16String path = Trimmed(inArguments.substr(0, equals));
    if (path.empty()) return;
    if (equals != UTF16String::npos) {
      tvxcore::debug::DebugDatabase::Instance().SetEntry(
          Key(path), Key(Trimmed(inArguments.substr(equals + 1))));
    }
    PrintEntry(inOutput, path);
  }
};

class List : public Command {
 public:
  void Execute(UTF16String const&, UTF16OutputStream& inOutput) override {
    std::list<std::pair<UTF8String, UTF8String>> entries;
    tvxcore::debug::DebugDatabase::Instance().GetEntries(entries);
    Line(inOutput, u"Listing contents of debug database!");
    for (const auto& [key, value] : entries)
      Line(inOutput, utility::UTF8to16(key) + u" = " + utility::UTF8to16(value));
  }
};

class Clear : public Command {
 public:
  void Execute(UTF16String const&, UTF16OutputStream& inOutput) override {
    Line(inOutput, u"Clearing contents of debug database!");
    tvxcore::debug::DebugDatabase::Instance().Clear();
  }
};

}  // namespace commands::debug

namespace commands::filesupport {

namespace fs = tvxcore::filesupport;
namespace dirs = tvxcore::filesupport::commondirs;

class ListDirs : public Command {
 public:
  void Execute(UTF16String const&, UTF16OutputStream& out) override {
    Line(out, u"commondirs Functions: ");
    Labelled(out, u"Main Executable File = \t",
             [] { return dirs::MainExecutableFile().FullPath(); });
    Labelled(out, u"Executable Dir = \t\t", [] { return dirs::ExecutableDir().FullPath(); });
    Labelled(out, u"Resources Dir = \t\t", [] { return dirs::ResourcesDir().FullPath(); });
    Labelled(out, u"Plugins Dir = \t\t", [] { return dirs::PluginsDir().FullPath(); });
    Labelled(out, u"Required Plugins Dir = \t",
             [] { return dirs::RequiredPluginsDir().FullPath(); });
    Labelled(out, u"User Plugins Dir = \t\t", [] { return dirs::UserPluginsDir().FullPath(); });
    Labelled(out, u"All User Plugins Dir = \t",
             [] { return dirs::AllUserPluginsDir().FullPath(); });
    Labelled(out, u"User Documents Dir = \t", [] { return dirs::UserDocumentsDir().FullPath(); });
    Labelled(out, u"All Users Documents Dir = \t",
             [] { return dirs::AllUsersDocumentsDir().FullPath(); });
    Labelled(out, u"User Desktop Dir = \t\t", [] { return dirs::UserDesktopDir().FullPath(); });
    Labelled(out, u"Current User Dir = \t\t", [] { return dirs::CurrentUserDir().FullPath(); });
    Line(out, u"Dir Methods: ");
    Labelled(out, u"App Dir = \t\t", [] { return fs::Dir::AppDir().FullPath(); });
    Labelled(out, u"User Docs Dir = \t\t", [] { return fs::Dir::UserDocsDir().FullPath(); });
    Labelled(out, u"Temp Dir = \t\t", [] { return fs::Dir::TempDir().FullPath(); });
    Labelled(out, u"Pref Dir = \t\t", [] { return fs::Dir::PrefDir().FullPath(); });
    Labelled(out, u"Global Pref Dir = \t\t", [] { return fs::Dir::GlobalPrefDir().FullPath(); });
    Labelled(out, u"Package Dir = \t\t", [] { return fs::Dir::PackageDir().FullPath(); });
    Labelled(out, u"Common Files Dir = \t\t", [] { return fs::Dir::CommonFilesDir().FullPath(); });
  }
};

class ListVols : public Command {
 public:
  void Execute(UTF16String const&, UTF16OutputStream& out) override {
    Line(out, u"List Volumes: ");
    try {
      for (auto it = fs::Dir::BeginVolumes(); it != fs::Dir::EndVolumes(); ++it)
        Line(out, (*it).FullPath());
    } catch (const std::bad_alloc&) {
      throw;
    } catch (...) {
      // The volumes listed so far stand.
    }
  }
};

const char16_t* FoundText(bool found) { return found ? u"    found." : u"    not found."; }

class FileExists : public Command {
 public:
  void Execute(UTF16String const& inArguments, UTF16OutputStream& out) override {
    if (inArguments.empty()) {
      Line(out, u"File.FullPath: ");
      Line(out, FoundText(false));
      return;
    }
    Labelled(out, u"File.FullPath: ", [&] { return fs::File(inArguments).FullPath(); });
    bool found = false;
    try {
      found = fs::File(inArguments).Exists();
    } catch (const std::bad_alloc&) {
      throw;
    } catch (...) {
    }
    Line(out, FoundText(found));
    if (!found) return;
    const fs::File file(inArguments);
    Labelled(out, u"   File.Created: ", [&] { return TimeText(file.Created()); });
    Labelled(out, u"   File.Modified: ", [&] { return TimeText(file.Modified()); });
    Labelled(out, u" File.GetName: ", [&] { return file.GetName(); });
    Labelled(out, u" File.GetTitle: ", [&] { return file.GetTitle(); });
    Labelled(out, u" File.GetExtension: ", [&] { return file.GetExtension(); });
    Labelled(out, u" File.GetExtension toLower: ", [&] { return file.GetExtension(true); });
  }
};

class DirExists : public Command {
 public:
  void Execute(UTF16String const& inArguments, UTF16OutputStream& out) override {
    if (inArguments.empty()) {
      Line(out, u"Directory Path: ");
      Line(out, FoundText(false));
      return;
    }
    try {
      const fs::Dir dir(inArguments);
      Line(out, u"Directory Path: " + dir.FullPath());
      Line(out, FoundText(dir.Exists()));
      Line(out, u" Dir Name: " + dir.GetName());
      const fs::Dir parent = dir.Parent();
      Line(out, u" Parent Path: " + parent.FullPath());
      Line(out, FoundText(parent.Exists()));
    } catch (const std::bad_alloc&) {
      throw;
    } catch (...) {
      Line(out, FoundText(false));
    }
  }
};

}  // namespace commands::filesupport

namespace {

struct Registration {
  const char16_t* name;
  const char16_t* help;
  Command* (*make)();
};

template <typename T>
Command* Make() {
  return new T();
}

// The texts keep their spellings exactly: hosts and scripts look for them.
const Registration kCommands[] = {
    {u"trace.set", u"trace.set <category> <volume> - Sets the volume of this trace category.",
     Make<commands::trace::Set>},
    {u"trace.get", u"trace.get <category> - Gets the volume of this trace category.",
     Make<commands::trace::Get>},
    {u"trace.getcategories", u"trace.getcategories - Lists all catagories that have been traced.",
     Make<commands::trace::GetCategories>},
    {u"trace.set.master",
     u"trace.set.master <volume> - Sets the master trace volume. This is the highest volume "
     u"that will be traced.",
     Make<commands::trace::SetMaster>},
    {u"trace.get.master",
     u"trace.get.master - Gets the master trace volume. This is the highest volume that will "
     u"be traced.",
     Make<commands::trace::GetMaster>},
    {u"trace.createdefaultconsolelogfile",
     u"trace.createdefaultconsolelogfile - Creates a default log file for trace statements.",
     Make<commands::trace::CreateDefaultConsoleLogFile>},
    {u"debug.get",
     u"debug.get <variable path> - Gets the value of the debug variable from the debug "
     u"database.",
     Make<commands::debug::Get>},
    {u"debug.list", u"debug.list - displays the entire contents of the debug database.",
     Make<commands::debug::List>},
    {u"debug.set",
     u"debug.set <variable path> = <value> - Sets the value of the debug variable in the debug "
     u"database.",
     Make<commands::debug::Set>},
    {u"debug.clear", u"debug.clear - clears the contents of the debug database.",
     Make<commands::debug::Clear>},
    {u"filesupport.listdirs", u"filesupport.listdirs - list the special directoriees.",
     Make<commands::filesupport::ListDirs>},
    {u"filesupport.listvols", u"filesupport.listvols - list the mounted volumes.",
     Make<commands::filesupport::ListVols>},
    {u"filesupport.file",
     u"filesupport.file <file path> - given a file name, echos the path and indicates if the "
     u"file exists",
     Make<commands::filesupport::FileExists>},
    {u"filesupport.dir",
     u"filesupport.dir <file path> - given a path, echos the path and indicates if the "
     u"directory exists",
     Make<commands::filesupport::DirExists>},
};

}  // namespace

void Initialize() {
  std::list<UTF16String> names;
  CommandRegistry::GetCommandNames(names);
  for (const Registration& entry : kCommands) {
    bool present = false;
    for (const UTF16String& name : names) present = present || name == entry.name;
    if (!present) CommandRegistry::RegisterCommand(entry.name, entry.help, entry.make());
  }
}

void Terminate() {
  for (const Registration& entry : kCommands) delete CommandRegistry::UnregisterCommand(entry.name);
}

}  // namespace tvxcore::console
