/// The platform of the fuzz targets: log lines are formatted, so that their arguments are read, and dropped. Services
/// and pipes are opened at once, and nothing is sent.
#ifndef PROCMGR_FUZZ_QUIET_PLATFORM_H
#define PROCMGR_FUZZ_QUIET_PLATFORM_H

#include "platform/include/vek.h"

namespace Fuzz {

/// The service that was registered last.
const VEKServiceOps& RegisteredService();

}  // namespace Fuzz

#endif
