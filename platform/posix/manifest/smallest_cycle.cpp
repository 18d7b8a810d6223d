#include "platform/posix/manifest/smallest_cycle.h"

#include <algorithm>
#include <unordered_map>

namespace ProcMgr {
namespace {

class CycleSearch {
public:
    CycleSearch(const std::vector<size_t>& component, const Successors& successors)
        : component_(component), successors_(successors) {
        for (size_t at = 0; at < component.size(); ++at) {
            positions_.emplace(component[at], at);
        }
    }

    std::vector<size_t> Find(size_t& budget) {
        SearchFrom(0);
        for (size_t at = 1; at < component_.size() && steps_ < budget && best_.size() != 2; ++at) {
            SearchFrom(at);
        }
        budget -= std::min(budget, steps_);
        std::rotate(best_.begin(), std::min_element(best_.begin(), best_.end()), best_.end());
        return std::move(best_);
    }

private:
    static constexpr size_t kNowhere = static_cast<size_t>(-1);

    /// Breadth first, until the search is back or as long as the best cycle so far.
    void SearchFrom(size_t start) {
        cameFrom_.assign(component_.size(), kNowhere);
        steps_ += component_.size();
        std::vector<size_t> wave = {start};
        for (size_t length = 1; !wave.empty() && (best_.empty() || length < best_.size()); ++length) {
            std::vector<size_t> next;
            for (const size_t at : wave) {
                if (Expand(at, start, next)) {
                    Take(at, start);
                    return;
                }
            }
            wave = std::move(next);
        }
    }

    /// True when an edge leads back to the start.
    bool Expand(size_t at, size_t start, std::vector<size_t>& next) {
        for (const size_t successor : successors_[component_[at]]) {
            ++steps_;
            const auto member = positions_.find(successor);
            if (member == positions_.end() || cameFrom_[member->second] != kNowhere) {
                continue;
            }
            if (member->second == start) {
                return true;
            }
            cameFrom_[member->second] = at;
            next.push_back(member->second);
        }
        return false;
    }

    void Take(size_t last, size_t start) {
        best_.clear();
        for (size_t at = last; at != start; at = cameFrom_[at]) {
            best_.push_back(component_[at]);
        }
        best_.push_back(component_[start]);
        std::reverse(best_.begin(), best_.end());
    }

    const std::vector<size_t>& component_;
    const Successors& successors_;
    std::unordered_map<size_t, size_t> positions_;
    std::vector<size_t> cameFrom_;
    std::vector<size_t> best_;
    size_t steps_ = 0;
};

}  // namespace

std::vector<size_t> SmallestCycle(const std::vector<size_t>& component, const Successors& successors, size_t& budget) {
    return CycleSearch(component, successors).Find(budget);
}

}  // namespace ProcMgr
