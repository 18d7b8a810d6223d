/// Makes an implementation of the parser know manifests, by whichever way it gets them.
#ifndef PROCMGR_TESTS_CONTRACT_KNOWN_MANIFESTS_H
#define PROCMGR_TESTS_CONTRACT_KNOWN_MANIFESTS_H

#include <vector>

#include "platform/include/application_manifest.h"

/// Lets ParseYaml find these manifests, of which only name, dependencies and template attribute count; with
/// `withBadOne` a bad manifest too. Returns the result of ParseYaml and fills `out` by it.
int ParseManifests(const std::vector<ApplicationManifest>& manifests, bool withBadOne,
                   std::vector<ApplicationManifest>& out);

#endif
