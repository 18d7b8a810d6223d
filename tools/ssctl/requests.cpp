#include "tools/ssctl/requests.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "common/field_writer.h"
#include "ss_server/ss_to_owner_serialization.h"

namespace Ssctl {

namespace {

using ProcMgr::AppInfo;
using ProcMgr::FieldWriter;
using ProcMgr::kSsPayloadMax;
using Texts = std::vector<std::string>;

/// Bytes of a state answer in front of its entries, and of an entry besides its name.
constexpr size_t kStateAnswerHead = 5;
constexpr size_t kStateAnswerEntry = 12;

Problem TooMany(const std::string& what, size_t count, size_t limit) {
    return {what + " are " + std::to_string(count) + "; a request takes at most " + std::to_string(limit)};
}

Checked<std::string> CheckSize(std::string payload) {
    if (payload.size() > kSsPayloadMax) {
        return Problem{"the request has " + std::to_string(payload.size()) + " bytes; at most " +
                       std::to_string(kSsPayloadMax) + " can be sent, so split it into several"};
    }
    return payload;
}

/// What keeps the application from being sent, or nothing.
std::string FindFault(const AppInfo& app) {
    if (app.argv.size() > ProcMgr::SS::kMaxArgs) {
        return TooMany("the arguments of '" + app.name + "'", app.argv.size(), ProcMgr::SS::kMaxArgs).text;
    }
    if (app.dynamicPara.size() > ProcMgr::SS::kMaxDynamicGroups) {
        return TooMany("the dynamic parameters of '" + app.name + "'", app.dynamicPara.size(),
                       ProcMgr::SS::kMaxDynamicGroups)
            .text;
    }
    for (const auto& [index, values] : app.dynamicPara) {
        if (index > ProcMgr::SS::kMaxDynamicIndex) {
            return "the dynamic parameter " + std::to_string(index) + " of '" + app.name + "' is above the last, " +
                   std::to_string(ProcMgr::SS::kMaxDynamicIndex);
        }
        if (values.size() > ProcMgr::SS::kMaxValues) {
            return TooMany("the values of a dynamic parameter of '" + app.name + "'", values.size(),
                           ProcMgr::SS::kMaxValues)
                .text;
        }
    }
    return {};
}

void AddTexts(const Texts& texts, FieldWriter& writer) {
    writer.AddNumber(texts.size());
    for (const std::string& text : texts) {
        writer.AddText(text);
    }
}

void AddApp(const AppInfo& app, FieldWriter& writer) {
    writer.AddText(app.name).AddNumber(app.optionType);
    AddTexts(app.argv, writer);
    writer.AddNumber(app.dynamicPara.size());
    for (const auto& [index, values] : app.dynamicPara) {
        writer.AddNumber(index);
        AddTexts(values, writer);
    }
}

std::string Number(uint32_t number) {
    return std::string(reinterpret_cast<const char*>(&number), sizeof(number));
}

std::string WriteStateQuery(const Texts& names) {
    std::string payload = Number(static_cast<uint32_t>(names.size()));
    for (const std::string& name : names) {
        payload += Number(static_cast<uint32_t>(name.size())) + name;
    }
    return payload;
}

}  // namespace

Checked<std::string> WriteChange(const std::vector<AppInfo>& apps) {
    if (apps.size() > ProcMgr::SS::kMaxApps) {
        return TooMany("the applications", apps.size(), ProcMgr::SS::kMaxApps);
    }
    FieldWriter writer;
    writer.AddNumber(apps.size());
    for (const AppInfo& app : apps) {
        const std::string fault = FindFault(app);
        if (!fault.empty()) {
            return Problem{fault};
        }
        AddApp(app, writer);
    }
    return CheckSize(writer.TakeText());
}

Checked<std::string> WriteVerification(const std::map<std::string, uint32_t>& apps) {
    if (apps.size() > ProcMgr::SS::kMaxApps) {
        return TooMany("the applications", apps.size(), ProcMgr::SS::kMaxApps);
    }
    FieldWriter writer;
    writer.AddNumber(apps.size());
    for (const auto& [name, value] : apps) {
        writer.AddText(name).AddNumber(value);
    }
    return CheckSize(writer.TakeText());
}

std::string WriteSystemState(int state) {
    return FieldWriter().AddNumber(state).TakeText();
}

Checked<std::vector<StateBatch>> WriteStateQueries(const Texts& names) {
    std::vector<StateBatch> batches;
    size_t answerSize = kSsPayloadMax;
    for (const std::string& name : names) {
        const size_t entrySize = kStateAnswerEntry + name.size();
        if (kStateAnswerHead + entrySize > kSsPayloadMax) {
            return Problem{"a name of " + std::to_string(name.size()) + " bytes is too long for a state query"};
        }
        if (answerSize + entrySize > kSsPayloadMax) {
            batches.emplace_back();
            answerSize = kStateAnswerHead;
        }
        batches.back().names.push_back(name);
        answerSize += entrySize;
    }
    for (StateBatch& batch : batches) {
        batch.payload = WriteStateQuery(batch.names);
    }
    return batches;
}

ProcMgr::SsToOwnerRequestMsg MakeRecord(const Request& request) {
    ProcMgr::SsToOwnerRequestMsg record{};
    record.size = std::min(request.payload.size(), kSsPayloadMax);
    record.timeout = request.timeoutMs;
    std::memcpy(record.payload, request.payload.data(), static_cast<size_t>(record.size));
    return record;
}

}  // namespace Ssctl
