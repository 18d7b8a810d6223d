/// What the reading of one file shares: where errors go, and the replacement data.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_READ_SCOPE_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_READ_SCOPE_H

#include <map>
#include <string>
#include <vector>

#include "platform/posix/manifest/manifest_error.h"
#include "platform/posix/manifest/yaml_node.h"

namespace ProcMgr {

/// What kept a file from being read at all.
[[nodiscard]] ManifestError ErrorOf(const std::string& file, const YamlProblem& problem);

class ReadScope {
public:
    /// All three must outlive the scope.
    ReadScope(const std::string& file, const std::map<std::string, std::string>& matchData,
              std::vector<ManifestError>& errors)
        : file_(file), matchData_(matchData), errors_(errors) {}

    /// Adds an error at the place of `node`. After the hundredth of a file the rest is only counted.
    void Report(const YamlNode& node, const std::string& key, const std::string& text);

    /// False when the next error would only be counted: its text is not worth much work then.
    bool ListsMore() const;

    /// The number of errors reported so far, those left out too.
    size_t ErrorCount() const { return errorCount_; }

    /// The text of a TEXT node after replacement. Returns what is wrong and what to do, or the empty string.
    [[nodiscard]] std::string TextOf(const YamlNode& node, std::string& text);

    const std::string& File() const { return file_; }

private:
    const std::string& file_;
    const std::map<std::string, std::string>& matchData_;
    std::vector<ManifestError>& errors_;
    size_t errorCount_ = 0;
    size_t replacedBytes_ = 0;
};

}  // namespace ProcMgr

#endif
