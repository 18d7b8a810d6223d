/// @file
/// Marks the few classes that an integrator may link against; everything else of the library stays hidden.
#ifndef PROCMGR_EXPORT_H
#define PROCMGR_EXPORT_H

#if defined(__GNUC__)
#define PROCMGR_EXPORT __attribute__((visibility("default")))
#else
#define PROCMGR_EXPORT
#endif

#endif
