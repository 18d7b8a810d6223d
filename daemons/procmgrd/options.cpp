#include "daemons/procmgrd/options.h"

#include <CLI/CLI.hpp>

namespace Procmgrd {
namespace {

constexpr uint32_t kMaxStopTimeoutMs = 3600000;

void Describe(CLI::App& app, Options& options) {
    app.set_version_flag("--version", "procmgrd " PROCMGR_VERSION, "Print the version and exit");
    app.add_option("--run-dir", options.runDir, "Folder of the sockets and of the state file")
        ->envname("PROCMGR_RUN_DIR")
        ->capture_default_str()
        ->check([](const std::string& path) {
            return path.empty() || path[0] != '/' ? std::string("must be an absolute path") : std::string();
        });
    app.add_option("--log-dir", options.logDir,
                   "Folder for the output of the applications, one file for each in a folder for each owner; without "
                   "it their lines go to the daemon's own output, after the application's name");
    app.add_option("--rules", options.rulesFile, "File that says which users may connect besides root and our own")
        ->check(CLI::ExistingFile);
    app.add_option("--stop-timeout", options.stopTimeoutMs, "Milliseconds from SIGTERM until what still runs is killed")
        ->capture_default_str()
        ->check(CLI::Range(uint32_t{1}, kMaxStopTimeoutMs));
    app.add_option("--ready-fd", options.readyFd, "Descriptor that gets one byte when the daemon is ready")
        ->check(CLI::NonNegativeNumber);
}

/// What belongs to --check, as it was typed.
struct CheckWords {
    std::string path;
    std::string root;
};

void DescribeCheck(CLI::App& app, CheckWords& words, Options& options) {
    CLI::Option* const check =
        app.add_option("--check", words.path,
                       "Be no daemon: check the manifests under this path, a file or a folder, and print all that is "
                       "wrong with them. Exit code 0 without errors, 1 with errors")
            ->check([](const std::string& path) { return std::string(path.empty() ? "the path is empty" : ""); });
    app.add_option("--root", words.root,
                   "With --check: look whether the programs are there, in this folder as in the root of the target")
        ->check(CLI::ExistingDirectory)
        ->needs(check);
    app.add_flag("--json", options.isCheckDocument, "With --check: print one JSON document in a line instead of text")
        ->needs(check);
}

std::optional<ProcMgr::CheckRequest> RequestOf(const CLI::App& app, const CheckWords& words) {
    if (app.count("--check") == 0) {
        return std::nullopt;
    }
    return ProcMgr::CheckRequest{words.path, app.count("--root") == 0 ? std::nullopt : std::optional(words.root)};
}

}  // namespace

std::optional<Options> ReadOptions(int argc, char** argv, int& exitCode) {
    Options options;
    CheckWords check;
    std::string onOwnerExit = "keep";
    CLI::App app{
        "The process manager: starts, restarts and ends the applications of group owners and tells them what "
        "became of each.",
        "procmgrd"};
    try {
        Describe(app, options);
        app.add_option("--on-owner-exit", onOwnerExit,
                       "What happens to the applications of an owner that goes away: keep them running until it "
                       "returns, or terminate them")
            ->capture_default_str()
            ->check(CLI::IsMember({"keep", "terminate"}));
        DescribeCheck(app, check, options);
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        exitCode = app.exit(error) == 0 ? 0 : 2;
        return std::nullopt;
    }
    options.isTerminatingOnOwnerExit = onOwnerExit == "terminate";
    options.check = RequestOf(app, check);
    return options;
}

}  // namespace Procmgrd
