// A file of replacement data, and texts in which they replace something.
#include "platform/posix/manifest/replacement_data.h"
#include "fuzz/memory_file.h"
#include "platform/posix/manifest/manifest_text.h"

using namespace ProcMgr;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Fuzz::MemoryFile file(data, size);
    std::map<std::string, std::string> pairs{{"old", "x"}};
    std::vector<ManifestError> errors;
    LoadReplacementData(file.Path(), "group", pairs, errors);
    for (const auto& [name, text] : pairs) {
        std::string replaced;
        Fuzz::Require(ReplaceKeys("a${" + name + "}b", pairs, replaced).empty() && replaced == "a" + text + "b");
    }
    std::string replaced;
    const bool isGood = ReplaceKeys(Fuzz::Text(data, size), pairs, replaced).empty();
    Fuzz::Require(isGood || replaced.empty());
    for (const ManifestError& error : errors) {
        Fuzz::Require(FormatError(error).find('\n') == std::string::npos);
    }
    return 0;
}
