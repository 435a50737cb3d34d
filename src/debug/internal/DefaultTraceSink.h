// Where the default trace handler sends a line after the debugger's output.
//
// The console log that finally receives trace lines sits in a layer above
// this one, so it is handed down: the layer that builds the handler chain
// (debug::TraceHandlerInstaller) installs a plain function here at start-up.
#pragma once

#include <string>

namespace tvxcore::debug::internal {

// Receives every line the default handler writes, as it stands. Called on
// the tracing thread, with no lock of the library held.
using DefaultTraceSink = void (*)(const std::string& inLine);

// Installs `inSink` (null: the debugger's output only). May be called from
// any thread; a line being written meanwhile goes to the old or the new sink.
void SetDefaultTraceSink(DefaultTraceSink inSink);

}  // namespace tvxcore::debug::internal
