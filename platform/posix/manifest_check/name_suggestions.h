/// "Did you mean ...?" for dependencies that nothing describes.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_CHECK_NAME_SUGGESTIONS_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_CHECK_NAME_SUGGESTIONS_H

#include <vector>

#include "platform/posix/manifest/manifest_entry.h"
#include "platform/posix/manifest/manifest_error.h"

namespace ProcMgr {

/// Says what to do in the texts of unknown dependencies: the name that was meant, when one is near.
void SuggestNames(const std::vector<ManifestEntry>& entries, std::vector<ManifestError>& found);

}  // namespace ProcMgr

#endif
