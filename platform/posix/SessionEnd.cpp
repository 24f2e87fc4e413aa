#include "SessionEnd.h"

namespace platform {

void WatchSessionEnd() {}

}  // namespace platform
