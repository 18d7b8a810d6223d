/// What the command line and the environment ask for, before anything is done about it.
#ifndef SSCTL_COMMAND_LINE_H
#define SSCTL_COMMAND_LINE_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/ssctl/words.h"

namespace Ssctl {

struct CommandLine {
    std::string command;   ///< "list", "state", ...
    std::string resource;  ///< of the group owner
    std::string runDir;    ///< empty: the client library knows
    std::string queue;     ///< of its events; empty: the usual one
    bool json = false;
    bool namesOnly = false;

    uint32_t timeoutMs = 5000;       ///< what the owner may take
    std::optional<uint32_t> waitMs;  ///< what the answer may take; by default what WaitMs says

    std::vector<std::string> names;
    std::vector<std::string> verified;  ///< "NAME=VALUE"
    std::string systemState;
    ChangeWords change;

    std::string record;          ///< of starts, a file or a folder; empty: the run directory's
    std::string owner;           ///< of the record; empty: the only one
    std::string since = "boot";  ///< or "last"
    std::string svgFile;         ///< to write; may be empty, as may be the next
    std::string traceFile;

    std::optional<uint32_t> eventCount;
    std::optional<uint32_t> eventTimeoutMs;

    std::string path;                 ///< of manifests
    std::optional<std::string> root;  ///< where "check" looks for programs
    std::string dotFile;              ///< of "graph"; empty: none
    bool wantsStates = false;         ///< of "graph"
};

/// How long the answer may take, in ms: longer than the owner itself may take, so that its answer is in time.
[[nodiscard]] uint32_t WaitMs(const CommandLine& line);

/// The run directory for people.
[[nodiscard]] std::string RunDirName(const CommandLine& line);

/// The event queue's name when none is given.
[[nodiscard]] std::string QueueName(const CommandLine& line);

/// What to do after parsing: run, or end with `exitCode` (help was printed, or the command line is wrong).
struct ParsedCommandLine {
    CommandLine line;
    bool run = false;
    int exitCode = 0;
};

/// Prints help to the standard output and complaints to the standard error.
[[nodiscard]] ParsedCommandLine ParseCommandLine(int argc, const char* const* argv);

}  // namespace Ssctl

#endif
