/// @file
/// What a group-owner process may ask of the platform beside the facade: the reports that self-reporting applications
/// made of themselves, and the news that the connection to the process manager is gone.
///
/// Both handlers run on the thread that delivers the process manager's requests, in the order in which the process
/// manager sent them, never at the same time. They must return promptly and must not close the connection.
#ifndef PROCMGR_PLATFORM_OWNER_LINK_H
#define PROCMGR_PLATFORM_OWNER_LINK_H

#include <stddef.h>
#include <stdint.h>

#include "platform/include/platform_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/// `name`: `nameLen` bytes, not terminated, valid during the call. `pid`: the application's process as the kernel
/// vouches for it. `state`: 0 switched on (ready), 1 switched off (stopping).
typedef void (*OwnerAppReportHandler)(const char* name, size_t nameLen, int pid, uint32_t state);

/// The connection `fd` ended without TunorClosePipe. Told once per connection.
typedef void (*OwnerPipeLostHandler)(int fd);

/// Replaces the handler; null drops later reports. Set it before the connection is opened, so that no report is missed.
PROCMGR_PLATFORM_API void OwnerSetAppReportHandler(OwnerAppReportHandler handler);

/// As OwnerSetAppReportHandler, for the loss of the connection.
PROCMGR_PLATFORM_API void OwnerSetPipeLostHandler(OwnerPipeLostHandler handler);

#ifdef __cplusplus
}
#endif

#endif
