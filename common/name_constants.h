/// Names of processes, environment variables and paths that several layers use.
#ifndef PROCMGR_COMMON_NAME_CONSTANTS_H
#define PROCMGR_COMMON_NAME_CONSTANTS_H

#include <string>

namespace ProcMgr {

// Built when the library is loaded and never destroyed, because threads of the platform may outlive main.
extern const std::string& kProcMgrName;       ///< "PROCMGR": the process manager's end of the pipe
extern const std::string& kProcPath;          ///< "/proc/"
extern const std::string& kDataMasterName;    ///< "datamaster"
extern const std::string& kVekMgrName;        ///< "vekmgr"
extern const std::string& kEmName;            ///< "EM"
extern const std::string& kCgroupCpuPath;     ///< "/sys/fs/cgroup/cpu/"
extern const std::string& kCgroupMemoryPath;  ///< "/sys/fs/cgroup/memory/"
extern const std::string& kCgroupCpusetPath;  ///< "/sys/fs/cgroup/cpuset/"
extern const std::string& kCgroupBlkioPath;   ///< "/sys/fs/cgroup/blkio/"
extern const std::string& kProcNameEnv;       ///< "PROC_NAME": environment variable, name of this process
extern const std::string& kKvaTypeEnv;        ///< "KVA_TYPE": environment variable
extern const std::string& kRunModeEnv;        ///< "DATAMASTER_RUN_MODE": environment variable, "1" stretches time-outs
extern const std::string& kPmName;            ///< "PM"
extern const std::string& kPmAgentName;       ///< "PM_AGENT"
extern const std::string& kSsAgentName;       ///< "SS_AGENT"
extern const std::string& kSsServerName;      ///< "SS_SERVER"

}  // namespace ProcMgr

#endif
