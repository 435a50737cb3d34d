// tvxhost's console: the library's text commands (trace.*, debug.*,
// filesupport.*) and the host's own (help, exit), run one line at a time.
#pragma once

#include <string>

namespace tvxhost {

// Runs one console line (tvxhost -c): 0 when a command ran; UsageError for
// an empty line, an unknown command or text that isn't UTF-8.
int RunConsoleLine(const std::string& line);

}  // namespace tvxhost
