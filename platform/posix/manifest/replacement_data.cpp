#include "platform/posix/manifest/replacement_data.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>

#include "platform/posix/manifest/manifest_text.h"
#include "platform/posix/manifest/read_scope.h"
#include "platform/posix/manifest/yaml_node.h"

namespace ProcMgr {
namespace {

std::string FolderOf(const std::string& entryPath) {
    struct stat status {};
    if (stat(entryPath.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
        return entryPath;
    }
    const size_t slash = entryPath.rfind('/');
    return slash == std::string::npos ? "." : entryPath.substr(0, slash + 1);
}

bool IsAbsent(const std::string& file) {
    struct stat status {};
    return stat(file.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR);
}

ManifestError ErrorAt(const std::string& file, const YamlNode& node, const std::string& key, const std::string& text) {
    return {file, node.line, node.column, key, text};
}

std::string CheckPair(const YamlNode& name, const YamlNode& text) {
    if (name.kind != YamlNode::Kind::TEXT || name.text.empty() || name.text.find('}') != std::string::npos) {
        return "wants a name without '}' but found " + Describe(name) + "; correct it";
    }
    if (text.kind != YamlNode::Kind::TEXT) {
        return "wants a text for " + Quote(name.text) + " but found " + Describe(text) + "; write '' for an empty one";
    }
    return text.text.find('\0') == std::string::npos ? "" : "the text holds a zero byte; remove it";
}

void ReadPairs(const std::string& file, const std::string& key, const YamlNode& map,
               std::map<std::string, std::string>& data, std::vector<ManifestError>& errors) {
    for (size_t i = 0; i < map.keys.size(); ++i) {
        const YamlNode& name = map.keys[i];
        const std::string problem = CheckPair(name, map.items[i]);
        if (!problem.empty()) {
            errors.push_back(ErrorAt(file, name, key, problem));
        } else if (!data.emplace(name.text, map.items[i].text).second) {
            errors.push_back(
                ErrorAt(file, name, key, "the name " + Quote(name.text) + " stands twice; remove one of them"));
        }
    }
}

void ReadSections(const std::string& file, const std::string& key, const YamlNode& root,
                  std::map<std::string, std::string>& data, std::vector<ManifestError>& errors) {
    bool isFound = false;
    for (size_t i = 0; i < root.keys.size(); ++i) {
        if (root.keys[i].kind != YamlNode::Kind::TEXT || root.keys[i].text != key) {
            continue;
        }
        if (isFound) {
            errors.push_back(
                ErrorAt(file, root.keys[i], key, "the key stands twice; put all pairs under the first one"));
        } else if (root.items[i].kind != YamlNode::Kind::MAP) {
            errors.push_back(ErrorAt(file, root.items[i], key,
                                     "wants a map of texts but found " + Describe(root.items[i]) + "; write it like '" +
                                         key + ": {ROBOT_DIR: /opt/robot}'"));
        } else {
            ReadPairs(file, key, root.items[i], data, errors);
        }
        isFound = true;
    }
}

}  // namespace

std::string FindReplacementData(const std::string& entryPath) {
    const char* const named = std::getenv("PROCMGR_REPLACE_DATA");
    if (named != nullptr && *named != '\0') {
        return named;
    }
    if (entryPath.empty()) {
        return "";
    }
    const std::string folder = FolderOf(entryPath);
    return (folder.back() == '/' ? folder : folder + "/") + kReplacementDataFile;
}

void LoadReplacementData(const std::string& file, const std::string& key, std::map<std::string, std::string>& data,
                         std::vector<ManifestError>& errors) {
    data.clear();
    if (file.empty() || IsAbsent(file)) {
        return;
    }
    YamlNode root;
    YamlProblem problem;
    if (!ReadYamlFile(file, root, problem)) {
        errors.push_back(ErrorOf(file, problem));
        return;
    }
    if (root.kind != YamlNode::Kind::MAP && root.kind != YamlNode::Kind::NOTHING) {
        errors.push_back(ErrorAt(
            file, root, "",
            "wants a map but found " + Describe(root) + "; write it like '" + key + ": {ROBOT_DIR: /opt/robot}'"));
        return;
    }
    ReadSections(file, key, root, data, errors);
}

}  // namespace ProcMgr
