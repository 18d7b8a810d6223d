// One packet of the pipe, read as each kind of frame that there is.
#include "fuzz/fuzz_input.h"
#include "platform/posix/tunor/tunor_frame.h"

using namespace ProcMgr;

namespace {

void ReadPayload(const char* payload, size_t size) {
    const std::string text(payload, size);
    AppReport report;
    if (DecodeAppReport(payload, size, report)) {
        Fuzz::Require(EncodeAppReport(report) == text);
    }
    AppBeat beat;
    if (DecodeAppBeat(payload, size, beat)) {
        Fuzz::Require(EncodeAppBeat(beat) == text);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    ReadPayload(reinterpret_cast<const char*>(data), size);
    FrameView frame;
    if (DecodeFrame(data, size, frame) != nullptr) {
        return 0;
    }
    Fuzz::Require(EncodeFrame(frame.head.kind, frame.head.seq, frame.payload, frame.head.size) ==
                  Fuzz::Text(data, size));
    std::string name;
    Fuzz::Require(!DecodeHello(frame, name) || IsPeerName(name));
    int error = -1;
    Fuzz::Require(DecodeHelloAnswer(frame, error) == (error >= 0));
    ReadPayload(frame.payload, frame.head.size);
    return 0;
}
