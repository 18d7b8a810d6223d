#include "tools/ssctl/timeline/timeline_command.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "tools/ssctl/timeline/picture.h"
#include "tools/ssctl/timeline/record_files.h"
#include "tools/ssctl/timeline/svg.h"
#include "tools/ssctl/timeline/timeline_report.h"
#include "tools/ssctl/timeline/trace.h"

namespace Ssctl {

namespace {

/// 0, or errno.
int WriteFile(const std::string& path, const std::string& text) {
    std::FILE* const file = std::fopen(path.c_str(), "we");
    if (file == nullptr) {
        return errno;
    }
    const bool isWritten = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    const int error = isWritten ? 0 : errno;
    return std::fclose(file) == 0 ? error : errno;
}

/// Nothing was asked for: no error of a request, and yet there is nothing to show.
Outcome ComplainOfNothing(const std::string& problem) {
    return Complain(Fault::FAILED, problem, "See which starts there were with '--since last', or boot first.");
}

/// A timeline is shown also when it can't be saved.
void Save(const std::string& path, const std::string& text, Outcome& outcome) {
    const int error = WriteFile(path, text);
    if (error != 0) {
        outcome.fault = Fault::FAILED;
        outcome.problem = "can't write " + path + ": " + std::generic_category().message(error);
        outcome.advice = "Choose another file.";
    }
}

}  // namespace

std::string TimelinePath(const CommandLine& line) {
    return line.record.empty() ? RunDirName(line) + "/timeline" : line.record;
}

Outcome RunTimeline(const CommandLine& line) {
    const ReadRecordResult read = ReadTimelineRecord(TimelinePath(line), line.owner);
    if (read.outcome.fault != Fault::NONE) {
        return read.outcome;
    }
    const auto timeline = MakeTimeline(read.record, line.since == "last" ? Span::LAST : Span::BOOT);
    if (!timeline) {
        return ComplainOfNothing(timeline.What());
    }
    Outcome outcome = ReportTimeline(*timeline);
    if (!line.svgFile.empty()) {
        Save(line.svgFile, DrawSvg(LayOut(*timeline)), outcome);
    }
    if (!line.traceFile.empty()) {
        Save(line.traceFile, WriteTrace(*timeline), outcome);
    }
    return outcome;
}

}  // namespace Ssctl
