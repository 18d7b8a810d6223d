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

}  // namespace

std::optional<Options> ReadOptions(int argc, char** argv, int& exitCode) {
    Options options;
    std::string onOwnerExit = "keep";
    CLI::App app{
        "The process manager: starts, restarts and ends the applications of group owners and tells them what "
        "became of each."};
    try {
        Describe(app, options);
        app.add_option("--on-owner-exit", onOwnerExit,
                       "What happens to the applications of an owner that goes away: keep them running until it "
                       "returns, or terminate them")
            ->capture_default_str()
            ->check(CLI::IsMember({"keep", "terminate"}));
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        exitCode = app.exit(error) == 0 ? 0 : 2;
        return std::nullopt;
    }
    options.isTerminatingOnOwnerExit = onOwnerExit == "terminate";
    return options;
}

}  // namespace Procmgrd
