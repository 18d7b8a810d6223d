#include "platform/posix/heartbeat/heartbeat_log.h"

#include <cstdint>

#include "platform/include/platform_log.h"
#include "platform/posix/log/environment.h"

namespace ProcMgr::Posix {
namespace {

constexpr uint32_t kModule = 27;
constexpr int32_t kWarn = 2;

bool IsWarnEnabled() {
    return CheckLogLevel(kModule, kWarn) == 1;
}

const HeartBeatSettings& ReadAndLog() {
    static const HeartBeatSettings& settings = *new HeartBeatSettings(ReadHeartBeatSettings(ProcessEnvironment));
    for (const std::string& warning : settings.warnings) {
        if (IsWarnEnabled()) {
            KmonRecord(kModule, kWarn, "%s", warning.c_str());
        }
    }
    return settings;
}

}  // namespace

const HeartBeatSettings& ProcessHeartBeatSettings() {
    static const HeartBeatSettings& settings = ReadAndLog();
    return settings;
}

void LogRefusedBeat(const ReceivedBeat& beat, unsigned int gid) {
    if (IsWarnEnabled()) {
        KmonRecord(kModule, kWarn, "Heartbeat of %s from process %d of group %u is refused; the group should be %u.",
                   beat.name.c_str(), static_cast<int>(beat.pid), static_cast<unsigned int>(beat.gid), gid);
    }
}

}  // namespace ProcMgr::Posix
