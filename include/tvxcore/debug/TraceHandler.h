// tvxcore/debug/TraceHandler.h: where a finished trace line goes.
//
// debug::Trace hands a line to the master trace handler, one pointer for the
// process. Handlers that decorate or steer a line keep a plain pointer to the
// next one; the last in every chain is the default handler, which stands in
// whenever the master pointer is null. Whether a line should be made at all
// is the question of tvxcore/debug/Trace.h.
#pragma once

#include <string>

#include "tvxcore/Export.h"

namespace tvxcore::debug {

// Receives finished trace lines. WriteTrace may be called from any thread,
// also at once from several; a handler that is not safe for that guards
// itself. A handler never reports an error.
class TVXCORE_EXPORT TraceHandler {
 public:
  // `inLine` is the whole text, newline included.
  virtual void WriteTrace(const std::string& inLine) = 0;
  virtual ~TraceHandler();
};

// Writes each line to the debugger's output when a debugger is attached (on
// Linux: standard error while a tracer is attached), then, once a
// debug::TraceHandlerInstaller (tvxcore/debug/TraceHandlers.h) has been made,
// to the console log (tvxcore/console/ConsoleLogFile.h), which keeps it only
// when the log exists. Has no state; the library keeps one static instance,
// never destroyed.
class TVXCORE_EXPORT DefaultTraceHandler : public TraceHandler {
 public:
  void WriteTrace(const std::string& inLine) override;
};

// Hands `inText` as it stands to the master handler (the default handler
// while none is installed). Copies the text once; takes no lock of the
// library, so a handler may itself trace.
TVXCORE_EXPORT void Trace(unsigned char const* inText);
TVXCORE_EXPORT void Trace(char const* inText);

// Traces one line in the standard form that every tracing site writes: the
// calling thread's identifier (threads::GetCurrentThreadID), the category and
// the volume, each in angle brackets and followed by one blank, then
// `inMessage` and a newline: "<5124> <Assert> <0> text\n".
TVXCORE_EXPORT void TraceLine(char const* inCategory, long inVolume, const std::string& inMessage);

// Makes `inHandler` the master handler. The pointer is stored as it is, no
// ownership is taken, and the handler must outlive its time as master (and
// every Trace call that may still be running on another thread). Installing
// does not chain: a handler that should pass lines on asks
// GetMasterTraceHandler() for its next one before it is installed.
TVXCORE_EXPORT void InstallMasterTraceHandler(TraceHandler* inHandler);
// Stores null: the default handler serves again. Deletes nothing.
TVXCORE_EXPORT void RemoveMasterTraceHandler();
// The master handler; never null (the default handler while none is set).
TVXCORE_EXPORT TraceHandler* GetMasterTraceHandler();

// Writes `inText` to the debugger's output when a debugger is attached, and
// does nothing otherwise; no handler is involved. Takes no lock and
// allocates nothing.
TVXCORE_EXPORT void DebugTrace(unsigned char const* inText);
TVXCORE_EXPORT void DebugTrace(char const* inText);

}  // namespace tvxcore::debug
