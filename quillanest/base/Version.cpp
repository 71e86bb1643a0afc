#include "quillanest/Version.h"

namespace quillanest {

const char *version() noexcept { return QUILLANEST_VERSION; }

}  // namespace quillanest
