#include "tools/ssctl/timeline/waits.h"

#include <algorithm>
#include <map>
#include <string>

namespace Ssctl {

namespace {

using Rows = std::vector<TimelineRow>;
using Index = std::map<std::string, size_t>;

Index IndexOf(const Rows& rows) {
    Index index;
    for (size_t at = 0; at < rows.size(); ++at) {
        index[rows[at].name] = at;
    }
    return index;
}

const TimelineRow* Find(const Rows& rows, const Index& index, const std::string& name) {
    const auto found = index.find(name);
    return found == index.end() ? nullptr : &rows[found->second];
}

/// A row counts once all of its dependencies have; those of a circle never do and stay in the first wave.
void FindWaves(Rows& rows, const Index& index) {
    std::vector<std::vector<size_t>> dependants(rows.size());
    std::vector<size_t> open(rows.size(), 0);
    std::vector<size_t> done;
    for (size_t at = 0; at < rows.size(); ++at) {
        for (const std::string& name : rows[at].depends) {
            const auto found = index.find(name);
            if (found != index.end()) {
                dependants[found->second].push_back(at);
                ++open[at];
            }
        }
        if (open[at] == 0) {
            done.push_back(at);
        }
    }
    for (size_t next = 0; next < done.size(); ++next) {
        for (const size_t dependant : dependants[done[next]]) {
            rows[dependant].wave = std::max(rows[dependant].wave, rows[done[next]].wave + 1);
            if (--open[dependant] == 0) {
                done.push_back(dependant);
            }
        }
    }
}

std::string LastBefore(const Rows& rows, const Index& index, const TimelineRow& row) {
    const TimelineRow* last = nullptr;
    for (const std::string& name : row.depends) {
        const TimelineRow* const dependency = Find(rows, index, name);
        const bool isBefore = dependency != nullptr && dependency->upUs && *dependency->upUs <= *row.askedUs;
        if (isBefore && (last == nullptr || *dependency->upUs > *last->upUs)) {
            last = dependency;
        }
    }
    return last == nullptr ? std::string() : last->name;
}

std::string FirstMissing(const Rows& rows, const Index& index, const TimelineRow& row) {
    for (const std::string& name : row.depends) {
        const TimelineRow* const dependency = Find(rows, index, name);
        if (dependency == nullptr || !dependency->upUs) {
            return name;
        }
    }
    return {};
}

}  // namespace

void FindWaits(Rows& rows) {
    const Index index = IndexOf(rows);
    FindWaves(rows, index);
    for (TimelineRow& row : rows) {
        row.waitedFor = row.askedUs ? LastBefore(rows, index, row) : FirstMissing(rows, index, row);
    }
}

std::vector<size_t> FindChain(const Rows& rows) {
    const Index index = IndexOf(rows);
    const TimelineRow* at = nullptr;
    for (const TimelineRow& row : rows) {
        if (row.upUs && (at == nullptr || *row.upUs >= *at->upUs)) {
            at = &row;
        }
    }
    std::vector<size_t> chain;
    std::vector<bool> isSeen(rows.size(), false);
    while (at != nullptr && !isSeen[static_cast<size_t>(at - rows.data())]) {
        chain.push_back(static_cast<size_t>(at - rows.data()));
        isSeen[chain.back()] = true;
        at = Find(rows, index, at->waitedFor);
    }
    std::reverse(chain.begin(), chain.end());
    return chain;
}

}  // namespace Ssctl
