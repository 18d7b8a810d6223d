#include "tools/ssctl/timeline/timeline_rows.h"

#include <algorithm>
#include <set>
#include <utility>

namespace Ssctl {

namespace {

using ProcMgr::Timeline::Event;
using ProcMgr::Timeline::EventKind;
using Events = std::vector<Event>;

/// One row while its events come.
class RowMaker {
public:
    explicit RowMaker(TimelineRow row) : row_(std::move(row)) {}

    /// `atUs` is the event's time in the span; `isOver`: the span has ended, only a start under way is still followed.
    void Take(const Event& event, int64_t atUs, bool isOver) {
        if (event.kind == EventKind::ASKED && !isOver) {
            Ask(event, atUs);
        } else if (row_.state == RowState::STARTING) {
            Follow(event, atUs);
        } else if (event.kind == EventKind::EXITED && row_.state == RowState::UP && !isOver) {
            End(event, atUs);
        }
        NoteIntent(event);
    }

    TimelineRow Finish() { return std::move(row_); }

private:
    void NoteIntent(const Event& event) {
        if (event.kind == EventKind::ENDING) {
            isEnding_ = true;
            isReplaced_ = false;
        } else if (event.kind == EventKind::ASKED) {
            isReplaced_ = isReplaced_ || isEnding_ || event.restart != 0;
        } else if (event.kind == EventKind::FORKED || event.kind == EventKind::EXITED) {
            isEnding_ = false;
            isReplaced_ = false;
        }
    }

    void Ask(const Event& event, int64_t atUs) {
        if (!row_.askedUs) {
            row_.askedUs = atUs;
            row_.request = event.request;
        }
        row_.state = row_.state == RowState::UP ? RowState::UP : RowState::STARTING;
    }

    void Follow(const Event& event, int64_t atUs) {
        switch (event.kind) {
            case EventKind::FORKED:
                row_.forkedUs = atUs;
                row_.runningUs.reset();
                row_.pid = event.pid;
                ++row_.tries;
                break;
            case EventKind::RUNNING:
                row_.runningUs = atUs;
                row_.pid = event.pid;
                ComeUp(atUs, !row_.reports);
                break;
            case EventKind::READY:
                ComeUp(atUs, true);
                break;
            case EventKind::FAILED:
                row_.ends.push_back({atUs, true, "reason " + std::to_string(event.reason)});
                row_.state = RowState::FAILED;
                break;
            case EventKind::EXITED:
                LeaveEarly(event, atUs);
                break;
            default:
                break;
        }
    }

    void LeaveEarly(const Event& event, int64_t atUs) {
        if (event.pid != row_.pid) {
            // One that ran before the span, to which a restart put an end.
            return;
        }
        End(event, atUs);
        if (!isReplaced_) {
            row_.state = isEnding_ ? RowState::STOPPED : RowState::FAILED;
        }
    }

    void ComeUp(int64_t atUs, bool isUp) {
        if (isUp) {
            row_.upUs = atUs;
            row_.state = RowState::UP;
        }
    }

    void End(const Event& event, int64_t atUs) {
        const bool isSignal = event.signal != 0;
        const bool isAsked = isEnding_ || isReplaced_;
        const bool isAbnormal = !isAsked && (isSignal || event.code != 0 || row_.state != RowState::UP);
        const std::string how =
            isSignal ? "signal " + std::to_string(event.signal) : "exit code " + std::to_string(event.code);
        row_.ends.push_back({atUs, isAbnormal, how});
    }

    TimelineRow row_;
    bool isEnding_ = false;    ///< it was told to end
    bool isReplaced_ = false;  ///< it ends, or has ended, to make room for a new process
};

/// The manifests as they are at the end of the span.
KnownManifests ManifestsAt(const Events& events, size_t end) {
    KnownManifests manifests;
    for (size_t at = 0; at < end; ++at) {
        if (events[at].kind == EventKind::MANIFEST) {
            manifests.Take(events[at]);
        }
    }
    return manifests;
}

std::set<std::string> NamesOf(const Events& events, Span span, const SpanBounds& bounds,
                              const KnownManifests& manifests) {
    std::set<std::string> names;
    if (span == Span::BOOT) {
        const std::vector<std::string> boot = manifests.BootNames();
        names.insert(boot.begin(), boot.end());
        return names;
    }
    for (size_t at = bounds.begin; at < bounds.end; ++at) {
        if (events[at].kind == EventKind::ASKED) {
            names.insert(events[at].app);
        }
    }
    return names;
}

TimelineRow NewRow(const std::string& name, const KnownManifests& manifests) {
    TimelineRow row;
    row.name = name;
    const Event* const manifest = manifests.Find(name);
    if (manifest != nullptr) {
        row.reports = manifest->reports != 0;
        row.depends = manifest->depends;
        std::sort(row.depends.begin(), row.depends.end());
    }
    return row;
}

}  // namespace

SpanRows MakeRows(const Events& events, Span span, const SpanBounds& bounds) {
    const KnownManifests manifests = ManifestsAt(events, bounds.end);
    std::map<std::string, RowMaker> makers;
    for (const std::string& name : NamesOf(events, span, bounds, manifests)) {
        makers.emplace(name, RowMaker(NewRow(name, manifests)));
    }
    SpanRows made;
    for (size_t at = bounds.begin; at < events.size(); ++at) {
        const auto maker = makers.find(events[at].app);
        if (maker == makers.end() || events[at].kind == EventKind::MANIFEST) {
            continue;
        }
        const int64_t atUs = events[at].monotonicUs - events[bounds.begin].monotonicUs;
        maker->second.Take(events[at], atUs, at >= bounds.end);
        made.lastUs = at < bounds.end ? atUs : made.lastUs;
    }
    for (auto& [name, maker] : makers) {
        made.rows.push_back(maker.Finish());
    }
    return made;
}

}  // namespace Ssctl
