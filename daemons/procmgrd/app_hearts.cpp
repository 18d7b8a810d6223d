#include "daemons/procmgrd/app_hearts.h"

#include <algorithm>

namespace Procmgrd {
namespace {

// One deadline serves all owners.
const AppKey kAllOwners;

// Of a period: a heart that beats as it should, or twice as often, loses no beat.
constexpr int kShortestGap = 4;
constexpr uint32_t kPulsesPerPeriod = 2;

}  // namespace

void AppHearts::Came(const AppKey& key, pid_t pid, gid_t gid) {
    const bool isFirst = hearts_.empty();
    hearts_[key] = {pid, gid, {}};
    if (isFirst) {
        Pulse();
    }
}

void AppHearts::Gone(const AppKey& key) {
    hearts_.erase(key);
    if (hearts_.empty()) {
        deadlines_.Disarm(DeadlineKind::PULSE, kAllOwners);
    }
}

void AppHearts::Beat(const AppKey& key, Clock::time_point now) {
    const auto found = hearts_.find(key);
    if (found == hearts_.end() || now < found->second.next) {
        return;
    }
    found->second.next = now + Clock::duration(period_) / kShortestGap;
    send_(key, found->second.pid, found->second.gid);
}

void AppHearts::Pulse() {
    const std::string* last = nullptr;
    for (const auto& [key, heart] : hearts_) {
        if (last == nullptr || *last != key.owner) {
            send_({key.owner, {}}, 0, 0);
            last = &key.owner;
        }
    }
    const auto periodMs = static_cast<uint32_t>(period_.count());
    deadlines_.Arm(DeadlineKind::PULSE, kAllOwners, std::max<uint32_t>(periodMs / kPulsesPerPeriod, 1));
}

}  // namespace Procmgrd
