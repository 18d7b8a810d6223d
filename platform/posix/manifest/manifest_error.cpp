#include "platform/posix/manifest/manifest_error.h"

#include <algorithm>

#include "platform/posix/manifest/manifest_text.h"

namespace ProcMgr {
namespace {

std::string OneLine(const std::string& text) {
    std::string line = text;
    std::replace_if(
        line.begin(), line.end(), [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; }, '?');
    return line;
}

}  // namespace

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

}  // namespace ProcMgr
