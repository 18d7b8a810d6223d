#include "common/enumeration_names.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "common/enumerations.h"

namespace ProcMgr {
namespace {

using NameFunction = std::string (*)(uint64_t);

struct Table {
    const char* what;
    NameFunction function;
    std::vector<std::string> names;
};

const std::vector<Table>& Tables() {
    static const std::vector<Table> tables = {
        {"GetAppState",
         &GetAppState,
         {"SUCCESS", "TERM_FAILED", "START_FAILED", "RESTART_FAILED", "INIT", "PROCESSING", "START_FAILED_BY_EIO"}},
        {"GetOptionType", &GetOptionType, {"START", "TERM", "RESTART"}},
        {"GetGroupOwner", &GetGroupOwner, {"DATAMASTER", "VEK", "APPMGR"}},
        {"GetSysState", &GetSysState, {"OFF", "WORKING", "SUSPEND", "UPGRADE", "CALIBRATION"}},
        {"GetReportAppStateTypeStr",
         &GetReportAppStateTypeStr,
         {"RUNNING_NORMAL_START", "RUNNING_NORMAL_RESTART", "RUNNING_ABNORMAL_TERM_TIMEOUT", "TERMINATED_NORMAL_EXIT",
          "TERMINATED_ABNORMAL_EXIT", "INVALID_INTERMEDIATE_STATE"}},
        {"GetProcessStateStr",
         &GetProcessStateStr,
         {"INITSTATE", "STARTING", "RUNNING", "TERMINATING", "TERMINATED", "RESTARTING"}},
        {"GetBaseServiceStateTypeStr", &GetBaseServiceStateTypeStr, {"INIT", "RESTARTING", "RUNNING", "TERMINATING"}},
        {"GetAppExecStateStr", &GetAppExecStateStr, {"RUNNING", "TERMINATED"}},
    };
    return tables;
}

TEST(NameFunctions, GiveTheNameOfEveryValue) {
    for (const Table& table : Tables()) {
        for (size_t value = 0; value < table.names.size(); ++value) {
            EXPECT_EQ(table.function(value), table.names[value]) << table.what << " of " << value;
        }
    }
}

TEST(NameFunctions, GiveTheEmptyStringForAnyValueOutsideTheTable) {
    for (const Table& table : Tables()) {
        EXPECT_EQ(table.function(table.names.size()), "") << table.what;
        EXPECT_EQ(table.function(std::numeric_limits<uint32_t>::max()), "") << table.what;
        EXPECT_EQ(table.function(std::numeric_limits<uint64_t>::max()), "") << table.what;
    }
}

TEST(NameFunctions, AppStateOf7IsEmptyThoughTheReportKindsHaveASixthEntry) {
    EXPECT_EQ(GetAppState(7), "");
    EXPECT_EQ(GetReportAppStateTypeStr(5), "INVALID_INTERMEDIATE_STATE");
    EXPECT_EQ(GetReportAppStateTypeStr(6), "");
}

TEST(NameFunctions, SysStateOf5AndOfAnyLargerValueIsEmpty) {
    EXPECT_EQ(GetSysState(5), "");
    EXPECT_EQ(GetSysState(6), "");
    EXPECT_EQ(GetSysState(std::numeric_limits<uint64_t>::max()), "");
}

TEST(NameFunctions, GiveANewStringEachTime) {
    std::string name = GetOptionType(0);
    name += "x";
    EXPECT_EQ(GetOptionType(0), "START");
}

TEST(ToValue, WidensUnsignedEnumeratorsAndExtendsSignedOnes) {
    EXPECT_EQ(ToValue(AppChangeState::START_FAILED_BY_EIO), 6U);
    EXPECT_EQ(ToValue(Message::ReportAppStateType::INVALID_INTERMEDIATE_STATE), 5U);
    EXPECT_EQ(ToValue(static_cast<GrpOwnerLogLevel>(-1)), std::numeric_limits<uint64_t>::max());
}

TEST(NameFunctions, NameEachEnumeratorAsItIsSpelled) {
    EXPECT_EQ(GetAppState(ToValue(AppChangeState::SUCCESS)), "SUCCESS");
    EXPECT_EQ(GetAppState(ToValue(AppChangeState::TERM_FAILED)), "TERM_FAILED");
    EXPECT_EQ(GetAppState(ToValue(AppChangeState::START_FAILED)), "START_FAILED");
    EXPECT_EQ(GetAppState(ToValue(AppChangeState::RESTART_FAILED)), "RESTART_FAILED");
    EXPECT_EQ(GetAppState(ToValue(AppChangeState::INIT)), "INIT");
    EXPECT_EQ(GetAppState(ToValue(AppChangeState::PROCESSING)), "PROCESSING");
    EXPECT_EQ(GetAppState(ToValue(AppChangeState::START_FAILED_BY_EIO)), "START_FAILED_BY_EIO");
    EXPECT_EQ(GetOptionType(ToValue(OptionType::START)), "START");
    EXPECT_EQ(GetOptionType(ToValue(OptionType::TERM)), "TERM");
    EXPECT_EQ(GetOptionType(ToValue(OptionType::RESTART)), "RESTART");
    EXPECT_EQ(GetGroupOwner(ToValue(GroupOwnerType::DATAMASTER)), "DATAMASTER");
    EXPECT_EQ(GetGroupOwner(ToValue(GroupOwnerType::VEK)), "VEK");
    EXPECT_EQ(GetGroupOwner(ToValue(GroupOwnerType::APPMGR)), "APPMGR");
    EXPECT_EQ(GetSysState(ToValue(SysState::OFF)), "OFF");
    EXPECT_EQ(GetSysState(ToValue(SysState::WORKING)), "WORKING");
    EXPECT_EQ(GetSysState(ToValue(SysState::SUSPEND)), "SUSPEND");
    EXPECT_EQ(GetSysState(ToValue(SysState::UPGRADE)), "UPGRADE");
    EXPECT_EQ(GetSysState(ToValue(SysState::CALIBRATION)), "CALIBRATION");
}

TEST(NameFunctions, NameEachEnumeratorOfTheProcessManagerAsItIsSpelled) {
    using Message::ReportAppStateType;
    EXPECT_EQ(GetReportAppStateTypeStr(ToValue(ReportAppStateType::RUNNING_NORMAL_START)), "RUNNING_NORMAL_START");
    EXPECT_EQ(GetReportAppStateTypeStr(ToValue(ReportAppStateType::RUNNING_NORMAL_RESTART)), "RUNNING_NORMAL_RESTART");
    EXPECT_EQ(GetReportAppStateTypeStr(ToValue(ReportAppStateType::RUNNING_ABNORMAL_TERM_TIMEOUT)),
              "RUNNING_ABNORMAL_TERM_TIMEOUT");
    EXPECT_EQ(GetReportAppStateTypeStr(ToValue(ReportAppStateType::TERMINATED_NORMAL_EXIT)), "TERMINATED_NORMAL_EXIT");
    EXPECT_EQ(GetReportAppStateTypeStr(ToValue(ReportAppStateType::TERMINATED_ABNORMAL_EXIT)),
              "TERMINATED_ABNORMAL_EXIT");
    EXPECT_EQ(GetProcessStateStr(ToValue(ProcessState::INITSTATE)), "INITSTATE");
    EXPECT_EQ(GetProcessStateStr(ToValue(ProcessState::STARTING)), "STARTING");
    EXPECT_EQ(GetProcessStateStr(ToValue(ProcessState::RUNNING)), "RUNNING");
    EXPECT_EQ(GetProcessStateStr(ToValue(ProcessState::TERMINATING)), "TERMINATING");
    EXPECT_EQ(GetProcessStateStr(ToValue(ProcessState::TERMINATED)), "TERMINATED");
    EXPECT_EQ(GetProcessStateStr(ToValue(ProcessState::RESTARTING)), "RESTARTING");
    EXPECT_EQ(GetBaseServiceStateTypeStr(ToValue(BaseServiceStateType::INIT)), "INIT");
    EXPECT_EQ(GetBaseServiceStateTypeStr(ToValue(BaseServiceStateType::RESTARTING)), "RESTARTING");
    EXPECT_EQ(GetBaseServiceStateTypeStr(ToValue(BaseServiceStateType::RUNNING)), "RUNNING");
    EXPECT_EQ(GetBaseServiceStateTypeStr(ToValue(BaseServiceStateType::TERMINATING)), "TERMINATING");
    EXPECT_EQ(GetAppExecStateStr(ToValue(AppExecState::RUNNING)), "RUNNING");
    EXPECT_EQ(GetAppExecStateStr(ToValue(AppExecState::TERMINATED)), "TERMINATED");
}

TEST(Enumerations, HaveTheNumbersThatTravelInMessages) {
    EXPECT_EQ(static_cast<uint32_t>(AppStateType::INIT_STATE), 0U);
    EXPECT_EQ(static_cast<uint32_t>(AppStateType::RUNNING_STATE), 1U);
    EXPECT_EQ(static_cast<uint32_t>(AppStateType::WAIT_READY_STATE), 2U);
    EXPECT_EQ(static_cast<uint32_t>(AppStateType::TERMINATING_STATE), 3U);
    EXPECT_EQ(static_cast<uint32_t>(AppStateType::TERMINATED_STATE), 4U);
    EXPECT_EQ(static_cast<uint32_t>(AppReportState::SWITCH_ON), 0U);
    EXPECT_EQ(static_cast<uint32_t>(AppReportState::SWITCH_OFF), 1U);
    EXPECT_EQ(static_cast<uint32_t>(AppReportState::HEART_BEAT_LOST), 2U);
    EXPECT_EQ(static_cast<uint32_t>(AppReportState::HEART_BEAT_RECOVERY), 3U);
    EXPECT_EQ(static_cast<uint32_t>(AppReportState::ABNORMAL_EXIT), 4U);
    EXPECT_EQ(static_cast<uint32_t>(AppReportState::ACTIVELY_EXIT), 5U);
    EXPECT_EQ(static_cast<int32_t>(GrpOwnerLogLevel::GRP_OWNER_LOG_DEBUG), 0);
    EXPECT_EQ(static_cast<int32_t>(GrpOwnerLogLevel::GRP_OWNER_LOG_EVENT), 4);
    EXPECT_EQ(static_cast<uint32_t>(Message::AppAbnormalExitReason::IO_ERROR), 1U);
}

}  // namespace
}  // namespace ProcMgr
