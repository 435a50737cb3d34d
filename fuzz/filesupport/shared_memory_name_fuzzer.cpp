// MemoryMappedFile over arbitrary names. The first byte picks how the rest
// becomes a name (the bytes themselves, or UTF-16 units converted to UTF-8)
// and the block's size (1 to 16 bytes). A valid name must create a block
// that can be written and read back through a second object, and must be
// gone again once its creator lets go; any other name must fail with false
// from Open and 9002 from Init and GetAddress. Names that already exist
// belong to someone else and are left alone.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tvxcore/MemoryMappedFile.h"
#include "tvxcore/utility/UnicodeConversion.h"

using tvxcore::MemoryMappedFile;

namespace {

constexpr unsigned long kCreate = tvxcore::kMappedFileCreate;
constexpr unsigned long kMap = tvxcore::kMappedFileMapAtOnce;
constexpr unsigned long kWrite = tvxcore::kMappedFileWrite;
constexpr unsigned long kWriteOrFail = tvxcore::kMappedFileWriteOrFail;

void Check(bool condition) {
  if (!condition) std::abort();
}

// The documented rule: one leading "Local\" or "Global\" is dropped; the rest
// is 1 to 250 bytes with no '/', '\' or zero byte, and neither "." nor "..".
bool IsValidName(const std::string& name) {
  std::string rest = name;
  if (rest.rfind("Local\\", 0) == 0)
    rest.erase(0, 6);
  else if (rest.rfind("Global\\", 0) == 0)
    rest.erase(0, 7);
  if (rest.empty() || rest.size() > 250 || rest == "." || rest == "..") return false;
  for (char c : rest)
    if (c == '/' || c == '\\' || c == '\0') return false;
  return true;
}

long ThrownCode(MemoryMappedFile& file, const std::string& name, unsigned long long size,
                unsigned long flags) {
  try {
    file.Init(name, size, flags);
  } catch (long code) {
    return code;
  }
  return 0;
}

long GetAddressThrows(MemoryMappedFile& file) {
  try {
    file.GetAddress();
  } catch (long code) {
    return code;
  }
  return 0;
}

std::string NameFrom(const std::uint8_t* data, std::size_t size, bool wide) {
  if (!wide) return std::string(reinterpret_cast<const char*>(data), size);
  tvxcore::UTF16String units;
  for (std::size_t i = 0; i + 1 < size; i += 2)
    units.push_back(static_cast<tvxcore::UTF16Char>(data[i] | (data[i + 1] << 8)));
  const tvxcore::UTF8String bytes = tvxcore::utility::UTF16to8(units);
  return std::string(bytes.begin(), bytes.end());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const bool wide = (data[0] & 1) != 0;
  const std::size_t blockSize = 1 + ((data[0] >> 1) & 15);
  const std::string name = NameFrom(data + 1, size - 1, wide);

  // Someone else's block (or one a crashed run left): never write to it.
  {
    MemoryMappedFile probe;
    if (probe.Open(name, blockSize, 0)) return 0;
  }

  const bool valid = IsValidName(name);
  MemoryMappedFile creator;
  if (!valid) {
    Check(!creator.Open(name, blockSize, kCreate | kMap | kWrite));
    Check(ThrownCode(creator, name, blockSize, kCreate | kMap | kWriteOrFail) ==
          MemoryMappedFile::kErrorMappedFileException);
    Check(GetAddressThrows(creator) == MemoryMappedFile::kErrorMappedFileException);
    Check(!creator.MappedMemoryIsWritable());
    return 0;
  }

  Check(creator.Open(name, blockSize, kCreate | kMap | kWrite));
  Check(creator.MappedMemoryIsWritable());
  std::string stored;
  creator.GetName(stored);
  Check(stored == name);
  auto* mine = static_cast<std::uint8_t*>(creator.GetAddress());
  for (std::size_t i = 0; i < blockSize; ++i) mine[i] = static_cast<std::uint8_t>(i + size);

  {
    // A second object of the same name opens the same block.
    MemoryMappedFile other;
    Check(other.Open(name, blockSize, kCreate | kMap | kWriteOrFail));
    auto* theirs = static_cast<std::uint8_t*>(other.GetAddress());
    Check(theirs != mine);
    Check(std::memcmp(theirs, mine, blockSize) == 0);
    theirs[blockSize - 1] = 0xA5;
    Check(mine[blockSize - 1] == 0xA5);
  }

  // The creator's Reset removes the name: nothing is left behind.
  creator.Reset();
  Check(GetAddressThrows(creator) == MemoryMappedFile::kErrorMappedFileException);
  MemoryMappedFile late;
  Check(!late.Open(name, blockSize, kMap | kWrite));
  return 0;
}
