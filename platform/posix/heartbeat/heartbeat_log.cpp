#include "platform/posix/heartbeat/heartbeat_log.h"

#include "platform/posix/common_posix/module_log.h"
#include "platform/posix/log/environment.h"

namespace ProcMgr::Posix {
namespace {

const HeartBeatSettings& ReadAndLog() {
    static const HeartBeatSettings& settings = *new HeartBeatSettings(ReadHeartBeatSettings(ProcessEnvironment));
    for (const std::string& warning : settings.warnings) {
        MODULE_LOG(LogModule::HEARTBEAT, kLogWarn, "%s", warning.c_str());
    }
    return settings;
}

}  // namespace

const HeartBeatSettings& ProcessHeartBeatSettings() {
    static const HeartBeatSettings& settings = ReadAndLog();
    return settings;
}

void LogRefusedBeat(const ReceivedBeat& beat, unsigned int gid) {
    MODULE_LOG(LogModule::HEARTBEAT, kLogWarn,
               "Heartbeat of %s from process %d of group %u is refused; the group should be %u.", beat.name.c_str(),
               static_cast<int>(beat.pid), static_cast<unsigned int>(beat.gid), gid);
}

}  // namespace ProcMgr::Posix
