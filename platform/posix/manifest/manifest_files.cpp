#include "platform/posix/manifest/manifest_files.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>

#include "platform/posix/manifest/manifest_text.h"
#include "platform/posix/manifest/read_scope.h"
#include "platform/posix/manifest/replacement_data.h"
#include "platform/posix/manifest/yaml_node.h"

namespace ProcMgr {
namespace {

constexpr size_t kMaxFiles = 65536;

ManifestError Unreadable(const std::string& file, const std::string& text) {
    return {file, 0, 0, "", text, ManifestFault::UNREADABLE};
}

struct DirCloser {
    void operator()(DIR* dir) const { closedir(dir); }
};

bool HasSuffix(const std::string& text, const std::string& suffix) {
    return text.size() > suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

/// Hidden files are what editors leave behind.
bool IsManifestFile(const std::string& name) {
    const bool isYaml = HasSuffix(name, ".yaml") || HasSuffix(name, ".yml");
    return isYaml && name.front() != '.' && name != kReplacementDataFile;
}

/// How many of the files have no more bytes together than may be read. One that is too long counts as far as it is
/// looked at, so that it hides no other one.
size_t CountWithinBytes(const std::vector<std::string>& files, size_t maxBytes) {
    size_t bytes = 0;
    const auto isTooMuch = [&bytes, maxBytes](const std::string& file) {
        struct stat status {};
        const bool isFile = stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode);
        bytes += isFile ? std::min(static_cast<size_t>(status.st_size), kMaxYamlBytes) : 0;
        return bytes > maxBytes;
    };
    return static_cast<size_t>(std::find_if(files.begin(), files.end(), isTooMuch) - files.begin());
}

std::vector<std::string> FilesOfFolder(const std::string& folder, size_t mebibytes,
                                       std::vector<ManifestError>& errors) {
    const std::unique_ptr<DIR, DirCloser> dir(opendir(folder.c_str()));
    std::vector<std::string> files;
    if (!dir) {
        errors.push_back(Unreadable(folder, CannotRead(errno)));
        return files;
    }
    const std::string prefix = folder.back() == '/' ? folder : folder + "/";
    while (const dirent* entry = readdir(dir.get())) {
        if (IsManifestFile(entry->d_name)) {
            files.push_back(prefix + entry->d_name);
        }
    }
    std::sort(files.begin(), files.end());
    if (files.size() > kMaxFiles) {
        errors.push_back(Unreadable(folder, "holds more than 65536 manifest files; the others are not read"));
        files.resize(kMaxFiles);
    }
    const size_t count = CountWithinBytes(files, mebibytes << 20);
    if (count < files.size()) {
        errors.push_back(Unreadable(folder, "holds more than " + std::to_string(mebibytes) + " MiB of manifests; " +
                                                Quote(files[count].substr(prefix.size())) +
                                                " and those after it are not read"));
        files.resize(count);
    }
    return files;
}

std::vector<std::string> FilesUnder(const std::string& path, size_t mebibytes, ManifestFiles& files) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        files.errors.push_back(Unreadable(path, CannotRead(errno)));
        return {};
    }
    if (!S_ISDIR(status.st_mode)) {
        return {path};
    }
    std::vector<std::string> names = FilesOfFolder(path, mebibytes, files.errors);
    if (names.empty() && files.errors.empty()) {
        files.warnings.push_back({path, 0, 0, "", "holds no *.yaml or *.yml file", ManifestFault::NO_MANIFEST});
    }
    return names;
}

void ReadManifestFile(const std::string& file, const std::map<std::string, std::string>& matchData,
                      ManifestFiles& files) {
    YamlNode root;
    YamlProblem problem;
    if (!ReadYamlFile(file, root, problem)) {
        files.errors.push_back(ErrorOf(file, problem));
        return;
    }
    if (root.kind == YamlNode::Kind::NOTHING) {
        files.warnings.push_back({file, 0, 0, "", "holds no manifest", ManifestFault::NO_MANIFEST});
        return;
    }
    ReadScope scope(file, matchData, files.errors);
    ReadEntries(root, scope, files.entries);
}

}  // namespace

ManifestFiles ReadManifestFiles(const std::string& path, const std::map<std::string, std::string>& matchData,
                                size_t mebibytes) {
    ManifestFiles files;
    for (const std::string& file : FilesUnder(path, mebibytes, files)) {
        ReadManifestFile(file, matchData, files);
    }
    return files;
}

}  // namespace ProcMgr
