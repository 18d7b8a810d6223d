#include "daemons/grpownerd/options.h"

#include <algorithm>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace {

constexpr const char* kDescription =
    "Takes charge of a group of applications: asks the process manager to start them in the order of their "
    "dependencies, follows them and restarts them by their policy.";

constexpr const char* kFooter = R"(environment:
  STARTUP_ENTRY_PATH    manifests, a file or a folder, when --entry-path is not given
  PROCMGR_REPLACE_DATA  replacement data; by default replace.yaml beside STARTUP_ENTRY_PATH
  PROCMGR_RUN_DIR       run directory of the process manager, /run/procmgr by default
  PROCMGR_LOG_LEVEL     debug, info, warn, error, event or off
  PROCMGR_LOG_FILE      file for the log instead of the standard error; with --events only for what comes before
                        the queue

exit codes:
  0  ended on SIGTERM or SIGINT
  1  could not take charge: no process manager, or no valid configuration
  2  wrong command line
  3  the connection to the process manager was lost)";

std::string EnvironmentOr(const char* key, const char* fallback) {
    const char* value = std::getenv(key);
    return value != nullptr && *value != '\0' ? value : fallback;
}

int CheckQueue(const OwnerOptions& options) {
    if (options.events.empty() || options.events != options.resource) {
        return 0;
    }
    static_cast<void>(std::fputs("grpownerd: --events needs another name than --resource\n", stderr));
    return 2;
}

int CheckName(const OwnerOptions& options) {
    const auto isBad = [](unsigned char byte) { return byte < 0x20 || byte == 0x7f || byte == '/'; };
    const bool hasBad = std::any_of(options.name.begin(), options.name.end(), isBad);
    if (!options.name.empty() && options.name.size() <= 128 && !hasBad) {
        return 0;
    }
    static_cast<void>(std::fputs(
        "grpownerd: the name must have 1 to 128 bytes, no '/' and no control character; see --name\n", stderr));
    return 2;
}

}  // namespace

ParsedOptions ParseOptions(int argc, char** argv) {
    ParsedOptions parsed;
    OwnerOptions& options = parsed.options;
    options.name = EnvironmentOr("PROC_NAME", "grpownerd");
    CLI::App app(kDescription, "grpownerd");
    app.footer(kFooter);
    app.set_version_flag("--version", std::string("grpownerd ") + GRPOWNERD_VERSION);
    app.add_option("--entry-path", options.entryPath,
                   "Manifests, a file or a folder; such a path gets no replacement data");
    app.add_option("--name", options.name, "Name of this owner; by default PROC_NAME, or grpownerd");
    auto* resource =
        app.add_option("--resource", options.resource,
                       "Serve the system-state manager under this resource name; by default nobody is served");
    app.add_option("--events", options.events,
                   "Tell each system state as an event on the queue of this name. From then on every line of the log "
                   "goes to syslog, and to syslog only")
        ->needs(resource);
    app.add_option("--ready-fd", options.readyDescriptor, "Descriptor that gets one byte when the boot is over")
        ->check(CLI::NonNegativeNumber);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        parsed.exitCode = app.exit(error) == 0 ? 0 : 2;
        return parsed;
    }
    if (!options.entryPath.empty()) {
        // The process manager reads the same path from a working directory of its own.
        options.entryPath = std::filesystem::absolute(options.entryPath).string();
    }
    parsed.exitCode = std::max(CheckName(options), CheckQueue(options));
    parsed.run = parsed.exitCode == 0;
    return parsed;
}
