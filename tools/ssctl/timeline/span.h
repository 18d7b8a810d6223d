/// Finds the part of a record that a timeline is about. Pure.
#ifndef SSCTL_TIMELINE_SPAN_H
#define SSCTL_TIMELINE_SPAN_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "tools/ssctl/timeline/timeline.h"

namespace Ssctl {

/// What the manifests of a session say, by name.
class KnownManifests {
public:
    void Take(const ProcMgr::Timeline::Event& manifest) { manifests_[manifest.app] = manifest; }

    /// Of the application, or of its template; null when there is none.
    const ProcMgr::Timeline::Event* Find(const std::string& app) const;

    /// The names of those that are to be started at boot, in their order.
    std::vector<std::string> BootNames() const;

private:
    std::map<std::string, ProcMgr::Timeline::Event> manifests_;
};

/// Positions in the events: time 0 is that of `begin`; what is asked for before it or from `end` on does not count.
struct SpanBounds {
    size_t begin = 0;
    size_t end = 0;
};

/// A problem when nothing was asked for.
[[nodiscard]] Checked<SpanBounds> FindSpan(const std::vector<ProcMgr::Timeline::Event>& events, Span span);

}  // namespace Ssctl

#endif
