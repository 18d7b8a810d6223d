#include "pm_agent/query_state_message.h"

#include "common/binary_reader.h"
#include "common/binary_writer.h"

namespace ProcMgr {

bool WriteStateQuery(const std::vector<std::string>& names, Message::RequestMsg& message) {
    message = {};
    message.type = static_cast<uint32_t>(Message::RequestType::QUERY_APP_STATE);
    BinaryWriter writer(message.data, sizeof(message.data));
    writer.AddU32(static_cast<uint32_t>(names.size()));
    for (const std::string& name : names) {
        writer.AddSizedText(name);
    }
    message.size = writer.Size();
    return !writer.HasFailed();
}

std::map<std::string, unsigned int> ReadStateAnswer(const Message::RequestMsg& message) {
    std::map<std::string, unsigned int> states;
    BinaryReader reader(message.data, Message::PayloadSize(message));
    // Each turn takes bytes or fails, so a false count can't keep the loop going.
    for (uint32_t left = reader.ReadU32(); left != 0; --left) {
        const std::string name = reader.ReadSizedText();
        const uint32_t state = reader.ReadU32();
        if (reader.HasFailed()) {
            break;
        }
        states[name] = state;
    }
    return states;
}

}  // namespace ProcMgr
