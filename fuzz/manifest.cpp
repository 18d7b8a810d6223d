// A file of manifests, with replacement data.
#include "fuzz/memory_file.h"
#include "platform/posix/manifest/manifest_loader.h"
#include "platform/posix/manifest_check/check_report.h"

using namespace ProcMgr;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::map<std::string, std::string> matchData = {
        {"A", "1"}, {"E", ""}, {"T", "true"}, {"S", "a@b"}, {"LONG NAME", std::string(5000, 'x')}};
    const Fuzz::MemoryFile file(data, size);
    const LoadResult result = LoadManifests(file.Path(), matchData);
    for (const ApplicationManifest& manifest : result.manifests) {
        Fuzz::Require(!manifest.GetAppName().empty() &&
                      manifest.GetAppName().find_first_of("#/@") == std::string::npos);
    }
    for (const auto* problems : {&result.errors, &result.warnings}) {
        for (const ManifestError& problem : *problems) {
            Fuzz::Require(!problem.text.empty() && FormatError(problem).find('\n') == std::string::npos);
        }
    }
    const CheckRequest request{file.Path(), std::nullopt};
    const CheckResult check = CheckManifests(request);
    for (const ManifestError& problem : check.found) {
        Fuzz::Require(!problem.text.empty() && FormatError(problem).find('\n') == std::string::npos);
    }
    Fuzz::Require(!TellScripts(request, check).text.empty());
    return 0;
}
