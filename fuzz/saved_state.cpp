// The file in which the process manager finds what an earlier one left: as it is, and each of its lines with a checksum
// that is right, behind a header that is right.
#include "daemons/procmgrd/launch/state_text.h"

#include <sstream>

#include "fuzz/fuzz_input.h"

using namespace ProcMgr;
using Fuzz::Require;

namespace {

using Records = std::map<ProcessId, StateRecord>;

const std::string kBoot = "boot";

bool IsSame(const Records& left, const Records& right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), [](const auto& one, const auto& other) {
        return one.first == other.first && one.second.process == other.second.process &&
               one.second.appName == other.second.appName && one.second.owner == other.second.owner;
    });
}

/// What was read reads the same when it is written again, and is gone when each has ended.
void Check(const Records& records) {
    std::string text = StateHeader(kBoot);
    for (const auto& [process, record] : records) {
        Require(process.pid > 1 && process == record.process);
        text += StartLine(record);
    }
    Require(IsSame(ReadStateText(text, kBoot), records));
    Require(ReadStateText(text, "another boot").empty());
    for (const auto& [process, record] : records) {
        text += EndLine(process);
    }
    Require(ReadStateText(text, kBoot).empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string content = Fuzz::Text(data, size);
    Check(ReadStateText(content, kBoot));
    std::string sealed = StateHeader(kBoot);
    std::istringstream lines(content);
    for (std::string line; std::getline(lines, line);) {
        sealed += SealLine(line);
    }
    Check(ReadStateText(sealed, kBoot));
    return 0;
}
