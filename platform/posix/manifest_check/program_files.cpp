#include "platform/posix/manifest_check/program_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <system_error>

#include "platform/posix/manifest/manifest_loader.h"
#include "platform/posix/manifest/manifest_text.h"

namespace ProcMgr {
namespace {

constexpr int kMaxLinks = 40;

/// The target of the link `file`, or nothing when it is none.
std::optional<std::string> TargetOf(const std::string& file) {
    std::array<char, PATH_MAX> target{};
    const ssize_t length = readlink(file.c_str(), target.data(), target.size());
    return length <= 0 ? std::nullopt : std::optional(std::string(target.data(), static_cast<size_t>(length)));
}

/// Takes the first part off a path.
std::string TakePart(std::string& rest) {
    const size_t begin = rest.find_first_not_of('/');
    if (begin == std::string::npos) {
        rest.clear();
        return "";
    }
    const size_t end = rest.find('/', begin);
    const std::string part = rest.substr(begin, end - begin);
    rest = end == std::string::npos ? "" : rest.substr(end);
    return part;
}

std::string WhyNoFile(const std::string& root, const std::string& path, bool mustExecute) {
    const std::optional<std::string> file = ResolveUnder(root, path);
    struct stat status {};
    if (!file || stat(file->c_str(), &status) != 0) {
        return "is not there: " + std::generic_category().message(file ? errno : ELOOP);
    }
    if (!S_ISREG(status.st_mode)) {
        return "is no regular file";
    }
    // Who will execute it is not known here.
    const bool canExecute = (status.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) != 0;
    return mustExecute && !canExecute ? "may not be executed by anybody" : "";
}

void Look(const ManifestEntry& entry, const std::string& root, const char* key, const std::string& path,
          std::vector<ManifestError>& found) {
    const bool isObject = std::string(key).rfind("so_", 0) == 0;
    const std::string problem = WhyNoFile(root, path, !isObject);
    if (!problem.empty()) {
        found.push_back(
            ErrorOf(entry, ManifestFault::PROGRAM, entry.PlaceOf(key), key,
                    Quote(path) + " " + problem + "; correct the path or install the file in " + Quote(root)));
    }
}

}  // namespace

std::optional<std::string> ResolveUnder(const std::string& root, const std::string& path) {
    std::string rest = path;
    std::vector<std::string> walked = {root};
    for (int links = 0; !rest.empty();) {
        const std::string part = TakePart(rest);
        if (part.empty() || part == ".") {
            continue;
        }
        if (part == "..") {
            walked.resize(walked.size() > 1 ? walked.size() - 1 : 1);
            continue;
        }
        const std::string file = walked.back() + "/" + part;
        const std::optional<std::string> target = TargetOf(file);
        if (!target) {
            walked.push_back(file);
            continue;
        }
        if (++links > kMaxLinks) {
            return std::nullopt;
        }
        if (target->front() == '/') {
            walked.resize(1);
        }
        rest = *target + "/" + rest;
    }
    return walked.back();
}

void FindMissingPrograms(const ManifestEntry& entry, const std::string& root, std::vector<ManifestError>& found) {
    const ApplicationAttributes& attributes = entry.attributes;
    if (!entry.isGood) {
        return;
    }
    if (!attributes.isSo) {
        Look(entry, root, "bin_path", attributes.binPath, found);
        return;
    }
    if (!attributes.processBindPath.empty()) {
        Look(entry, root, "process_bind_path", attributes.processBindPath, found);
    }
    const std::string object = SharedObjectFile(ApplicationManifest(attributes));
    if (object.find('/') != std::string::npos) {
        Look(entry, root, attributes.soName.empty() ? "so_path" : "so_name", object, found);
    }
}

}  // namespace ProcMgr
