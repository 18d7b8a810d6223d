// ssctl: the system-state manager on the command line.
#include <chrono>
#include <cstdio>
#include <exception>
#include <string>

#include "platform/posix/manifest_check/check_report.h"
#include "tools/ssctl/command_line.h"
#include "tools/ssctl/commands.h"
#include "tools/ssctl/connection.h"
#include "tools/ssctl/events.h"
#include "tools/ssctl/graph.h"
#include "tools/ssctl/graph_files.h"
#include "tools/ssctl/progress.h"
#include "tools/ssctl/terminal.h"
#include "tools/ssctl/timeline/timeline_command.h"

namespace {

using namespace Ssctl;

/// False when the text can't be written.
bool Print(const std::string& text, std::FILE* stream) {
    return std::fwrite(text.data(), 1, text.size(), stream) == text.size() && std::fflush(stream) == 0;
}

Subject SubjectOf(const CommandLine& line) {
    if (line.command == "timeline") {
        return {line.command, {}, TimelinePath(line)};
    }
    return {line.command, line.command == "events" ? QueueName(line) : line.resource, line.path};
}

/// False when the result can't be written.
bool Show(const CommandLine& line, const Outcome& outcome) {
    const std::string text =
        line.json ? RenderDocument(SubjectOf(line), outcome) : RenderText(outcome, WantsColour(stdout));
    const bool isShown = Print(text, stdout);
    static_cast<void>(Print(RenderComplaint(outcome), stderr));
    return isShown;
}

Outcome Follow(const CommandLine& line) {
    EventQueue queue(line.runDir, QueueName(line), WaitMs(line));
    const Deadline deadline =
        line.eventTimeoutMs
            ? Deadline(std::chrono::steady_clock::now() + std::chrono::milliseconds(*line.eventTimeoutMs))
            : Deadline();
    return FollowEvents(
        line, deadline, [&](const Deadline& until) { return queue.Next(until); },
        [&](const Outcome& event) { return Show(line, event); });
}

Outcome Run(const CommandLine& line) {
    Connection connection(line.runDir, line.resource);
    return RunCommand(line, [&](const Request& request) {
        const Progress progress(DescribeWork(line), request.waitMs);
        return connection.Ask(request);
    });
}

int Check(const CommandLine& line) {
    const ProcMgr::CheckReport report = ProcMgr::RunCheck({line.path, line.root}, line.json);
    return Print(report.text, stdout) ? report.exitCode : static_cast<int>(ExitCode::REFUSED);
}

Outcome Draw(const CommandLine& line) {
    Graph graph = ReadGraph(line.path);
    if (line.wantsStates) {
        CommandLine question = line;
        question.command = "state";
        const Outcome states = Run(question);
        if (states.fault != Fault::NONE) {
            return Complain(states.fault, states.problem, states.advice);
        }
        AddStates(states.members, graph);
    }
    Outcome outcome = ReportGraph(line.path, graph);
    WriteGraphFiles(line.dotFile, line.svgFile, outcome);
    return outcome;
}

Outcome RunCommandOf(const CommandLine& line) {
    if (line.command == "events") {
        return Follow(line);
    }
    return line.command == "graph" ? Draw(line) : Run(line);
}

int RunLine(const CommandLine& line) {
    if (line.command == "check") {
        return Check(line);
    }
    const bool isFollowing = line.command == "events";
    const Outcome outcome = RunCommandOf(line);
    // Each event was shown as it came.
    if (!isFollowing || outcome.fault != Fault::NONE) {
        static_cast<void>(Show(line, outcome));
    }
    const bool isLost = std::ferror(stdout) != 0;
    if (isLost) {
        static_cast<void>(Print("ssctl: the result could not be written to the standard output.\n", stderr));
    }
    return static_cast<int>(isLost && outcome.fault == Fault::NONE ? ExitCode::REFUSED : ExitCodeOf(outcome.fault));
}

}  // namespace

int main(int argc, char** argv) {
    try {
        const ParsedCommandLine parsed = ParseCommandLine(argc, argv);
        return parsed.run ? RunLine(parsed.line) : parsed.exitCode;
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "ssctl: %s.\n", error.what()));
        return static_cast<int>(ExitCode::REFUSED);
    }
}
