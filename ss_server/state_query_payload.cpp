#include "ss_server/state_query_payload.h"

#include <utility>

#include "common/binary_reader.h"
#include "common/binary_writer.h"

namespace ProcMgr::SS {

namespace {

/// The result and the count in front of the entries.
constexpr size_t kAnswerHead = 5;

bool AddEntry(BinaryWriter& writer, const AppStatus& status) {
    return !writer.AddSizedText(status.appName).AddI32(status.pid).AddI32(status.state).HasFailed();
}

}  // namespace

bool ReadStateQuery(const SsToOwnerRequestMsg& request, std::vector<std::string>& names) {
    names.clear();
    if (request.size > kSsPayloadMax) {
        return false;
    }
    BinaryReader reader(request.payload, static_cast<size_t>(request.size));
    const uint32_t count = reader.ReadU32();
    if (reader.HasFailed() || count > reader.Left()) {
        return false;
    }
    for (uint32_t i = 0; i < count && !reader.HasFailed(); ++i) {
        names.push_back(reader.ReadSizedText());
    }
    return !reader.HasFailed();
}

bool WriteStateAnswer(bool ok, const std::vector<AppStatus>& states, SsToOwnerResponseMsg& response) {
    BinaryWriter entries(response.payload + kAnswerHead, kSsPayloadMax - kAnswerHead);
    uint32_t count = 0;
    size_t size = 0;
    for (const AppStatus& status : states) {
        if (!AddEntry(entries, status)) {
            break;
        }
        ++count;
        size = entries.Size();
    }
    BinaryWriter head(response.payload, kAnswerHead);
    if (head.AddU8(ok ? 1 : 0).AddU32(count).HasFailed()) {
        return false;
    }
    response.len = static_cast<uint32_t>(kAnswerHead + size);
    return count == states.size();
}

}  // namespace ProcMgr::SS
