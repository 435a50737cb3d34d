#include "tvxcore/debug/StackTrace.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "debug/internal/ContractCheck.h"
#include "platform/StackTrace.h"
#include "tvxcore/base/ThreadAnnotations.h"

namespace tvxcore::debug {
namespace {

// The source path the address checks give the contract dialog.
constexpr const char* kContractFile = "debug/src/StackTrace";

bool CopyOut(const std::string& text, bool known, char* out, unsigned long long size) {
  if (!out || size == 0) return false;
  if (!known) {
    out[0] = '\0';
    return false;
  }
  const std::size_t length =
      static_cast<std::size_t>(std::min<unsigned long long>(text.size(), size - 1));
  std::memcpy(out, text.data(), length);
  out[length] = '\0';
  return true;
}

}  // namespace

TVX_NOINLINE unsigned long long GenerateStackTrace(void** outFrames, unsigned long long inMaxFrames,
                                                   unsigned long long inSkip) {
  const auto maxFrames = static_cast<std::uint32_t>(inMaxFrames);
  const auto skip = static_cast<std::uint32_t>(inSkip);
  // Frame 0 is the call below, in this function: the cut to 16 bits after it
  // keeps the compiler from turning it into a jump that would lose the frame.
  const std::size_t count = platform::CaptureStack(outFrames, maxFrames, skip);
  return static_cast<std::uint16_t>(count);
}

bool StackFrameFunctionName(void* inFrame, char* outName, unsigned long long inSize) {
  if (!outName || inSize == 0) return false;
  platform::CodePosition position;
  const bool known = platform::DescribeCode(inFrame, position) && !position.function.empty();
  return CopyOut(position.function, known, outName, inSize);
}

bool StackFrameFullFilePath(void* inFrame, char* outPath, unsigned long long inSize) {
  if (!outPath || inSize == 0) return false;
  platform::CodePosition position;
  const bool known = platform::DescribeCode(inFrame, position) && !position.file.empty();
  return CopyOut(position.file, known, outPath, inSize);
}

unsigned long StackFrameLineNumber(void* inFrame) {
  platform::CodePosition position;
  return platform::DescribeCode(inFrame, position) ? position.line : 0;
}

bool IsValidAddressRange(const void* inBegin, const void* inEnd, bool inAllowNull) {
  if (inAllowNull && !inBegin) return true;
  const bool valid = inBegin != nullptr;
  if (!(reinterpret_cast<std::uintptr_t>(inBegin) < reinterpret_cast<std::uintptr_t>(inEnd)))
    internal::ContractViolation("inBegin < inEnd", kContractFile, __LINE__);
  return valid;
}

bool IsValidAddressRange(const void* inBegin, unsigned long long inSize, bool inAllowNull) {
  // A range that runs past the top of the address space wraps below its
  // begin, and so is refused like an empty one.
  const std::uintptr_t end = reinterpret_cast<std::uintptr_t>(inBegin) + inSize;
  return IsValidAddressRange(inBegin, reinterpret_cast<const void*>(end), inAllowNull);
}

bool IsValidAddress(const void* inAddress, bool inAllowNull) {
  return IsValidAddressRange(inAddress, 1ULL, inAllowNull);
}

}  // namespace tvxcore::debug
