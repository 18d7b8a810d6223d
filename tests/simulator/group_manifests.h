/// The applications of the simulated group.
#ifndef PROCMGR_TESTS_GROUP_MANIFESTS_H
#define PROCMGR_TESTS_GROUP_MANIFESTS_H

#include <set>
#include <string>
#include <vector>

#include "common/app_records.h"
#include "platform/include/application_manifest.h"

/// Every name that a request may hold: applications, instances, and the template itself.
const std::vector<std::string>& GroupNames();

/// Applications that are not started with the group, and instances.
const std::vector<std::string>& GroupDrivingNames();

/// Those that report their own readiness.
const std::set<std::string>& GroupSelfReporting();

/// Those that the other variants of the manifests leave out or describe otherwise. A record that a reload drops, or
/// moves between base and driving applications, forgets its state, so what is answered for them is not checked there.
const std::set<std::string>& GroupShifting();

/// A list of a request: these applications, without arguments.
std::vector<AppInfoForServer> GroupEntries(const std::vector<std::string>& names);

bool IsGroupTemplate(const std::string& name);

/// What to reload: as it is at first, without one application, with one that became a base application, with both.
enum class GroupVariant { FULL, LESS, MOVED, LESS_AND_MOVED };

std::vector<ApplicationManifest> GroupManifests(GroupVariant variant);

#endif
