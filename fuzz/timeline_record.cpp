// A file of the record of starts, as the command line reads it.
#include "fuzz/fuzz_input.h"
#include "platform/posix/timeline/timeline_event.h"

using Fuzz::Require;
using namespace ProcMgr::Timeline;

namespace {

constexpr uint64_t kMostNumber = uint64_t{1} << 53U;

std::string Write(const RecordPart& part) {
    std::string text = WriteHeader(part.bootId);
    for (const Event& event : part.events) {
        text += WriteEvent(event);
    }
    return text;
}

void CheckOrder(const RecordPart& part) {
    uint64_t serial = 0;
    int64_t time = 0;
    for (const Event& event : part.events) {
        Require(event.serial > serial && event.serial <= kMostNumber && event.monotonicUs >= time && event.wallUs >= 0);
        Require(event.pid <= kMostNumber && event.request <= kMostNumber && event.detail <= kMostNumber);
        serial = event.serial;
        time = event.monotonicUs;
    }
    Require(serial <= part.lastSerial && time <= part.lastMonotonicUs);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text = Fuzz::Text(data, size);
    RecordPart part;
    RecordFault fault;
    if (!ReadPart(text, part, fault)) {
        Require(fault.line > 0 && !fault.text.empty() && part.events.empty() && part.bootId.empty());
        return 0;
    }
    CheckOrder(part);
    Require(part.isTorn == (text.back() != '\n'));
    // What was read reads the same when it is written again.
    RecordPart again;
    Require(ReadPart(Write(part), again, fault) && !again.isTorn);
    Require(again.events.size() == part.events.size() && Write(again) == Write(part));
    return 0;
}
