#include "daemons/procmgrd/owner_hearts.h"

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "daemons/procmgrd/daemon_log.h"

namespace Procmgrd {
namespace {

using Clock = std::chrono::steady_clock;

// One deadline serves all owners.
const AppKey kAllOwners;

}  // namespace

OwnerHearts::OwnerHearts(EventLoop& loop, Deadlines& deadlines, const ProcMgr::Posix::HeartBeatSettings& settings)
    : loop_(loop), deadlines_(deadlines), table_(settings.period, settings.misses) {
    for (const std::string& warning : settings.warnings) {
        PROCMGRD_LOG(kLogWarn, "heartbeat settings: %s", warning.c_str());
    }
}

OwnerHearts::~OwnerHearts() {
    if (receiver_) {
        loop_.Remove(receiver_->Descriptor());
    }
}

bool OwnerHearts::Open(const std::string& runDir, const std::string& watcher) {
    errno = ProcMgr::Posix::HeartBeatReceiver::Open(runDir, watcher, receiver_);
    return errno == 0 && loop_.Add(receiver_->Descriptor(), [this] { OnBeats(); });
}

void OwnerHearts::Came(const std::string& owner, pid_t pid) {
    hearts_[owner] = {pid, false};
}

void OwnerHearts::Gone(const std::string& owner) {
    hearts_.erase(owner);
    static_cast<void>(table_.Unwatch(owner));
    LookAndArm();
}

void OwnerHearts::OnBeats() {
    for (const ProcMgr::Posix::ReceivedBeat& beat : receiver_->Receive()) {
        Take(beat);
    }
    LookAndArm();
}

void OwnerHearts::Take(const ProcMgr::Posix::ReceivedBeat& beat) {
    const auto heart = hearts_.find(beat.name);
    if (heart == hearts_.end() || heart->second.pid != beat.pid) {
        PROCMGRD_LOG(kLogDebug,
                     "dropped a heartbeat of %s from process %d of user %u: no owner of that name and process",
                     beat.name.c_str(), beat.pid, beat.uid);
        return;
    }
    if (!heart->second.isWatched) {
        heart->second.isWatched = true;
        table_.Watch(beat.name, Clock::now());
        PROCMGRD_LOG(kLogInfo, "owner %s (pid %d): its heartbeat began", beat.name.c_str(), beat.pid);
    }
    if (table_.Beat(beat.name, static_cast<unsigned int>(beat.pid), Clock::now())) {
        PROCMGRD_LOG(kLogEvent, "owner %s (pid %d): its heartbeat recovered", beat.name.c_str(), beat.pid);
    }
}

void OwnerHearts::Tick() {
    // What waits to be received goes in first.
    OnBeats();
}

void OwnerHearts::LookAndArm() {
    for (const ProcMgr::Posix::HeartBeatTable::Notice& notice : table_.Tick(Clock::now())) {
        PROCMGRD_LOG(kLogError, "owner %s (pid %u): its heartbeat is lost; the process may hang", notice.name.c_str(),
                     notice.pid);
    }
    const auto next = table_.NextTick();
    if (!next) {
        deadlines_.Disarm(DeadlineKind::HEARTBEAT, kAllOwners);
        return;
    }
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(*next - Clock::now()).count();
    deadlines_.Arm(DeadlineKind::HEARTBEAT, kAllOwners, static_cast<uint32_t>(std::max<int64_t>(wait, 0)));
}

}  // namespace Procmgrd
