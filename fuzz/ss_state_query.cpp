// The bytes of a state query, and the answer about all that it names.
#include "fuzz/fuzz_input.h"
#include "ss_server/state_query_payload.h"

using namespace ProcMgr;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Fuzz::SealedRecord request(&SsToOwnerRequestMsg::payload, data, size);
    std::vector<std::string> names{"old"};
    if (!SS::ReadStateQuery(request.Get(), names)) {
        return 0;
    }
    std::vector<AppStatus> states;
    size_t bytes = sizeof(uint32_t);
    for (const std::string& name : names) {
        bytes += sizeof(uint32_t) + name.size();
        states.push_back({name, -1, 1});
    }
    Fuzz::Require(size <= kSsPayloadMax && bytes <= size);
    SsToOwnerResponseMsg response;
    const bool isWhole = SS::WriteStateAnswer(true, states, response);
    const size_t wanted = 1 + bytes + 2 * sizeof(uint32_t) * names.size();
    Fuzz::Require(isWhole == (wanted <= kSsPayloadMax) && response.len <= kSsPayloadMax);
    return 0;
}
