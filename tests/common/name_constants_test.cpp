#include "common/name_constants.h"

#include <gtest/gtest.h>

namespace ProcMgr {
namespace {

TEST(NameConstants, HaveTheTextsThatTheSystemExpects) {
    EXPECT_EQ(kProcMgrName, "PROCMGR");
    EXPECT_EQ(kProcPath, "/proc/");
    EXPECT_EQ(kDataMasterName, "datamaster");
    EXPECT_EQ(kVekMgrName, "vekmgr");
    EXPECT_EQ(kEmName, "EM");
    EXPECT_EQ(kCgroupCpuPath, "/sys/fs/cgroup/cpu/");
    EXPECT_EQ(kCgroupMemoryPath, "/sys/fs/cgroup/memory/");
    EXPECT_EQ(kCgroupCpusetPath, "/sys/fs/cgroup/cpuset/");
    EXPECT_EQ(kCgroupBlkioPath, "/sys/fs/cgroup/blkio/");
    EXPECT_EQ(kProcNameEnv, "PROC_NAME");
    EXPECT_EQ(kKvaTypeEnv, "KVA_TYPE");
    EXPECT_EQ(kRunModeEnv, "DATAMASTER_RUN_MODE");
    EXPECT_EQ(kPmName, "PM");
    EXPECT_EQ(kPmAgentName, "PM_AGENT");
    EXPECT_EQ(kSsAgentName, "SS_AGENT");
    EXPECT_EQ(kSsServerName, "SS_SERVER");
}

}  // namespace
}  // namespace ProcMgr
