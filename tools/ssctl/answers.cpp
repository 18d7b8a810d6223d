#include "tools/ssctl/answers.h"

#include <cstring>
#include <utility>

#include "common/binary_reader.h"
#include "common/field_reader.h"

namespace Ssctl {

namespace {

using ProcMgr::BinaryReader;
using ProcMgr::FieldReader;
using ProcMgr::kSsPayloadMax;
using ProcMgr::kSsPayloadOffset;
using ProcMgr::kSsResponseHead;

/// Length, pid and state: the least that an entry of a state answer takes.
constexpr size_t kStateEntryMin = 12;

Problem Malformed(const char* what) {
    return {std::string("the answer is no ") + what};
}

bool IsFlag(uint32_t number) {
    return number <= 1;
}

}  // namespace

Checked<std::string> TakePayload(int result, const Record& record) {
    uint32_t length = 0;
    std::memcpy(&length, record.data(), sizeof(length));
    if (length > kSsPayloadMax || result != static_cast<int>(length + kSsResponseHead)) {
        return Problem{"the answer's length does not agree with its result"};
    }
    if (length == 0) {
        return Problem{"the answer is empty; either it did not fit, or the service does not know the request"};
    }
    return std::string(record.data() + kSsPayloadOffset, length);
}

Checked<ChangeAnswer> ReadChange(const std::string& payload) {
    FieldReader reader(payload);
    ChangeAnswer answer;
    const auto parts = reader.ReadNumber<uint32_t>();
    const auto ok = reader.ReadNumber<uint32_t>();
    // Ended by the text's own end at the latest: what is read behind it is a failure.
    for (uint32_t part = 1; part < parts && !reader.HasFailed(); ++part) {
        std::string name = reader.ReadText();
        answer.apps.emplace_back(std::move(name), static_cast<AppChangeState>(reader.ReadNumber<uint32_t>()));
    }
    if (reader.HasFailed() || parts == 0 || !IsFlag(ok) || !reader.Rest().empty()) {
        return Malformed("change result");
    }
    answer.ok = ok == 1;
    return answer;
}

Checked<ListAnswer> ReadList(const std::string& payload) {
    FieldReader reader(payload);
    ListAnswer answer;
    const auto ok = reader.ReadNumber<uint32_t>();
    while (!reader.HasFailed() && !reader.Rest().empty()) {
        answer.names.push_back(reader.ReadText());
    }
    if (reader.HasFailed() || !IsFlag(ok) || (ok == 0 && !answer.names.empty())) {
        return Malformed("list of applications");
    }
    answer.ok = ok == 1;
    return answer;
}

Checked<StateAnswer> ReadState(const std::string& payload) {
    if (payload.empty()) {
        return Malformed("list of states");
    }
    const auto ok = static_cast<unsigned char>(payload.front());
    BinaryReader reader(payload.data() + 1, payload.size() - 1);
    StateAnswer answer;
    const uint32_t count = reader.ReadU32();
    if (reader.HasFailed() || !IsFlag(ok) || count > reader.Left() / kStateEntryMin) {
        return Malformed("list of states");
    }
    for (uint32_t at = 0; at < count; ++at) {
        AppStatus status;
        status.appName = reader.ReadSizedText();
        status.pid = static_cast<int32_t>(reader.ReadU32());
        status.state = static_cast<int32_t>(reader.ReadU32());
        answer.apps.push_back(std::move(status));
    }
    if (reader.HasFailed() || reader.Left() != 0) {
        return Malformed("list of states");
    }
    answer.ok = ok == 1;
    return answer;
}

Checked<bool> ReadFlag(const std::string& payload) {
    if (payload != "0" && payload != "1") {
        return Malformed("result");
    }
    return payload == "1";
}

Checked<bool> ReadFlagField(const std::string& payload) {
    if (payload != "0#" && payload != "1#") {
        return Malformed("result");
    }
    return payload == "1#";
}

Checked<uint32_t> ReadEvent(const std::string& text) {
    FieldReader reader(text);
    const auto state = reader.ReadLastNumber<uint32_t>();
    if (reader.HasFailed() || !reader.Rest().empty() || text.back() == ProcMgr::kFieldEnd) {
        return Problem{"the event is no decimal number"};
    }
    return state;
}

}  // namespace Ssctl
