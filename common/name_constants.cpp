#include "common/name_constants.h"

namespace ProcMgr {

const std::string& kProcMgrName = *new std::string("PROCMGR");
const std::string& kProcPath = *new std::string("/proc/");
const std::string& kDataMasterName = *new std::string("datamaster");
const std::string& kVekMgrName = *new std::string("vekmgr");
const std::string& kEmName = *new std::string("EM");
const std::string& kCgroupCpuPath = *new std::string("/sys/fs/cgroup/cpu/");
const std::string& kCgroupMemoryPath = *new std::string("/sys/fs/cgroup/memory/");
const std::string& kCgroupCpusetPath = *new std::string("/sys/fs/cgroup/cpuset/");
const std::string& kCgroupBlkioPath = *new std::string("/sys/fs/cgroup/blkio/");
const std::string& kProcNameEnv = *new std::string("PROC_NAME");
const std::string& kKvaTypeEnv = *new std::string("KVA_TYPE");
const std::string& kRunModeEnv = *new std::string("DATAMASTER_RUN_MODE");
const std::string& kPmName = *new std::string("PM");
const std::string& kPmAgentName = *new std::string("PM_AGENT");
const std::string& kSsAgentName = *new std::string("SS_AGENT");
const std::string& kSsServerName = *new std::string("SS_SERVER");

}  // namespace ProcMgr
