/// Decides in which order applications are started and terminated. Pure functions.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_WAVE_GRAPHS_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_WAVE_GRAPHS_H

#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/include/depend_graph.h"

namespace ProcMgr {

using DependsMap = std::unordered_map<std::string, std::set<std::string>>;

/// What the graphs are made of.
struct KnownApplications {
    const DependsMap& depends;
    const std::set<std::string>& templates;
};

/// Whose dependencies `name` has: its own, or its template's when it is an instance. Null when nothing describes it.
const std::set<std::string>* FindDependencies(const KnownApplications& known, const std::string& name);

/// The graphs that the parser promises for `names`. Names that nothing describes are appended to `unknown`, each once,
/// in their order. Cost time proportional to the names and dependencies that can be reached from `names`.
[[nodiscard]] DependGraph BuildStartGraph(const KnownApplications& known, const std::vector<std::string>& names,
                                          std::vector<std::string>& unknown);
[[nodiscard]] DependGraph BuildTermGraph(const KnownApplications& known, const std::vector<std::string>& names,
                                         std::vector<std::string>& unknown);

}  // namespace ProcMgr

#endif
