#include "tvxcore/Version.h"

namespace tvxcore {

const char* GetLibraryVersion() noexcept { return TVXCORE_VERSION_STRING; }

}  // namespace tvxcore
