// A whole request of the process manager as the pipe hands it over: any size, at an odd address.
#include "fuzz/fuzz_input.h"
#include "pm_agent/procmgr_agent_impl.h"

using namespace ProcMgr;

namespace {

bool Register() {
    ProcMgrAgentImpl& agent = ProcMgrAgentImpl::GetThis();
    return agent.RegAppStateChangeCallBackImpl([](const auto& states) { Fuzz::Require(states.size() < 2000); }) &&
           agent.RegQueryAppStateCallBackImpl([](const auto& states) { Fuzz::Require(states.size() < 4000); });
}

/// Every other length is filled up to a whole record, because any other size is refused at once.
std::string RecordOf(const uint8_t* data, size_t size) {
    std::string bytes = Fuzz::Text(data, size);
    if (size % 2 == 0 && size < sizeof(Message::RequestMsg)) {
        bytes.resize(sizeof(Message::RequestMsg));
    }
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool isRegistered = Register();
    Fuzz::Require(isRegistered);
    const std::string bytes = RecordOf(data, size);
    const std::unique_ptr<char[]> shifted(new char[bytes.size() + 1]);
    std::copy(bytes.begin(), bytes.end(), shifted.get() + 1);
    TunorRequest request{shifted.get() + 1, static_cast<uint32_t>(bytes.size())};
    ProcMgrAgentRequstMsgHandler(7, &request);
    return 0;
}
