// tvxcore/debug/StackTrace.h: the calling thread's stack as code addresses,
// what the debug information says about each (function, file, line), and
// cheap checks of pointer values.
#pragma once

#include "tvxcore/Export.h"

namespace tvxcore::debug {

// Stores up to `inMaxFrames` frames of the calling thread's stack in
// `outFrames`, after skipping `inSkip`; frame 0 lies in GenerateStackTrace
// itself, frame 1 in its caller. Each frame is an address inside the call
// instruction (or, for a frame a signal interrupted, the interrupted
// instruction), so it names the line of the call. Both counts are cut to 32
// bits and the result, the number of frames stored, to 16. Null `outFrames`
// stores nothing. Takes no lock and allocates nothing, so it may be called
// from a signal handler.
TVXCORE_EXPORT unsigned long long GenerateStackTrace(void** outFrames,
                                                     unsigned long long inMaxFrames,
                                                     unsigned long long inSkip);

// The function, source file and line of a frame (any code address), from the
// symbol table and the line table of the module that holds it. Each copies
// into the caller's buffer of `inSize` bytes, cut to fit and always
// terminated, and returns false (leaving an empty text where there is room)
// when nothing is known or there is no room. Separate debug files are not
// searched. Thread-safe; lookups take turns on one lock.
TVXCORE_EXPORT bool StackFrameFunctionName(void* inFrame, char* outName, unsigned long long inSize);
TVXCORE_EXPORT bool StackFrameFullFilePath(void* inFrame, char* outPath, unsigned long long inSize);
// 0 when no line is known.
TVXCORE_EXPORT unsigned long StackFrameLineNumber(void* inFrame);

// Checks of pointer values only: no memory is probed. A range is valid when
// its begin is not null (or null is allowed). A begin that is not below the
// end is a violated contract ("inBegin < inEnd"): it goes to
// BreakAfterContractDialog and then config::ThrowError (fatal, module 105,
// error 25), and when that returns, the answer stands as above. A null begin
// with `inAllowNull` is valid without any further check.
TVXCORE_EXPORT bool IsValidAddressRange(const void* inBegin, const void* inEnd, bool inAllowNull);
// The range of `inSize` bytes from `inBegin` (0 bytes: a violated contract).
TVXCORE_EXPORT bool IsValidAddressRange(const void* inBegin, unsigned long long inSize,
                                        bool inAllowNull);
// The range of one byte at `inAddress`.
TVXCORE_EXPORT bool IsValidAddress(const void* inAddress, bool inAllowNull);

}  // namespace tvxcore::debug
