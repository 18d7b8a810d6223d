// The text of a verify request.
#include "fuzz/fuzz_input.h"
#include "ss_server/ss_to_owner_serialization.h"

using namespace ProcMgr;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Fuzz::SealedRecord request(&SsToOwnerRequestMsg::payload, data, size);
    std::map<std::string, unsigned int> apps{{"#old", 1}};
    if (SS::UnPackVerifyRequest(request.Get(), apps)) {
        Fuzz::Require(size <= kSsPayloadMax && apps.size() <= SS::kMaxApps && apps.count("#old") == 0);
    }
    return 0;
}
