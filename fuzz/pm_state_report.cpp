// The text of the process manager's state report.
#include "fuzz/fuzz_input.h"
#include "pm_agent/procmgr_agent_serialization.h"

using namespace ProcMgr;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Fuzz::SealedRecord message(&Message::RequestMsg::data, data, size);
    std::vector<Message::AppStateInfo> states(3);
    const bool isRead = Serialization::ProcMgrUnpackedAppStateRequest(message.Get(), states);
    Fuzz::Require(isRead ? states.size() < 2000 : states.empty());
    return 0;
}
