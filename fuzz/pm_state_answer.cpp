// The bytes of the process manager's answer to a state query.
#include "fuzz/fuzz_input.h"
#include "pm_agent/query_state_message.h"

using namespace ProcMgr;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Fuzz::SealedRecord message(&Message::RequestMsg::data, data, size);
    size_t bytes = 0;
    for (const auto& [name, state] : ReadStateAnswer(message.Get())) {
        bytes += name.size() + 2 * sizeof(state);
    }
    Fuzz::Require(bytes <= Message::PayloadSize(message.Get()));
    return 0;
}
