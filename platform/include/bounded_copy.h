/// @file
/// Copies that know the size of their destination. A C library that has them already is used instead when the build
/// defines PROCMGR_HAVE_BOUNDED_COPY.
#ifndef PROCMGR_PLATFORM_BOUNDED_COPY_H
#define PROCMGR_PLATFORM_BOUNDED_COPY_H

#include <stddef.h>
#include <string.h>

#include "platform/include/platform_export.h"

#ifndef PROCMGR_HAVE_BOUNDED_COPY

#ifdef __cplusplus
extern "C" {
#endif

/// Returns 0 on success, also for a count of 0. EINVAL (22): `dest` or `src` is null, or `destMax` is 0.
/// ERANGE (34): `count` is larger than `destMax`. After a failure a valid destination is all zero.
PROCMGR_PLATFORM_API int memcpy_s(void* dest, size_t destMax, const void* src, size_t count);

/// The same codes; a count larger than `destMax` fills the whole destination and returns ERANGE.
PROCMGR_PLATFORM_API int memset_s(void* dest, size_t destMax, int value, size_t count);

#ifdef __cplusplus
}
#endif

#endif
#endif
