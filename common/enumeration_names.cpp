#include "common/enumeration_names.h"

#include <map>
#include <vector>

#include "common/enumerations.h"

namespace ProcMgr {
namespace {

using Names = std::vector<std::string>;

// Tables are never destroyed: threads of the platform may still ask for names while the process exits.
const Names& kReportAppStateTypeNames =
    *new Names{"RUNNING_NORMAL_START",   "RUNNING_NORMAL_RESTART",   "RUNNING_ABNORMAL_TERM_TIMEOUT",
               "TERMINATED_NORMAL_EXIT", "TERMINATED_ABNORMAL_EXIT", "INVALID_INTERMEDIATE_STATE"};
const Names& kProcessStateNames =
    *new Names{"INITSTATE", "STARTING", "RUNNING", "TERMINATING", "TERMINATED", "RESTARTING"};
const Names& kBaseServiceStateTypeNames = *new Names{"INIT", "RESTARTING", "RUNNING", "TERMINATING"};
const Names& kAppExecStateNames = *new Names{"RUNNING", "TERMINATED"};

std::string NameAt(const Names& names, uint64_t value) {
    return value < names.size() ? names[static_cast<size_t>(value)] : std::string();
}

}  // namespace

std::string GetAppState(uint64_t value) {
    static const Names& names = *new Names{
        "SUCCESS", "TERM_FAILED", "START_FAILED", "RESTART_FAILED", "INIT", "PROCESSING", "START_FAILED_BY_EIO",
    };
    return NameAt(names, value);
}

std::string GetOptionType(uint64_t value) {
    static const Names& names = *new Names{"START", "TERM", "RESTART"};
    return NameAt(names, value);
}

std::string GetGroupOwner(uint64_t value) {
    static const Names& names = *new Names{"DATAMASTER", "VEK", "APPMGR"};
    return NameAt(names, value);
}

std::string GetSysState(uint64_t value) {
    static const auto& names = *new std::map<uint64_t, std::string>{
        {ToValue(SysState::OFF), "OFF"},
        {ToValue(SysState::WORKING), "WORKING"},
        {ToValue(SysState::SUSPEND), "SUSPEND"},
        {ToValue(SysState::UPGRADE), "UPGRADE"},
        {ToValue(SysState::CALIBRATION), "CALIBRATION"},
    };
    const auto found = names.find(value);
    return found == names.end() ? std::string() : found->second;
}

std::string GetReportAppStateTypeStr(uint64_t value) {
    return NameAt(kReportAppStateTypeNames, value);
}

std::string GetProcessStateStr(uint64_t value) {
    return NameAt(kProcessStateNames, value);
}

std::string GetBaseServiceStateTypeStr(uint64_t value) {
    return NameAt(kBaseServiceStateTypeNames, value);
}

std::string GetAppExecStateStr(uint64_t value) {
    return NameAt(kAppExecStateNames, value);
}

}  // namespace ProcMgr
