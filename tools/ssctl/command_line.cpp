#include "tools/ssctl/command_line.h"

#include <array>
#include <CLI/CLI.hpp>
#include <cstdio>
#include <limits>
#include <utility>

namespace Ssctl {

namespace {

constexpr uint32_t kWaitMarginMs = 1000;
constexpr uint32_t kStopAllWaitMs = 40000;

/// Below the least the owner would take its own default; above the most the margin would not fit.
constexpr uint32_t kLeastTimeoutMs = 100;
constexpr uint32_t kMostWaitMs = std::numeric_limits<int32_t>::max();
constexpr uint32_t kMostTimeoutMs = kMostWaitMs - kWaitMarginMs;

constexpr const char* kDescription =
    "Drives a group of applications through its group owner: looks at them, starts, stops and restarts them, and tells"
    " the group the state of the system.";

constexpr const char* kFooter = R"(values:
  A list is values between commas; a backslash takes the next character as it
  is: --args 'cam=--size,640\,480'. No text may hold a '#'.

environment:
  PROCMGR_RESOURCE      resource name when --resource is not given
  PROCMGR_EVENTS        event queue when --queue is not given
  PROCMGR_RUN_DIR       run directory when --run-dir is not given
  PROCMGR_REPLACE_DATA  replacement data of check and graph; by default replace.yaml beside the manifests
  NO_COLOR              set to anything: no colour

exit codes:
  0  done
  1  refused, or failed for some application; errors in manifests
  2  wrong command line, or a request that does not fit
  3  no group owner, or it went away
  4  no answer in time

examples:
  ssctl state
  ssctl start lidar nav --args lidar=--rate,20 --timeout 8000
  ssctl change --stop cam --start map,view@left --para view@left:0=front
  ssctl check /etc/robot
  ssctl graph /etc/robot --svg robot.svg
)";

struct Parser {
    explicit Parser(CommandLine& target) : line(target) {
        app.description(kDescription);
        app.set_version_flag("--version", std::string("ssctl ") + SSCTL_VERSION);
        app.require_subcommand(1);
        app.fallthrough();
        app.failure_message([](const CLI::App* /*app*/, const CLI::Error& error) {
            return std::string("ssctl: ") + error.what() + "\n       See 'ssctl --help'.\n";
        });
    }

    CLI::App app{"", "ssctl"};
    CommandLine& line;

    // Lists as they were typed.
    std::vector<std::string> stop;
    std::vector<std::string> start;
    std::vector<std::string> restart;

    uint32_t waitMs = 0;
    uint32_t eventCount = 0;
    uint32_t eventTimeoutMs = 0;
};

/// An option that takes one value each time it is given, so that what follows it stays free for names.
CLI::Option* AddRepeatable(CLI::App& app, const std::string& name, std::vector<std::string>& values,
                           const std::string& help) {
    return app.add_option(name, values, help)->allow_extra_args(false);
}

void AddGlobalOptions(Parser& parser) {
    CLI::App& app = parser.app;
    CommandLine& line = parser.line;
    app.add_option("--resource", line.resource, "Resource name of the group owner")
        ->envname("PROCMGR_RESOURCE")
        ->capture_default_str()
        ->type_name("NAME");
    app.add_option("--run-dir", line.runDir, "Run directory, /run/procmgr by default")
        ->envname("PROCMGR_RUN_DIR")
        ->type_name("PATH");
    app.add_flag("--json", line.json, "Print one JSON document in a line instead of text");
    app.add_option("--wait", parser.waitMs,
                   "Wait so long for the answer; by default the time-out and 1000 ms, with stop-all 40000 ms")
        ->check(CLI::Range(1U, kMostWaitMs))
        ->type_name("MS");
}

void AddTimeout(CLI::App& app, CommandLine& line) {
    app.add_option("--timeout", line.timeoutMs, "What the group owner may take")
        ->check(CLI::Range(kLeastTimeoutMs, kMostTimeoutMs))
        ->capture_default_str()
        ->type_name("MS");
}

void AddStartOptions(CLI::App& app, CommandLine& line) {
    AddRepeatable(app, "--args", line.change.args, "Arguments of an application; may be repeated")
        ->type_name("NAME=VALUE,VALUE");
    AddRepeatable(app, "--para", line.change.paras, "A dynamic parameter, index up to 2; may be repeated")
        ->type_name("NAME:INDEX=VALUE,VALUE");
}

void AddLooks(Parser& parser) {
    CLI::App* list = parser.app.add_subcommand("list", "Names the applications of the group");
    list->add_flag("--names", parser.line.namesOnly, "Nothing but the names, one in a line");
    CLI::App* state = parser.app.add_subcommand("state", "Tells which applications run, of all or of the named ones");
    state->add_option("NAME", parser.line.names, "Applications");
    AddTimeout(*state, parser.line);
}

struct ChangeRow {
    const char* name;
    const char* help;
    std::vector<std::string> ChangeWords::*names;
    bool takesArguments;
};

constexpr std::array<ChangeRow, 3> kChanges = {{
    {"start", "Starts applications in the order of their dependencies", &ChangeWords::start, true},
    {"stop", "Stops applications, or all instances of a template", &ChangeWords::stop, false},
    {"restart", "Restarts applications", &ChangeWords::restart, true},
}};

void AddChanges(Parser& parser) {
    for (const ChangeRow& row : kChanges) {
        CLI::App* command = parser.app.add_subcommand(row.name, row.help);
        command->add_option("NAME", parser.line.change.*row.names, "Applications")->required();
        if (row.takesArguments) {
            AddStartOptions(*command, parser.line);
        }
        AddTimeout(*command, parser.line);
    }
    CLI::App* change = parser.app.add_subcommand("change", "Stops, starts and restarts in one request, in this order");
    AddRepeatable(*change, "--stop", parser.stop, "Applications to stop")->type_name("NAME,NAME");
    AddRepeatable(*change, "--start", parser.start, "Applications to start")->type_name("NAME,NAME");
    AddRepeatable(*change, "--restart", parser.restart, "Applications to restart")->type_name("NAME,NAME");
    AddStartOptions(*change, parser.line);
    AddTimeout(*change, parser.line);
}

void AddRest(Parser& parser) {
    CLI::App* verify = parser.app.add_subcommand(
        "verify", "Tells a fresh owner which applications already run or were terminated before");
    verify->add_option("NAME=VALUE", parser.line.verified, "running, terminated, or a number")->required();
    CLI::App* setState = parser.app.add_subcommand("set-state", "Tells the group the state of the system");
    setState->add_option("STATE", parser.line.systemState, "OFF, WORKING, SUSPEND, UPGRADE, CALIBRATION, or a number")
        ->required();
    AddTimeout(*setState, parser.line);
    parser.app.add_subcommand("reload", "Has the owner read its manifests again");
    parser.app.add_subcommand("dump", "Has the owner write what it knows to its log");
    parser.app.add_subcommand("stop-all", "Stops every application of the group");
}

void AddEvents(Parser& parser) {
    CLI::App* events = parser.app.add_subcommand("events", "Follows the system events of the group owner");
    events->add_option("--queue", parser.line.queue, "Name of the queue; by default the resource name and '_events'")
        ->envname("PROCMGR_EVENTS")
        ->type_name("NAME");
    events->add_option("--count", parser.eventCount, "End after so many events")
        ->check(CLI::Range(1U, std::numeric_limits<uint32_t>::max()))
        ->type_name("N");
    events->add_option("--timeout", parser.eventTimeoutMs, "End after so long; with --count, too few are a failure")
        ->check(CLI::Range(1U, kMostWaitMs))
        ->type_name("MS");
}

void AddTimeline(Parser& parser) {
    CommandLine& line = parser.line;
    CLI::App* timeline = parser.app.add_subcommand(
        "timeline", "Tells what came up when and what it waited for, from the record of procmgrd");
    timeline->add_option("--since", line.since, "The whole boot, or what was started last")
        ->check(CLI::IsMember({"boot", "last"}))
        ->capture_default_str()
        ->type_name("SPAN");
    timeline->add_option("--owner", line.owner, "Name of the group owner, when there are several")->type_name("NAME");
    timeline->add_option("--record", line.record, "The record; by default that of the run directory")
        ->type_name("PATH");
    timeline->add_option("--svg", line.svgFile, "Draw a picture, too")->type_name("FILE");
    timeline->add_option("--trace", line.traceFile, "Write the JSON that trace viewers open, too")->type_name("FILE");
}

/// An empty one is a variable of a script that was not set.
std::string IsPath(const std::string& path) {
    return path.empty() ? "the path is empty" : "";
}

void AddManifests(Parser& parser) {
    CLI::App* check = parser.app.add_subcommand(
        "check", "Checks manifests, a file or a folder, and prints all that is wrong with them; asks no group owner");
    check->add_option("PATH", parser.line.path, "A file or a folder")->required()->check(IsPath);
    check
        ->add_option("--root", parser.line.root,
                     "Look whether the programs are there, in this folder as in the root of the target")
        ->check(CLI::ExistingDirectory)
        ->type_name("DIR");
    CLI::App* graph = parser.app.add_subcommand(
        "graph", "Draws the dependencies of manifests, a file or a folder, in the language of Graphviz");
    graph->add_option("PATH", parser.line.path, "A file or a folder")->required()->check(IsPath);
    graph->add_option("-o,--output", parser.line.dotFile, "Write the text to this file instead of the standard output")
        ->type_name("FILE");
    graph->add_option("--svg", parser.line.svgFile, "Have Graphviz write a picture to this file")->type_name("FILE");
    graph->add_flag("--states", parser.line.wantsStates, "Ask the group owner, and colour what runs");
}

/// Options that are zero were not given: zero is outside their range.
std::optional<uint32_t> Given(uint32_t value) {
    return value == 0 ? std::nullopt : std::optional<uint32_t>(value);
}

/// What is wrong with the lists of "change", or nothing.
std::string SplitChangeLists(Parser& parser) {
    const std::pair<std::vector<std::string>*, std::vector<std::string>*> lists[] = {
        {&parser.stop, &parser.line.change.stop},
        {&parser.start, &parser.line.change.start},
        {&parser.restart, &parser.line.change.restart}};
    for (const auto& [typed, names] : lists) {
        if (typed->empty()) {
            continue;
        }
        auto split = SplitNames(*typed);
        if (!split) {
            return split.What();
        }
        *names = std::move(*split);
    }
    return {};
}

int Finish(Parser& parser) {
    parser.line.command = parser.app.get_subcommands().front()->get_name();
    parser.line.waitMs = Given(parser.waitMs);
    parser.line.eventCount = Given(parser.eventCount);
    parser.line.eventTimeoutMs = Given(parser.eventTimeoutMs);
    const std::string problem = SplitChangeLists(parser);
    if (problem.empty()) {
        return 0;
    }
    static_cast<void>(std::fprintf(stderr, "ssctl: %s.\n       See 'ssctl change --help'.\n", problem.c_str()));
    return 2;
}

}  // namespace

uint32_t WaitMs(const CommandLine& line) {
    const uint32_t usual = line.command == "stop-all" ? kStopAllWaitMs : line.timeoutMs + kWaitMarginMs;
    return line.waitMs.value_or(usual);
}

std::string RunDirName(const CommandLine& line) {
    return line.runDir.empty() ? "/run/procmgr" : line.runDir;
}

std::string QueueName(const CommandLine& line) {
    return line.queue.empty() ? line.resource + "_events" : line.queue;
}

ParsedCommandLine ParseCommandLine(int argc, const char* const* argv) {
    ParsedCommandLine parsed;
    parsed.line.resource = "grp_owner";
    Parser parser(parsed.line);
    AddGlobalOptions(parser);
    AddLooks(parser);
    AddChanges(parser);
    AddRest(parser);
    AddEvents(parser);
    AddTimeline(parser);
    AddManifests(parser);
    // Behind the commands, which would take it over.
    parser.app.footer(kFooter);
    try {
        parser.app.parse(argc, argv);
        parsed.exitCode = Finish(parser);
        parsed.run = parsed.exitCode == 0;
    } catch (const CLI::ParseError& error) {
        parsed.exitCode = parser.app.exit(error) == 0 ? 0 : 2;
    }
    return parsed;
}

}  // namespace Ssctl
