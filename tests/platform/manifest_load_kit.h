/// Short ways to load manifests from a text and to look at the result.
#ifndef PROCMGR_TESTS_PLATFORM_MANIFEST_LOAD_KIT_H
#define PROCMGR_TESTS_PLATFORM_MANIFEST_LOAD_KIT_H

#include <map>
#include <string>
#include <vector>

#include "platform/posix/manifest/manifest_loader.h"
#include "tests/platform/manifest_test_folder.h"

using MatchData = std::map<std::string, std::string>;

/// Errors or warnings as lines, with the folder taken off their file names.
inline std::vector<std::string> Lines(const std::vector<ProcMgr::ManifestError>& errors, const std::string& folder) {
    std::vector<std::string> lines;
    for (const ProcMgr::ManifestError& error : errors) {
        std::string line = ProcMgr::FormatError(error);
        for (size_t at = line.find(folder + "/"); at != std::string::npos; at = line.find(folder + "/")) {
            line.erase(at, folder.size() + 1);
        }
        lines.push_back(line);
    }
    return lines;
}

/// What loading a folder, or one text as the file a.yaml, gives.
struct Loaded {
    std::vector<ApplicationManifest> manifests;
    std::vector<std::string> names;
    std::vector<std::string> errors;
    std::vector<std::string> warnings;
};

inline Loaded LoadPath(const std::string& path, const std::string& folder, const MatchData& matchData = {}) {
    const ProcMgr::LoadResult result = ProcMgr::LoadManifests(path, matchData);
    Loaded loaded;
    loaded.manifests = result.manifests;
    for (const ApplicationManifest& manifest : result.manifests) {
        loaded.names.push_back(manifest.GetAppName());
    }
    loaded.errors = Lines(result.errors, folder);
    loaded.warnings = Lines(result.warnings, folder);
    return loaded;
}

inline Loaded LoadFolder(const ManifestTestFolder& folder, const MatchData& matchData = {}) {
    return LoadPath(folder.Path(), folder.Path(), matchData);
}

inline Loaded LoadText(const std::string& text, const MatchData& matchData = {}) {
    const ManifestTestFolder folder;
    folder.Write("a.yaml", text);
    return LoadFolder(folder, matchData);
}

#endif
