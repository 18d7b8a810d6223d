#include "tools/ssctl/timeline/span.h"

#include <algorithm>

#include "common/enumerations.h"

namespace Ssctl {

namespace {

using ProcMgr::Timeline::Event;
using ProcMgr::Timeline::EventKind;
using Events = std::vector<Event>;

/// Nothing is under way for so long: what comes then is something new.
constexpr int64_t kPauseUs = 1000000;
/// Longer than any owner waits for a start.
constexpr int64_t kStuckUs = 60000000;

/// Follows what is under way, and notices pauses.
class Progress {
public:
    explicit Progress(const KnownManifests& manifests) : manifests_(manifests) {}

    /// True when something is asked for after a pause.
    bool Take(const Event& event) {
        DropStuck(event.monotonicUs);
        const bool isNew = event.kind == EventKind::ASKED && hasBegun_ && underWay_.empty() &&
                           event.monotonicUs - settledUs_ >= kPauseUs;
        Follow(event);
        return isNew;
    }

private:
    void Follow(const Event& event) {
        if (event.kind == EventKind::ASKED || event.kind == EventKind::FORKED) {
            underWay_[event.app] = event.monotonicUs;
            hasBegun_ = true;
        } else if (IsEnd(event) && underWay_.erase(event.app) != 0) {
            settledUs_ = event.monotonicUs;
        }
    }

    bool IsEnd(const Event& event) const {
        const Event* const manifest = manifests_.Find(event.app);
        const bool reports = manifest != nullptr && manifest->reports != 0;
        return event.kind == EventKind::FAILED || event.kind == EventKind::EXITED || event.kind == EventKind::READY ||
               (event.kind == EventKind::RUNNING && !reports);
    }

    void DropStuck(int64_t nowUs) {
        for (auto at = underWay_.begin(); at != underWay_.end();) {
            const bool isStuck = nowUs - at->second > kStuckUs;
            settledUs_ = isStuck ? std::max(settledUs_, at->second + kStuckUs) : settledUs_;
            at = isStuck ? underWay_.erase(at) : std::next(at);
        }
    }

    const KnownManifests& manifests_;
    std::map<std::string, int64_t> underWay_;  ///< with the time of the last news
    int64_t settledUs_ = 0;
    bool hasBegun_ = false;
};

/// The positions at which something new is asked for.
std::vector<size_t> FindBeginnings(const Events& events) {
    KnownManifests manifests;
    Progress progress(manifests);
    std::vector<size_t> beginnings;
    for (size_t at = 0; at < events.size(); ++at) {
        if (events[at].kind == EventKind::MANIFEST) {
            manifests.Take(events[at]);
        }
        const bool isNew = progress.Take(events[at]);
        if (isNew || (events[at].kind == EventKind::ASKED && beginnings.empty())) {
            beginnings.push_back(at);
        }
    }
    return beginnings;
}

bool TellsThatServicesRun(const Event& event) {
    return event.kind == EventKind::SERVICES &&
           event.state == static_cast<uint64_t>(ProcMgr::BaseServiceStateType::RUNNING);
}

SpanBounds BootBounds(const Events& events, const std::vector<size_t>& beginnings) {
    SpanBounds bounds;
    bounds.begin = events.front().kind == EventKind::CAME ? 0 : beginnings.front();
    const auto afterFirst = events.begin() + static_cast<std::ptrdiff_t>(beginnings.front());
    const auto services = std::find_if(afterFirst, events.end(), TellsThatServicesRun);
    bounds.end = static_cast<size_t>(services - events.begin());
    if (services == events.end() && beginnings.size() > 1) {
        bounds.end = beginnings[1];
    }
    return bounds;
}

}  // namespace

const Event* KnownManifests::Find(const std::string& app) const {
    auto found = manifests_.find(app);
    if (found == manifests_.end()) {
        found = manifests_.find(app.substr(0, app.find('@')));
    }
    return found == manifests_.end() ? nullptr : &found->second;
}

std::vector<std::string> KnownManifests::BootNames() const {
    std::vector<std::string> names;
    for (const auto& [name, manifest] : manifests_) {
        if (manifest.boot != 0) {
            names.push_back(name);
        }
    }
    return names;
}

Checked<SpanBounds> FindSpan(const Events& events, Span span) {
    const std::vector<size_t> beginnings = FindBeginnings(events);
    if (beginnings.empty()) {
        return Problem{"the owner has not asked for any start yet"};
    }
    return span == Span::BOOT ? BootBounds(events, beginnings) : SpanBounds{beginnings.back(), events.size()};
}

}  // namespace Ssctl
