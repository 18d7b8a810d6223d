#include "daemons/procmgrd/timelines.h"

#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "daemons/procmgrd/daemon_log.h"
#include "daemons/procmgrd/launch/output_log.h"
#include "daemons/procmgrd/safe_folder.h"

namespace Procmgrd {
namespace {

using ProcMgr::Timeline::Event;
using ProcMgr::Timeline::EventKind;

constexpr mode_t kListable = S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH;

/// So much is kept until the turn ends.
constexpr size_t kMostBytesNoted = size_t{64} * 1024;

template <typename Clock>
int64_t MicrosecondsOf() {
    return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now().time_since_epoch()).count();
}

size_t CountEntries(const std::string& folder) {
    std::error_code ignored;
    size_t entries = 0;
    for (std::filesystem::directory_iterator at(folder, ignored), end; !ignored && at != end; at.increment(ignored)) {
        ++entries;
    }
    return entries;
}

void LogTheEnd(const std::string& owner, const std::string& why) {
    PROCMGRD_LOG(kLogWarn, "owner %s: no timeline is recorded until it connects anew: %s", owner.c_str(), why.c_str());
}

}  // namespace

TimelineStamp ReadTimelineClocks() {
    return {MicrosecondsOf<std::chrono::steady_clock>(), MicrosecondsOf<std::chrono::system_clock>()};
}

void Timelines::Come(const TimelineOwner& owner) {
    const std::string folder = settings_.folder + "/" + ProcMgr::FileSafeName(owner.name);
    Record record{{folder, ProcMgr::Timeline::WriteHeader(settings_.bootId), owner.gid, settings_.limits}, 0, {}};
    records_.erase(owner.name);
    std::string error;
    if (!MakeFolder(folder, error) || !record.file.Begin(error)) {
        LogTheEnd(owner.name, error);
        return;
    }
    records_.emplace(owner.name, std::move(record));
    Event came = ProcMgr::Timeline::EventOf(EventKind::CAME, {}, static_cast<uint64_t>(owner.pid));
    came.owner = owner.name;
    came.uid = owner.uid;
    Note(owner.name, std::move(came));
}

bool Timelines::MakeFolder(const std::string& path, std::string& error) const {
    std::error_code ignored;
    if (!std::filesystem::exists(path, ignored) && CountEntries(settings_.folder) >= settings_.owners) {
        error = "there are the records of " + std::to_string(settings_.owners) + " owners already; remove some from " +
                settings_.folder;
        return false;
    }
    if (!MakeSafeFolder(path, kListable)) {
        error = "can't use the folder " + path + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

void Timelines::Note(const std::string& owner, Event event) {
    const auto found = records_.find(owner);
    if (found == records_.end() || !found->second.file.IsOpen()) {
        return;
    }
    Record& record = found->second;
    const TimelineStamp now = settings_.now();
    event.serial = ++record.serial;
    event.monotonicUs = now.monotonicUs;
    event.wallUs = now.wallUs;
    record.lines += ProcMgr::Timeline::WriteEvent(event);
    if (record.lines.size() > kMostBytesNoted) {
        Flush(owner, record);
    }
}

void Timelines::Flush() {
    for (auto& [owner, record] : records_) {
        if (!record.lines.empty()) {
            Flush(owner, record);
        }
    }
}

void Timelines::Flush(const std::string& owner, Record& record) {
    std::string error;
    if (!record.file.Write(std::exchange(record.lines, {}), error)) {
        LogTheEnd(owner, error);
    }
}

void Timelines::Forget(const std::string& owner) {
    const auto found = records_.find(owner);
    if (found == records_.end()) {
        return;
    }
    if (!found->second.lines.empty()) {
        Flush(owner, found->second);
    }
    records_.erase(found);
}

}  // namespace Procmgrd
