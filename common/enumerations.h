/// The values carried in messages and records. Each has a fixed underlying type, because a value outside its list may
/// come in from the wire and must be carried, not be undefined.
#ifndef PROCMGR_COMMON_ENUMERATIONS_H
#define PROCMGR_COMMON_ENUMERATIONS_H

#include <cstdint>

#include "include/procmgr_enumerations.h"

/// Result of a change request for one application.
enum class AppChangeState : uint32_t {
    SUCCESS = 0,
    TERM_FAILED = 1,
    START_FAILED = 2,
    RESTART_FAILED = 3,
    INIT = 4,        ///< waiting for a result
    PROCESSING = 5,  ///< command sent; as a report's result: it settles nothing
    START_FAILED_BY_EIO = 6,
};

namespace ProcMgr {

/// Kind of an application's current state. The numbers are not in the order of the life cycle; they are fixed.
enum class AppStateType : uint32_t {
    INIT_STATE = 0,
    RUNNING_STATE = 1,
    WAIT_READY_STATE = 2,
    TERMINATING_STATE = 3,
    TERMINATED_STATE = 4,
};

/// Operation that a change request asks for.
enum class OptionType : uint32_t { START = 0, TERM = 1, RESTART = 2 };

/// Kind of a group owner.
enum class GroupOwnerType : uint32_t { DATAMASTER = 0, VEK = 1, APPMGR = 2 };

/// System state, set by the system-state manager.
enum class SysState : uint32_t { OFF = 0, WORKING = 1, SUSPEND = 2, UPGRADE = 3, CALIBRATION = 4 };

/// State of a process as the process manager names it.
enum class ProcessState : uint32_t {
    INITSTATE = 0,
    STARTING = 1,
    RUNNING = 2,
    TERMINATING = 3,
    TERMINATED = 4,
    RESTARTING = 5,
};

/// State of the group owner's base services, reported to the process manager.
enum class BaseServiceStateType : uint32_t { INIT = 0, RESTARTING = 1, RUNNING = 2, TERMINATING = 3 };

/// Execution state reported to the process manager.
enum class AppExecState : uint32_t { RUNNING = 0, TERMINATED = 1 };

enum class GrpOwnerLogLevel : int32_t {
    GRP_OWNER_LOG_DEBUG = 0,
    GRP_OWNER_LOG_INFO = 1,
    GRP_OWNER_LOG_WARN = 2,
    GRP_OWNER_LOG_ERROR = 3,
    GRP_OWNER_LOG_EVENT = 4,
};

namespace Message {

/// Kind of a report of the process manager about an application.
enum class ReportAppStateType : uint32_t {
    RUNNING_NORMAL_START = 0,           ///< it was started and runs
    RUNNING_NORMAL_RESTART = 1,         ///< it was restarted and runs
    RUNNING_ABNORMAL_TERM_TIMEOUT = 2,  ///< its termination timed out; it still runs
    TERMINATED_NORMAL_EXIT = 3,
    TERMINATED_ABNORMAL_EXIT = 4,  ///< with a reason
    INVALID_INTERMEDIATE_STATE = 5,
};

/// Why an application ended abnormally. An open set: other values are carried as they are. IO_ERROR is the system's
/// EIO, whose name is a macro.
enum class AppAbnormalExitReason : uint32_t { OTHER = 0, IO_ERROR = 1 };

}  // namespace Message
}  // namespace ProcMgr

#endif
