// tvxcore/xml/ExpatParser.h: the library's parser factory, built on expat.
//
// A host installs it at start-up:
//   std::unique_ptr<xml::DocParserFactory> f = std::make_unique<xml::ExpatParserFactory>();
//   xml::SetParserFactory(f);
#pragma once

#include <memory>

#include "tvxcore/Export.h"
#include "tvxcore/xml/XMLParser.h"

namespace tvxcore::xml {

// Makes expat-backed parsers with namespace support. The parsers deliver
// qualified names first, expand the predefined and internal entities, never
// load an external entity or DTD, and refuse documents whose entity expansion
// grows out of proportion to their size (status 10). ParseDocument reads a
// regular file whole and gives it to expat in one piece, so parsing is linear
// in the file's size whatever the length of its tokens; anything but a
// regular file (a directory, a pipe) fails with status 10. Stateless;
// GetParser may be called from any thread.
class TVXCORE_EXPORT ExpatParserFactory final : public DocParserFactory {
 public:
  std::unique_ptr<AbstractDocParser> GetParser(
      std::unique_ptr<AbstractParseHandler>& handler) override;
};

}  // namespace tvxcore::xml
