/// Reads application manifests from YAML. No state: every call stands alone and may be made from any thread at once, so
/// that one process can hold the manifests of several owners. Nothing is logged and nothing is thrown.
///
/// The format is described in docs/manifests.md.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_LOADER_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_MANIFEST_LOADER_H

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "platform/include/application_manifest.h"
#include "platform/posix/manifest/manifest_error.h"

namespace ProcMgr {

struct ManifestFiles;

/// Everybody waits while the process manager reads the manifests of one owner, so that it reads no more than this.
inline constexpr size_t kMebibytesOfProcessManager = 8;

struct LoadResult {
    /// The good manifests, each name once, in reading order: files in name order, entries as they stand in the file.
    std::vector<ApplicationManifest> manifests;
    std::vector<ManifestError> errors;
    /// What works but may not be meant: a second manifest of a name, a dependency without a manifest, an empty file.
    std::vector<ManifestError> warnings;
};

/// Reads every manifest under `path`: a file, or the *.yaml and *.yml of a folder except its replacement data.
/// `${KEY}` is replaced from `matchData`. A bad manifest gives errors and hides no other manifest. Of a folder
/// `mebibytes` are read at most; the files after these, in name order, are one error.
[[nodiscard]] LoadResult LoadManifests(const std::string& path, const std::map<std::string, std::string>& matchData,
                                       size_t mebibytes = 64);

/// The second half of it: what can be run of what was read.
[[nodiscard]] LoadResult SelectManifests(ManifestFiles files);

/// The part of `name` before its first '@' when `name` can be an instance, otherwise the empty string.
[[nodiscard]] std::string TemplateOf(const std::string& name);

/// True when `name` is `templateName`, '@' and an instance part that is not empty. A template is no instance of itself.
/// Says nothing about whether a manifest of that template exists.
[[nodiscard]] bool IsInstanceOf(const std::string& templateName, const std::string& name);

/// The file that a shared-object application loads: `so_path` joined with `so_name`; the one that is given when the
/// other is empty. A result without a slash is searched by the dynamic loader.
[[nodiscard]] std::string SharedObjectFile(const ApplicationManifest& manifest);

}  // namespace ProcMgr

#endif
