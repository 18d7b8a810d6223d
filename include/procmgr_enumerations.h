/// @file
/// The enumerations that cross the border of the library.
#ifndef PROCMGR_ENUMERATIONS_H
#define PROCMGR_ENUMERATIONS_H

#include <cstdint>

namespace ProcMgr {

/// What the subscriber is told about an application, and what an application reports of itself.
enum class AppReportState : uint32_t {
    SWITCH_ON = 0,            ///< it runs
    SWITCH_OFF = 1,           ///< it ended normally, or is being restarted
    HEART_BEAT_LOST = 2,      ///< it runs but its heartbeat stays away
    HEART_BEAT_RECOVERY = 3,  ///< its heartbeat is back
    ABNORMAL_EXIT = 4,        ///< it ended by itself with an error
    ACTIVELY_EXIT = 5,        ///< a change request is about to terminate it
};

}  // namespace ProcMgr

#endif
