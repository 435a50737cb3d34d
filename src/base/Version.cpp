#include "tvxcore/tvxcore.h"

namespace tvxcore {

const char* GetLibraryVersion() noexcept { return TVXCORE_VERSION_STRING; }

}  // namespace tvxcore
