// Arbitrary bytes as the content of "Debug Database.txt". Whatever is read
// must be written out whole and read back as the same entries, and a second
// save must write the same text. Nothing may crash, leak or hang.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "diagnostics/internal/DatabaseText.h"

using namespace tvxcore;
using namespace tvxcore::debug::internal;

namespace {

UTF8String Render(const DebugEntries& entries) {
  UTF8String text;
  for (const auto& [key, entry] : entries) {
    if (!AppendDebugEntry(text, key, entry)) std::abort();  // read, so writable
  }
  return text;
}

std::string_view View(const UTF8String& text) {
  return std::string_view(reinterpret_cast<const char*>(text.data()), text.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  DebugEntries first;
  ReadDebugEntries(std::string_view(reinterpret_cast<const char*>(data), size), first);
  const UTF8String written = Render(first);
  DebugEntries second;
  if (!ReadDebugEntries(View(written), second)) std::abort();
  if (second.size() != first.size()) std::abort();
  for (const auto& [key, entry] : first) {
    const auto found = second.find(key);
    if (found == second.end() || found->second.value != entry.value ||
        found->second.defaultValue != entry.defaultValue)
      std::abort();
  }
  if (Render(second) != written) std::abort();
  return 0;
}
