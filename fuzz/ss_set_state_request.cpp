// The text of a set-state request.
#include "fuzz/fuzz_input.h"
#include "ss_server/ss_to_owner_serialization.h"

using namespace ProcMgr;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Fuzz::SealedRecord request(&SsToOwnerRequestMsg::payload, data, size);
    int state = 9;
    const bool isRead = SS::UnPackSetSystemStateRequest(request.Get(), state);
    Fuzz::Require(isRead ? size <= kSsPayloadMax : state == 0);
    return 0;
}
