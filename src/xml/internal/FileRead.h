// How the library's parsers read a document file, and what they met when they
// could not: a caller that reports a failed parse (LoadPropList) tells a file
// that could not be read (missing, a directory, no permission, an I/O error)
// from one that was read and did not parse.
#pragma once

#include <string>

#include "tvxcore/utility/StringTypes.h"
#include "tvxcore/xml/XMLParser.h"

namespace tvxcore::xml::internal {

// A failure to open or read a file: a Windows system error code (0: none) and
// the system's words for it.
struct FileReadFailure {
  int code = 0;
  std::string reason;
};

// What the library's own parser met opening or reading the file of its last
// ParseDocument (code 0 when it read the whole file). False when `parser` is
// not one of the library's: nothing is known then.
bool LastReadFailure(const AbstractDocParser& parser, FileReadFailure& out);

// Opens the file at `path` as the library's parser does and reads nothing:
// the failure any parser would meet opening it, or code 0.
FileReadFailure ProbeFile(const UTF16String& path);

}  // namespace tvxcore::xml::internal
