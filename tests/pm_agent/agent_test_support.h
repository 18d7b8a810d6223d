/// What the agent's tests share.
#ifndef PROCMGR_TESTS_PM_AGENT_AGENT_TEST_SUPPORT_H
#define PROCMGR_TESTS_PM_AGENT_AGENT_TEST_SUPPORT_H

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "pm_agent/procmgr_agent.h"
#include "pm_agent/request_msg.h"
#include "tests/fake_platform/fake_platform.h"

namespace ProcMgr {

inline ProcMgrAgent& Agent() {
    return ProcMgrAgent::GetInstance();
}

/// A record as the process manager sends it.
inline Message::RequestMsg Record(uint32_t type, const std::string& payload) {
    Message::RequestMsg message{};
    message.type = type;
    message.size = payload.size();
    memcpy(message.data, payload.data(), payload.size());
    return message;
}

inline std::string Payload(const Message::RequestMsg& message) {
    return std::string(message.data, Message::PayloadSize(message));
}

/// What was sent, as "type:payload".
inline std::vector<std::string> SentTexts() {
    std::vector<std::string> texts;
    for (const FakePipe::Sent& sent : FakePipe::Get().AllSent()) {
        const auto message = sent.As<Message::RequestMsg>();
        texts.push_back(std::to_string(message.type) + ":" + Payload(message));
    }
    return texts;
}

/// The log lines of so far, the boot-trace time stamps replaced by "<time>", because they differ from run to run.
inline std::vector<std::string> LogLines() {
    std::vector<std::string> lines = FakeLog::Get().Lines();
    for (std::string& line : lines) {
        const size_t end = line.find("s][BOOT_TRACE][PM_AGENT]");
        const size_t begin = line.find('[');
        if (end != std::string::npos && begin < end) {
            line.replace(begin, end + strlen("s][BOOT_TRACE][PM_AGENT]") - begin, "<time>");
        }
    }
    return lines;
}

/// The bytes of an unsigned 32-bit number in the order of the wire.
inline std::string U32(uint32_t number) {
    std::string bytes(sizeof(number), '\0');
    memcpy(bytes.data(), &number, sizeof(number));
    return bytes;
}

inline std::string Sized(const std::string& text) {
    return U32(static_cast<uint32_t>(text.size())) + text;
}

}  // namespace ProcMgr

#endif
