// filesupport/internal/AuxiliaryResources.h: where the library's auxiliary resources (dictionaries)
// are found.
#pragma once

#include "tvxcore/utility/StringTypes.h"

namespace tvxcore::filesupport::internal {

// The path of the resource `inName` in the resource folder `inFolder` of the
// object that contains `inModuleAddress`. The folder is looked for beside that
// object, in "../share/tvxcore/" from it, and beside the main executable; the
// first that exists wins, and the first candidate is named when none exists.
// The name is used as given: the reader decides on an extension.
UTF16String GetAuxiliaryResourcesPath(const void* inModuleAddress, const UTF16String& inName,
                                      const UTF16String& inFolder);

}  // namespace tvxcore::filesupport::internal
