// Arbitrary bytes as the content of "Trace Database.txt". Whatever is read
// must be written out whole and read back as the same records, and what was
// written once must be written the same again: a save never makes the file
// worse than what was understood. Nothing may crash, leak or hang.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "diagnostics/internal/DatabaseText.h"

using namespace tvxcore;
using namespace tvxcore::debug::internal;

namespace {

UTF8String Render(const TraceRecords& records) {
  UTF8String text;
  for (const auto& [category, record] : records) {
    if (!AppendTraceRecord(text, category, record)) std::abort();  // read, so writable
  }
  return text;
}

std::string_view View(const UTF8String& text) {
  return std::string_view(reinterpret_cast<const char*>(text.data()), text.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  TraceRecords first;
  ReadTraceRecords(std::string_view(reinterpret_cast<const char*>(data), size), first);
  const UTF8String written = Render(first);
  TraceRecords second;
  if (!ReadTraceRecords(View(written), second)) std::abort();  // a saved file reads whole
  if (second.size() != first.size()) std::abort();
  for (const auto& [category, record] : first) {
    const auto found = second.find(category);
    if (found == second.end() || found->second.enabled != record.enabled ||
        found->second.volume != record.volume)
      std::abort();
  }
  if (Render(second) != written) std::abort();
  return 0;
}
