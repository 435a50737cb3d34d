// tvxcore/tvxcore.h: the whole public interface of tvxcore in one include.
#pragma once

#include "tvxcore/Export.h"
#include "tvxcore/Version.h"

// Memory and strings
#include "tvxcore/utility/CaseMapping.h"
#include "tvxcore/utility/Flags.h"
#include "tvxcore/utility/SmallBlockAllocator.h"
#include "tvxcore/utility/StringTypes.h"

namespace tvxcore {

// The version of the library that is loaded, "major.minor.patch". It may differ
// from TVXCORE_VERSION_STRING when a program runs against a newer build.
TVXCORE_EXPORT const char* GetLibraryVersion() noexcept;

}  // namespace tvxcore
