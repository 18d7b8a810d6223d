// One packet of the resource bus.
#include "platform/posix/vek/bus_frame.h"
#include "fuzz/fuzz_input.h"

using namespace ProcMgr;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr uint32_t kUntouched = 0x5aa5;
    VekFrameHead head = {kUntouched, kUntouched, kUntouched, 0};
    if (DecodeBusFrame(data, size, head) != nullptr) {
        Fuzz::Require(head.op == kUntouched && head.cmd == kUntouched && head.size == kUntouched);
        return 0;
    }
    Fuzz::Require(head.size + VEK_FRAME_HEAD_SIZE == size && std::memcmp(&head, data, sizeof(head)) == 0);
    return 0;
}
