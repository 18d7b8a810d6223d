/// A YAML document as a plain tree in which every value knows where it stands. Files come from outside, so that size,
/// depth and aliases are bounded here and no exception of the YAML library gets out.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_YAML_NODE_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_YAML_NODE_H

#include <string>
#include <vector>

namespace ProcMgr {

inline constexpr size_t kMaxYamlBytes = size_t{1024} * 1024;
inline constexpr size_t kMaxYamlDepth = 16;

struct YamlNode {
    enum class Kind { NOTHING, TEXT, LIST, MAP, ALIAS };

    Kind kind = Kind::NOTHING;
    int line = 0;  ///< counted from 1
    int column = 0;
    std::string text;             ///< of a TEXT
    std::vector<YamlNode> keys;   ///< of a MAP: the keys of `items`, in the order of the file
    std::vector<YamlNode> items;  ///< of a LIST or a MAP
};

struct YamlProblem {
    int line = 0;
    int column = 0;
    std::string text;
};

/// Reads one document. An empty one gives NOTHING. Returns true on success; writes `problem` only otherwise.
/// An alias is kept as a node of its kind: it is never followed.
[[nodiscard]] bool ReadYaml(const std::string& text, YamlNode& root, YamlProblem& problem);

/// Reads a file as ReadYaml does; a problem of the file as a whole has line 0. Waits for nothing: only regular files
/// are read.
[[nodiscard]] bool ReadYamlFile(const std::string& path, YamlNode& root, YamlProblem& problem);

/// "nothing", "the text 'x'", "a list", "a map" or "an alias".
[[nodiscard]] std::string Describe(const YamlNode& node);

}  // namespace ProcMgr

#endif
