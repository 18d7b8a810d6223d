/// @file
/// Marks what the promises of the platform offer. An implementation that is a shared library is best compiled with
/// hidden visibility: these names are then all that it exports.
#ifndef PROCMGR_PLATFORM_EXPORT_H
#define PROCMGR_PLATFORM_EXPORT_H

#if defined(__GNUC__)
#define PROCMGR_PLATFORM_API __attribute__((visibility("default")))
#else
#define PROCMGR_PLATFORM_API
#endif

#endif
