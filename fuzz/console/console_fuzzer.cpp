// Arbitrary UTF-16 text as a console line and as the source of a tokenizer.
// The first byte picks a command name to put before the text (or none) and
// the tokenizer's delimiters. Lines run through ExecuteCommand with the
// library's commands; pieces must put the source back together. Nothing may
// crash, leak or hang.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "tvxcore/console/Console.h"
#include "tvxcore/debug/Trace.h"
#include "tvxcore/utility/TextStreams.h"

using namespace tvxcore;

namespace {

// Commands that only read or change settings held in memory: the client
// name is never set here, so no preferences file is touched. The listings
// of folders and volumes are left out (they make the user's folders).
const char16_t* const kNames[] = {
    u"",
    u"trace.set",
    u"trace.get",
    u"trace.getcategories",
    u"trace.set.master",
    u"trace.get.master",
    u"debug.get",
    u"debug.set",
    u"debug.list",
    u"debug.clear",
    u"filesupport.file",
    u"filesupport.dir",
    u"trace.createdefaultconsolelogfile",
};

bool SetUp() {
  debug::SetDisableFileWrites(true);
  console::Initialize();
  delete console::CommandRegistry::UnregisterCommand(u"filesupport.listdirs");
  delete console::CommandRegistry::UnregisterCommand(u"filesupport.listvols");
  return true;
}

void CheckTokens(const UTF16String& source, const UTF16String& delimiters, bool skip) {
  console::Tokenizer tokens(source, delimiters, skip);
  std::size_t units = 0, count = 0;
  while (!tokens.AtEnd()) {
    const UTF16String token = tokens.NextToken();
    if (token.find_first_of(delimiters) != UTF16String::npos) std::abort();
    if (skip && token.empty()) std::abort();
    units += token.size();
    if (++count > source.size() + 1) std::abort();  // always moves on
  }
  // Without skipping, every delimiter ends exactly one piece.
  if (!skip && units + count - 1 != source.size()) std::abort();
  if (!tokens.NextToken().empty()) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool ready = SetUp();
  (void)ready;
  if (size == 0) return 0;
  const std::uint8_t selector = data[0];
  UTF16String text;
  for (std::size_t i = 1; i + 1 < size; i += 2)
    text.push_back(static_cast<UTF16Char>(data[i] | (data[i + 1] << 8)));

  static const UTF16String kDelimiters[] = {u" \t", u",", u"", u"\xD800 "};
  CheckTokens(text, kDelimiters[selector & 3], (selector & 4) != 0);

  const std::size_t name = (selector >> 3) % (sizeof kNames / sizeof kNames[0]);
  const UTF16String line =
      name == 0 ? text : UTF16String(kNames[name]) + (selector & 0x80 ? u"\t" : u" ") + text;
  utility::UTF16StringBuf buffer;
  utility::UTF16OutputStream out(&buffer);
  console::ExecuteCommand(line, out);
  return 0;
}
