// Reads arbitrary bytes as a mount table (the change monitor's volume events
// and the volume queries read /proc/self/mountinfo this way). Reading must
// never crash, and a mount point and source written as the kernel escapes
// them (space, tab, new line and backslash as \ooo) must read back exactly.
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/FileSystem.h"

namespace {

[[noreturn]] void Fail() { __builtin_trap(); }

std::string Escape(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == ' ' || c == '\t' || c == '\n' || c == '\\') {
      const auto byte = static_cast<unsigned char>(c);
      out += '\\';
      out += static_cast<char>('0' + (byte >> 6));
      out += static_cast<char>('0' + ((byte >> 3) & 7));
      out += static_cast<char>('0' + (byte & 7));
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  tvxcore::platform::ParseMounts(text);

  // The bytes up to the first zero are a mount point, the rest its source.
  const std::size_t cut = text.find('\0');
  const std::string point = text.substr(0, cut);
  const std::string source = cut == std::string::npos ? std::string() : text.substr(cut + 1);
  if (point.empty() || source.empty() || point.find('\0') != std::string::npos ||
      source.find('\0') != std::string::npos)
    return 0;
  // The kernel never writes other white space raw either.
  for (const char c : point + source)
    if (c == '\r' || c == '\v' || c == '\f') return 0;
  const std::string line = "36 35 98:0 / " + Escape(point) + " rw,noatime master:1 - ext4 " +
                           Escape(source) + " rw,errors=continue\n";
  const auto mounts = tvxcore::platform::ParseMounts("garbage\n" + line + "\n");
  if (mounts.size() != 1 || mounts[0].path != point || mounts[0].fsType != "ext4" ||
      mounts[0].source != source)
    Fail();
  return 0;
}
