// A file of the record of starts. What was read, written again, reads the same.
#include "fuzz/fuzz_input.h"
#include "platform/posix/timeline/timeline_event.h"

using namespace ProcMgr::Timeline;

namespace {

std::string Write(const RecordPart& part) {
    std::string text = WriteHeader(part.bootId);
    for (const Event& event : part.events) {
        text += WriteEvent(event);
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    RecordPart part;
    RecordFault fault;
    if (!ReadPart(Fuzz::Text(data, size), part, fault)) {
        Fuzz::Require(fault.line > 0 && !fault.text.empty() && part.events.empty());
        return 0;
    }
    const std::string text = Write(part);
    RecordPart again;
    Fuzz::Require(ReadPart(text, again, fault) && !again.isTorn && Write(again) == text);
    return 0;
}
