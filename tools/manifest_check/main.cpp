// procmgr-manifest-check: reads manifests as the daemons do and prints what is wrong with them.
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "platform/posix/manifest/manifest_loader.h"
#include "platform/posix/manifest/replacement_data.h"

namespace {

enum ExitCode { ALL_GOOD = 0, HAS_ERRORS = 1, WRONG_CALL = 2 };

constexpr const char* kUsage =
    "Usage: procmgr-manifest-check PATH\n"
    "\n"
    "Reads the manifests under PATH, a file or a folder, and prints what is wrong with them, one line each.\n"
    "${KEY} is replaced as for a group owner with STARTUP_ENTRY_PATH=PATH: from the file that the environment\n"
    "variable PROCMGR_REPLACE_DATA names, by default replace.yaml beside the manifests.\n"
    "\n"
    "Exit code: 0 all manifests are good, 1 there are errors, 2 wrong command line.\n";

void Print(const char* kind, const std::vector<ProcMgr::ManifestError>& lines) {
    for (const ProcMgr::ManifestError& line : lines) {
        std::printf("%s: %s\n", kind, ProcMgr::FormatError(line).c_str());
    }
}

int Check(const std::string& path) {
    std::map<std::string, std::string> matchData;
    std::vector<ProcMgr::ManifestError> dataErrors;
    ProcMgr::LoadReplacementData(ProcMgr::FindReplacementData(path), "cfgmgr_env", matchData, dataErrors);
    const ProcMgr::LoadResult result = ProcMgr::LoadManifests(path, matchData);
    Print("error", dataErrors);
    Print("error", result.errors);
    Print("warning", result.warnings);
    const size_t errors = dataErrors.size() + result.errors.size();
    std::printf("%zu good manifests, %zu errors, %zu warnings\n", result.manifests.size(), errors,
                result.warnings.size());
    return errors == 0 ? ALL_GOOD : HAS_ERRORS;
}

}  // namespace

int main(int argc, char** argv) {
    const bool wantsHelp = argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0);
    if (argc != 2 || wantsHelp) {
        static_cast<void>(std::fputs(kUsage, wantsHelp ? stdout : stderr));
        return wantsHelp ? ALL_GOOD : WRONG_CALL;
    }
    return Check(argv[1]);
}
