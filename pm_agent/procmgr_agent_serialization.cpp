#include "pm_agent/procmgr_agent_serialization.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "common/field_reader.h"
#include "common/field_writer.h"
#include "common/grp_owner_log.h"
#include "platform/include/bounded_copy.h"

namespace ProcMgr::Serialization {
namespace {

constexpr GrpOwnerLogLevel kError = GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR;

// A state report of this many entries is refused.
constexpr uint32_t kAppListSizeLimit = 2000;

void AddDynamicPara(FieldWriter& writer, const Message::DynamicPara& dynamicPara) {
    writer.AddNumber(dynamicPara.size());
    for (const auto& [index, values] : dynamicPara) {
        writer.AddNumber(index).AddNumber(values.size());
        for (const std::string& value : values) {
            writer.AddText(value);
        }
    }
}

// A start and a restart have the same fields.
template <typename Info>
std::string StartText(const Info& info) {
    FieldWriter writer;
    writer.AddText(info.appName).AddNumber(info.argv.size());
    for (const std::string& argument : info.argv) {
        writer.AddText(argument);
    }
    AddDynamicPara(writer, info.dynamicPara);
    return writer.TakeText();
}

// False when the text is too long for an entry.
bool AddEntry(std::string text, PackedRequests& packed) {
    if (text.size() >= Message::kPmEntryMax) {
        return false;
    }
    const auto length = static_cast<uint32_t>(text.size());
    packed.emplace_back(length, std::move(text));
    return true;
}

template <typename Info>
bool PackEach(const std::vector<Info>& infos, std::string (*toText)(const Info&),
              void (*logFailure)(const std::string& appName, unsigned long size), PackedRequests& packed) {
    packed.reserve(infos.size());
    for (const Info& info : infos) {
        std::string text = toText(info);
        const size_t size = text.size();
        if (!AddEntry(std::move(text), packed)) {
            logFailure(info.appName, static_cast<unsigned long>(size));
            return false;
        }
    }
    return true;
}

std::string TermText(const Message::TermAppInfo& info) {
    return FieldWriter().AddText(info.appName).TakeText();
}

}  // namespace

// The odd spellings and blanks of the failure texts are part of them.

bool ProcMgrPackStartRequest(const std::vector<Message::StartAppInfo>& apps, PackedRequests& packed) {
    return PackEach<Message::StartAppInfo>(
        apps, StartText<Message::StartAppInfo>,
        [](const std::string& appName, unsigned long size) {
            GRP_OWNER_LOG(kError,
                          "ProcMgrAgent: PackStartRequest failed app=%s, size=%lu bytes beyone the PM_PIPE_BUF_MAX!!",
                          appName.c_str(), size);
        },
        packed);
}

bool ProcMgrPackRestartRequest(const std::vector<Message::RestartAppInfo>& apps, PackedRequests& packed) {
    return PackEach<Message::RestartAppInfo>(
        apps, StartText<Message::RestartAppInfo>,
        [](const std::string& appName, unsigned long size) {
            GRP_OWNER_LOG(kError,
                          "ProcMgrAgent PackRestartRequest failed app=%s, size=%lu bytes beyone PM_PIPE_BUF_MAX!!",
                          appName.c_str(), size);
        },
        packed);
}

bool ProcMgrPackTermRequest(const std::vector<Message::TermAppInfo>& apps, PackedRequests& packed) {
    return PackEach<Message::TermAppInfo>(
        apps, TermText,
        [](const std::string& appName, unsigned long size) {
            GRP_OWNER_LOG(kError,
                          "ProcMgrAgent : PackTermRequest failed app=%s, size=%lu bytes beyone the PM_PIPE_BUF_MAX!!",
                          appName.c_str(), size);
        },
        packed);
}

bool ProcMgrPackAppExecInfoRequest(const Message::AppExecInfo& info, PackedRequests& packed) {
    FieldWriter writer;
    writer.AddText(info.appName).AddNumber(info.execState).AddNumber(info.value1).AddNumber(info.value2);
    if (!AddEntry(writer.TakeText(), packed)) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : PackExecStateRequest failed: beyone the PM_PIPE_BUF_MAX!!");
        return false;
    }
    return true;
}

bool ProcMgrPackBaseServiceStateRequest(Message::BaseServiceStateInfo info, PackedRequests& packed) {
    FieldWriter writer;
    writer.AddNumber(info.state);
    if (!AddEntry(writer.TakeText(), packed)) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : PackBaseServiceStateRequest failed: beyone the PM_PIPE_BUF_MAX!!");
        return false;
    }
    return true;
}

bool ProcMgrPackMatchDataAndPathRequest(const Message::StartupCfgInfo& info, PackedRequests& packed) {
    FieldWriter writer;
    writer.AddText(info.procName).AddNumber(info.matchDataToPath.size());
    for (const auto& [key, value] : info.matchDataToPath) {
        writer.AddText(key).AddText(value);
    }
    if (!AddEntry(writer.TakeText(), packed)) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : PackMatchDataAndPathRequest failed: beyone the PM_PIPE_BUF_MAX!!");
        return false;
    }
    return true;
}

void PackDynamicPara(std::ostream& out, const Message::DynamicPara& dynamicPara) {
    // Numbers as text, because a stream would group their digits where its locale says so.
    FieldWriter writer;
    AddDynamicPara(writer, dynamicPara);
    out << writer.Text();
}

std::vector<uint32_t> CalculateWindows(const PackedRequests& packed) {
    std::vector<uint32_t> windows;
    size_t sum = 0;
    uint32_t count = 0;
    for (const PackedRequest& entry : packed) {
        const uint32_t length = entry.first;
        if (length >= Message::kPmPieceMax) {
            GRP_OWNER_LOG(kError, "packedRequest=%u bytes beyond the PM_PIPE_BUF_MAX!", length);
            break;
        }
        if (sum + length >= Message::kPmPieceMax) {
            windows.push_back(count);
            sum = 0;
            count = 0;
        }
        sum += length;
        ++count;
    }
    if (count != 0) {
        windows.push_back(count);
    }
    return windows;
}

bool ProcMgrCombinePiecesMsg(Message::RequestType type, PackedRequests& packed,
                             std::vector<Message::RequestMsg>& messages) {
    if (packed.empty()) {
        GRP_OWNER_LOG(kError, "CombinePiecesMsg failed: packedRequest is empty!!");
        return false;
    }
    std::sort(packed.begin(), packed.end());
    size_t next = 0;
    for (const uint32_t count : CalculateWindows(packed)) {
        std::string text;
        for (const size_t end = next + count; next < end; ++next) {
            text += packed[next].second;
        }
        ProcMgrCombineMsg(type, count, text, messages);
    }
    return true;
}

void ProcMgrCombineMsg(Message::RequestType type, uint32_t count, const std::string& text,
                       std::vector<Message::RequestMsg>& messages) {
    const std::string piece = FieldWriter().AddNumber(count).TakeText() + text;
    Message::RequestMsg& message = messages.emplace_back();
    message.type = static_cast<uint32_t>(type);
    message.size = piece.size();
    const int ret = memcpy_s(message.data, sizeof(message.data), piece.data(), piece.size());
    if (ret != 0) {
        GRP_OWNER_LOG(kError, "ProcMgrCombineMsg failed memcpy_s failed: strSize=%lu bytes, ret=%d",
                      static_cast<unsigned long>(piece.size()), ret);
    }
}

bool ProcMgrUnpackedAppStateRequest(const Message::RequestMsg& message, std::vector<Message::AppStateInfo>& states) {
    states.clear();
    TolerantFieldReader reader(std::string_view(message.data, Message::PayloadSize(message)));
    const uint32_t count = reader.ReadNumber();
    if (count >= kAppListSizeLimit) {
        GRP_OWNER_LOG(kError, "ProcMgr : ProcMgrMaster UnpackedAppStateRequest err: big AppListSize=%u", count);
        return false;
    }
    states.resize(count);
    for (Message::AppStateInfo& state : states) {
        state.appName = reader.ReadText();
        state.pid = reader.ReadNumber();
        state.value1 = reader.ReadNumber();
        state.appState = reader.ReadNumber();
        state.reason = reader.ReadNumber();
    }
    return true;
}

}  // namespace ProcMgr::Serialization
