/// What the descriptors of a service's loop are told apart by; a file's tag is its number.
#ifndef PROCMGR_PLATFORM_POSIX_VEK_BUS_TAGS_H
#define PROCMGR_PLATFORM_POSIX_VEK_BUS_TAGS_H

#include <cstdint>

namespace ProcMgr {

inline constexpr uint64_t kListenerTag = 0;
inline constexpr uint64_t kWakeTag = 1;
inline constexpr uint64_t kFirstFileTag = 2;

}  // namespace ProcMgr

#endif
