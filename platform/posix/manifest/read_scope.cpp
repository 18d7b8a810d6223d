#include "platform/posix/manifest/read_scope.h"

#include "platform/posix/manifest/manifest_text.h"

namespace ProcMgr {
namespace {

constexpr size_t kMaxErrorsOfFile = 100;

// A short file can name long replacement data very often.
constexpr size_t kMaxReplacedBytes = size_t{1024} * 1024;

}  // namespace

ManifestError ErrorOf(const std::string& file, const YamlProblem& problem) {
    const ManifestFault fault = problem.line == 0 ? ManifestFault::UNREADABLE : ManifestFault::SYNTAX;
    return {file, problem.line, problem.column, "", problem.text, fault};
}

void ReadScope::Report(const YamlNode& node, const std::string& key, const std::string& text) {
    ++errorCount_;
    if (errorCount_ <= kMaxErrorsOfFile) {
        errors_.push_back({file_, node.line, node.column, key, text});
    } else if (errorCount_ == kMaxErrorsOfFile + 1) {
        errors_.push_back({file_, 0, 0, "", "holds more than 100 errors; the others are not listed"});
    }
}

bool ReadScope::ListsMore() const {
    return errorCount_ < kMaxErrorsOfFile;
}

std::string ReadScope::TextOf(const YamlNode& node, std::string& text) {
    std::string replaced;
    std::string problem = ReplaceKeys(node.text, matchData_, replaced);
    if (!problem.empty()) {
        return problem;
    }
    if (replaced != node.text) {
        replacedBytes_ += replaced.size();
    }
    if (replacedBytes_ > kMaxReplacedBytes) {
        return "the replacement data make this file longer than 1 MiB; split the file or shorten the data";
    }
    if (replaced.find('\0') != std::string::npos) {
        return "the text holds a zero byte; remove it";
    }
    text = std::move(replaced);
    return "";
}

}  // namespace ProcMgr
