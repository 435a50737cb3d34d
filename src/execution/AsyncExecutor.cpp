// The executor interfaces' out-of-line destructors, so that their type
// information lives in the library once.
#include "tvxcore/threads/AsyncExecutor.h"

namespace tvxcore::threads {

AsyncExecutor::~AsyncExecutor() = default;

}  // namespace tvxcore::threads
