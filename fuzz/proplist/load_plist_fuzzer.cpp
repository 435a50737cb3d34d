// Arbitrary bytes as a property list file, through LoadPropList and the
// parser's file reading (ParseDocument). A file that loads must read exactly
// as the same bytes read from memory, save, and load back unchanged. A file
// that fails must leave the list empty and, being corrupt, be put aside as
// "<name>.old" with its bytes intact. Nothing may crash, leak or hang.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "tvxcore/config/Errors.h"
#include "tvxcore/proplist/PropList.h"
#include "tvxcore/proplist/PropListFiles.h"
#include "tvxcore/proplist/PropListUtils.h"
#include "tvxcore/utility/UnicodeConversion.h"
#include "tvxcore/xml/ExpatParser.h"

#include "PlistFuzzSupport.h"

using namespace tvxcore;

namespace {

using plist_fuzz::Reported;
using plist_fuzz::Setup;

const std::filesystem::path& Dir() {
  static const std::filesystem::path dir = [] {
    std::filesystem::path d = std::filesystem::temp_directory_path() /
                              ("load_plist_fuzzer-" + std::to_string(std::random_device{}()));
    std::filesystem::create_directories(d);
    return d;
  }();
  return dir;
}

UTF16String PathOf(const std::filesystem::path& p) {
  const std::string native = p.string();
  return utility::UTF8to16(UTF8String(native.begin(), native.end()));
}

std::string Contents(const std::filesystem::path& p) {
  std::ifstream in(p, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string Text(const proplist::PropList& list) {
  UTF8String text;
  proplist::utils::WritePropList(text, list);
  return std::string(text.begin(), text.end());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static bool ready = Setup();
  (void)ready;
  const std::filesystem::path file = Dir() / "prefs.xml";
  const std::filesystem::path backup = Dir() / "prefs.xml.old";
  std::filesystem::remove(backup);
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes;

  proplist::PropList list;
  list.SetValue(UTF8String(reinterpret_cast<const UTF8Char*>("before"), 6), true);
  bool loaded = true;
  try {
    proplist::utils::LoadPropList(PathOf(file), list, true);
  } catch (const Reported&) {
    loaded = false;
  }
  if (!loaded) {
    if (!list.IsEmpty()) std::abort();  // a failed load keeps nothing
    // A parse failure puts the file aside whole; a version error (reported
    // during the parse) leaves it where it is. Either way no byte is lost.
    const bool putAside = std::filesystem::exists(backup);
    if (Contents(putAside ? backup : file) != bytes) std::abort();
    return 0;
  }
  if (std::filesystem::exists(backup)) std::abort();

  // The file read as the same bytes from memory.
  proplist::PropList fromMemory;
  fromMemory.SetValue(UTF8String(reinterpret_cast<const UTF8Char*>("before"), 6), true);
  try {
    proplist::utils::ReadPropList(UTF8String(data, data + size), fromMemory);
  } catch (const Reported&) {
    std::abort();
  }
  const std::string text = Text(list);
  if (Text(fromMemory) != text) std::abort();

  // Saved and loaded again: the same list, whatever it holds.
  const std::filesystem::path again = Dir() / "again.xml";
  proplist::PropList reloaded;
  try {
    proplist::utils::SavePropList(PathOf(again), list);
    proplist::utils::LoadPropList(PathOf(again), reloaded, false);
  } catch (const Reported&) {
    std::abort();  // the library wrote a file it cannot read
  }
  if (Text(reloaded) != text) std::abort();
  return 0;
}
