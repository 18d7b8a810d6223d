/// The two handlers that a group-owner process sets, as the delivering threads see them. Thread-safe; null is none.
#ifndef PROCMGR_PLATFORM_POSIX_OWNER_LINK_HANDLERS_H
#define PROCMGR_PLATFORM_POSIX_OWNER_LINK_HANDLERS_H

#include "platform/include/owner_link.h"

namespace ProcMgr {

OwnerAppReportHandler GetAppReportHandler();
OwnerPipeLostHandler GetPipeLostHandler();

}  // namespace ProcMgr

#endif
