#include "platform/posix/manifest/manifest_loader.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <unordered_map>
#include <utility>

#include "platform/posix/manifest/manifest_cycles.h"
#include "platform/posix/manifest/manifest_entry.h"
#include "platform/posix/manifest/manifest_text.h"
#include "platform/posix/manifest/read_scope.h"
#include "platform/posix/manifest/replacement_data.h"
#include "platform/posix/manifest/yaml_node.h"

namespace ProcMgr {
namespace {

constexpr size_t kMaxFiles = 65536;

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
        errors.push_back({folder, 0, 0, "", CannotRead(errno)});
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
        errors.push_back({folder, 0, 0, "", "holds more than 65536 manifest files; the others are not read"});
        files.resize(kMaxFiles);
    }
    const size_t count = CountWithinBytes(files, mebibytes << 20);
    if (count < files.size()) {
        errors.push_back({folder, 0, 0, "",
                          "holds more than " + std::to_string(mebibytes) + " MiB of manifests; " +
                              Quote(files[count].substr(prefix.size())) + " and those after it are not read"});
        files.resize(count);
    }
    return files;
}

std::vector<std::string> FilesUnder(const std::string& path, size_t mebibytes, std::vector<ManifestError>& errors) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        errors.push_back({path, 0, 0, "", CannotRead(errno)});
        return {};
    }
    return S_ISDIR(status.st_mode) ? FilesOfFolder(path, mebibytes, errors) : std::vector<std::string>{path};
}

void ReadManifestFile(const std::string& file, const std::map<std::string, std::string>& matchData, LoadResult& result,
                      std::vector<ManifestEntry>& entries) {
    YamlNode root;
    YamlProblem problem;
    if (!ReadYamlFile(file, root, problem)) {
        result.errors.push_back({file, problem.line, problem.column, "", problem.text});
        return;
    }
    if (root.kind == YamlNode::Kind::NOTHING) {
        result.warnings.push_back({file, 0, 0, "", "holds no manifest"});
        return;
    }
    ReadScope scope(file, matchData, result.errors);
    ReadEntries(root, scope, entries);
}

void KeepFirstOfName(std::vector<ManifestEntry>& entries, std::vector<ManifestError>& warnings) {
    std::unordered_map<std::string, std::string> places;
    std::vector<ManifestEntry> kept;
    for (ManifestEntry& entry : entries) {
        const std::string place = entry.file + ":" + std::to_string(entry.line);
        const auto [first, isNew] = places.emplace(entry.attributes.appName, place);
        if (isNew) {
            kept.push_back(std::move(entry));
            continue;
        }
        warnings.push_back({entry.file, entry.line, entry.column, "app_name",
                            "the manifest of " + Quote(entry.attributes.appName) +
                                " is left out, because an earlier one has the same name: " + first->second});
    }
    entries = std::move(kept);
}

/// Names and whether they are templates.
using Names = std::unordered_map<std::string, bool>;

/// Why nothing of this name can run, or the empty string.
std::string CheckDependency(const std::string& name, const Names& names) {
    const auto exact = names.find(name);
    if (exact != names.end()) {
        return exact->second ? Quote(name) + " is a template, which is never started itself; name an instance of it"
                             : "";
    }
    const auto found = names.find(TemplateOf(name));
    return found != names.end() && found->second ? "" : Quote(name) + " has no good manifest; it will never be running";
}

void WarnOfDependencies(const std::vector<ManifestEntry>& entries, std::vector<ManifestError>& warnings) {
    Names names;
    for (const ManifestEntry& entry : entries) {
        // One that is started at boot under its own name makes no instances.
        names[entry.attributes.appName] = entry.attributes.isDynamicPara && !entry.attributes.isAutoBoot;
    }
    for (const ManifestEntry& entry : entries) {
        for (const std::string& name : entry.attributes.depends) {
            const std::string problem = CheckDependency(name, names);
            if (!problem.empty()) {
                warnings.push_back({entry.file, entry.dependsLine, entry.dependsColumn, "depends",
                                    Quote(entry.attributes.appName) + " cannot start: its dependency " + problem});
            }
        }
    }
}

void WarnOfAutoBootTemplates(const std::vector<ManifestEntry>& entries, std::vector<ManifestError>& warnings) {
    for (const ManifestEntry& entry : entries) {
        if (entry.attributes.isAutoBoot && entry.attributes.isDynamicPara) {
            warnings.push_back({entry.file, entry.line, entry.column, "is_dynamic_para",
                                Quote(entry.attributes.appName) +
                                    " is started at boot under its own name, so that no instances are made of it"});
        }
    }
}

std::string OneLine(const std::string& text) {
    std::string line = text;
    std::replace_if(
        line.begin(), line.end(), [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; }, '?');
    return line;
}

}  // namespace

LoadResult LoadManifests(const std::string& path, const std::map<std::string, std::string>& matchData,
                         size_t mebibytes) {
    LoadResult result;
    std::vector<ManifestEntry> entries;
    for (const std::string& file : FilesUnder(path, mebibytes, result.errors)) {
        ReadManifestFile(file, matchData, result, entries);
    }
    KeepFirstOfName(entries, result.warnings);
    RemoveCycles(entries, result.errors);
    WarnOfAutoBootTemplates(entries, result.warnings);
    WarnOfDependencies(entries, result.warnings);
    for (ManifestEntry& entry : entries) {
        result.manifests.emplace_back(std::move(entry.attributes));
    }
    return result;
}

std::string FormatError(const ManifestError& error) {
    std::string text = OneLine(error.file) + ":";
    if (error.line > 0) {
        text += std::to_string(error.line) + ":" + std::to_string(error.column) + ":";
    }
    if (!error.key.empty()) {
        text += " key " + Quote(error.key) + ":";
    }
    return text + " " + OneLine(error.text);
}

std::string TemplateOf(const std::string& name) {
    const size_t at = name.find('@');
    return at == std::string::npos || !CheckDependencyName(name).empty() ? "" : name.substr(0, at);
}

bool IsInstanceOf(const std::string& templateName, const std::string& name) {
    return !templateName.empty() && TemplateOf(name) == templateName;
}

std::string SharedObjectFile(const ApplicationManifest& manifest) {
    const std::string path = manifest.GetSoPath();
    const std::string name = manifest.GetSoName();
    const bool needsSlash = !path.empty() && !name.empty() && path.back() != '/';
    return path + (needsSlash ? "/" : "") + name;
}

}  // namespace ProcMgr
