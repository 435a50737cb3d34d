// UTF-8 -> UTF-16 -> UTF-8 keeps exactly the decoded prefix; UTF-16 without
// zero units -> UTF-8 -> UTF-16 is the identity. Every kernel must agree.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "tvxcore/utility/UnicodeConversion.h"
#include "utility/internal/UnicodeKernels.h"

using namespace tvxcore;
using namespace tvxcore::utility;

static void Check(bool condition) {
  if (!condition) std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const UTF8String bytes(data, data + size);
  UTF16String reference;
  UnicodeErrorCode referenceError = kUnicodeNoError;
  UTF8String referenceBack;
  bool first = true;
  for (auto kernel : {internal::UnicodeKernel::kPortable, internal::UnicodeKernel::kSSE2,
                      internal::UnicodeKernel::kAVX2, internal::UnicodeKernel::kAVX512}) {
    if (!internal::UnicodeKernelSupported(kernel)) continue;
    internal::ForceUnicodeKernel(kernel);
    UnicodeErrorCode error = kUnicodeNoError;
    std::size_t count = 0;
    const UTF16String wide = UTF8to16(bytes, &error, &count);
    Check(count == wide.size());
    Check(error != kUnicodeTargetExhausted);
    // The decoded prefix re-encodes to the bytes it came from, when it holds
    // no zero unit (which ends encoding) and is long enough to skip padding.
    // Surrogates encoded one by one (three bytes each) decode to units that may
    // form a pair, and a pair encodes as four bytes: then only the units
    // come back, not the bytes.
    bool hasZero = false, hasSurrogate = false;
    for (UTF16Char u : wide) {
      hasZero |= u == 0;
      hasSurrogate |= u >= 0xD800 && u <= 0xDFFF;
    }
    const UTF8String back = UTF16to8(wide);
    if (!hasZero && wide.size() >= 4) {
      if (hasSurrogate) {
        Check(UTF8to16(back) == wide);
      } else {
        Check(back.size() <= bytes.size());
        Check(bytes.compare(0, back.size(), back) == 0);
        if (error == kUnicodeNoError) Check(back == bytes);
      }
    }
    if (first) {
      reference = wide;
      referenceError = error;
      referenceBack = back;
      first = false;
    } else {
      Check(wide == reference && error == referenceError && back == referenceBack);
    }

    // The same bytes read as UTF-16 units, zero units replaced.
    UTF16String units(size / 2, 0);
    for (std::size_t i = 0; i < units.size(); ++i) {
      const UTF16Char u = static_cast<UTF16Char>(data[2 * i] | (data[2 * i + 1] << 8));
      units[i] = u == 0 ? 1 : u;
    }
    UnicodeErrorCode roundError = kUnicodeSourceIllegal;
    Check(UTF8to16(UTF16to8(units), &roundError, nullptr) == units);
    Check(roundError == kUnicodeNoError);
  }
  internal::ForceUnicodeKernel(internal::UnicodeKernel::kBest);
  return 0;
}
