// The master trace handler pointer, the default handler and the debugger's
// output.
#include "tvxcore/debug/TraceHandler.h"

#include <atomic>
#include <cstring>

#include "base/NoDestructor.h"
#include "debug/internal/DefaultTraceSink.h"
#include "platform/DebugOutput.h"
#include "tvxcore/threads/Thread.h"

namespace tvxcore::debug {
namespace {

// Null means the default handler. Installed and removed at start-up and
// shutdown, read by every Trace call on any thread.
std::atomic<TraceHandler*> masterHandler{nullptr};

// The default handler's second destination (the console log, once the
// handler chain has been built); null until then.
std::atomic<internal::DefaultTraceSink> defaultSink{nullptr};

TraceHandler* DefaultHandler() {
  static base::NoDestructor<DefaultTraceHandler> handler;
  return &*handler;
}

// The master handler, with the default handler stored in place of null.
TraceHandler* MasterHandler() {
  TraceHandler* handler = masterHandler.load(std::memory_order_acquire);
  if (handler) return handler;
  TraceHandler* const fallback = DefaultHandler();
  // Another thread may install a handler meanwhile; its pointer then wins.
  return masterHandler.compare_exchange_strong(handler, fallback, std::memory_order_acq_rel)
             ? fallback
             : handler;
}

}  // namespace

TraceHandler::~TraceHandler() = default;

void DefaultTraceHandler::WriteTrace(const std::string& inLine) {
  platform::WriteDebuggerOutput(inLine.data(), inLine.size());
  if (const internal::DefaultTraceSink sink = defaultSink.load(std::memory_order_acquire))
    sink(inLine);
}

void internal::SetDefaultTraceSink(DefaultTraceSink inSink) {
  defaultSink.store(inSink, std::memory_order_release);
}

void Trace(char const* inText) {
  const std::string line(inText ? inText : "");
  MasterHandler()->WriteTrace(line);
}

void Trace(unsigned char const* inText) { Trace(reinterpret_cast<char const*>(inText)); }

void TraceLine(char const* inCategory, long inVolume, const std::string& inMessage) {
  std::string line;
  line.reserve(inMessage.size() + 48);
  line += '<';
  line += std::to_string(threads::GetCurrentThreadID());
  line += "> <";
  line += inCategory ? inCategory : "";
  line += "> <";
  line += std::to_string(inVolume);
  line += "> ";
  line += inMessage;
  line += '\n';
  MasterHandler()->WriteTrace(line);
}

void InstallMasterTraceHandler(TraceHandler* inHandler) {
  masterHandler.store(inHandler, std::memory_order_release);
}

void RemoveMasterTraceHandler() { masterHandler.store(nullptr, std::memory_order_release); }

TraceHandler* GetMasterTraceHandler() { return MasterHandler(); }

void DebugTrace(char const* inText) {
  if (inText) platform::WriteDebuggerOutput(inText, std::strlen(inText));
}

void DebugTrace(unsigned char const* inText) { DebugTrace(reinterpret_cast<char const*>(inText)); }

}  // namespace tvxcore::debug
