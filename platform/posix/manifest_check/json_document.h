/// What the documents for scripts have in common, whichever program prints them.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_CHECK_JSON_DOCUMENT_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_CHECK_JSON_DOCUMENT_H

#include <nlohmann/json.hpp>
#include <string>

namespace ProcMgr {

/// The member "schema" of docs/ssctl.schema.json. Goes up when a document changes so that an old reader would misread
/// it.
constexpr int kDocumentSchema = 1;

/// In one line. A text need not be UTF-8; what is none shows as U+FFFD.
[[nodiscard]] inline std::string InOneLine(const nlohmann::ordered_json& document) {
    return document.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace ProcMgr

#endif
