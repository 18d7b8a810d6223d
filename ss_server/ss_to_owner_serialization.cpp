#include "ss_server/ss_to_owner_serialization.h"

#include <string_view>

#include "common/enumeration_names.h"
#include "common/field_writer.h"
#include "common/grp_owner_log.h"
#include "platform/include/bounded_copy.h"

namespace ProcMgr::SS {

namespace {

bool HasLegalSize(const SsToOwnerRequestMsg& request) {
    return request.size <= kSsPayloadMax;
}

/// The payload need not hold a terminator. The size must have been checked.
std::string_view PayloadText(const SsToOwnerRequestMsg& request) {
    return {request.payload, static_cast<size_t>(request.size)};
}

/// The name of a number as it came; a negative one has none.
std::string StateName(int state) {
    return GetSysState(static_cast<uint64_t>(static_cast<int64_t>(state)));
}

bool ReadArguments(FieldReader& reader, AppInfo& app) {
    const auto argvSize = reader.ReadNumber<size_t>();
    if (argvSize > kMaxArgs) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "ChangeAppState owner unpack request argvSize=%lu > %lu",
                      static_cast<unsigned long>(argvSize), static_cast<unsigned long>(kMaxArgs));
        return false;
    }
    for (size_t i = 0; i < argvSize && !reader.HasFailed(); ++i) {
        app.argv.push_back(reader.ReadText());
    }
    return !reader.HasFailed();
}

bool ReadApp(FieldReader& reader, AppInfo& app) {
    app.name = reader.ReadText();
    app.optionType = reader.ReadNumber<uint32_t>();
    if (!ReadArguments(reader, app) || !UnPackDynamicPara(reader, app)) {
        return false;
    }
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                  "ChangeAppState owner unpack request name=%s, optionType=%u(%s), argvSize=%zu", app.name.c_str(),
                  app.optionType, GetOptionType(app.optionType).c_str(), app.argv.size());
    return true;
}

bool ReadDynamicGroup(FieldReader& reader, AppInfo& app) {
    const auto index = reader.ReadNumber<int32_t>();
    if (index > kMaxDynamicIndex) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "ChangeAppState unpack request failed, %s dynamicPara index=%d invalid", app.name.c_str(), index);
        return false;
    }
    const auto valueNum = reader.ReadNumber<size_t>();
    if (valueNum > kMaxValues) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "ChangeAppState unpack dynamicPara fail, %s index=%d valueNum=%zu invalid", app.name.c_str(),
                      index, valueNum);
        return false;
    }
    std::vector<std::string>& values = app.dynamicPara[index];
    for (size_t i = 0; i < valueNum && !reader.HasFailed(); ++i) {
        values.push_back(reader.ReadText());
    }
    return !reader.HasFailed();
}

/// Returns memcpy_s's result; the length is set only on success.
int CopyText(const std::string& text, SsToOwnerResponseMsg& response) {
    const int error = memcpy_s(response.payload, kSsPayloadMax, text.data(), text.size());
    if (error == 0) {
        response.len = static_cast<uint32_t>(text.size());
    }
    return error;
}

}  // namespace

bool UnPackChangeAppInfoRequestMsg(const SsToOwnerRequestMsg& request, std::vector<AppInfo>& apps) {
    apps.clear();
    if (!HasLegalSize(request)) {
        return false;
    }
    FieldReader reader(PayloadText(request));
    const auto appSize = reader.ReadNumber<size_t>();
    if (appSize > kMaxApps) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "ChangeAppState owner unpack request appSize=%lu > %lu",
                      static_cast<unsigned long>(appSize), static_cast<unsigned long>(kMaxApps));
        return false;
    }
    apps.resize(appSize);
    for (AppInfo& app : apps) {
        if (!ReadApp(reader, app)) {
            return false;
        }
    }
    return !reader.HasFailed();
}

bool UnPackDynamicPara(FieldReader& reader, AppInfo& app) {
    const auto groups = reader.ReadNumber<size_t>();
    if (groups > kMaxDynamicGroups) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "ChangeAppState unpack request failed, %s dynamicParaSize=%zu invalid", app.name.c_str(), groups);
        return false;
    }
    for (size_t i = 0; i < groups; ++i) {
        if (!ReadDynamicGroup(reader, app)) {
            return false;
        }
    }
    return !reader.HasFailed();
}

bool UnPackVerifyRequest(const SsToOwnerRequestMsg& request, std::map<std::string, unsigned int>& apps) {
    apps.clear();
    if (!HasLegalSize(request)) {
        return false;
    }
    const std::string text(PayloadText(request));
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "UnPackVerifyRequest ssMsgStr=<%s,%zu>", text.c_str(),
                  text.size());
    FieldReader reader(text);
    const auto count = reader.ReadNumber<size_t>();
    if (count > kMaxApps) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "UnPackVerifyRequest appInfo size=%zu > %zu", count,
                      kMaxApps);
        return false;
    }
    for (size_t i = 0; i < count && !reader.HasFailed(); ++i) {
        const std::string name = reader.ReadText();
        apps[name] = reader.ReadNumber<uint32_t>();
    }
    if (reader.HasFailed()) {
        return false;
    }
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "UnPackVerifyRequest appInfo size=%zu", apps.size());
    return true;
}

bool UnPackSetSystemStateRequest(const SsToOwnerRequestMsg& request, int& state) {
    state = 0;
    if (!HasLegalSize(request)) {
        return false;
    }
    const std::string text(PayloadText(request));
    FieldReader reader(text);
    state = reader.ReadLastNumber<int>();
    if (reader.HasFailed()) {
        return false;
    }
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "UnPackSetSystemStateRequest ssMsgStr=%s, state=%d(%s)",
                  text.c_str(), state, StateName(state).c_str());
    return true;
}

bool PackSetSystemStateResponse(bool ok, SsToOwnerResponseMsg& response) {
    const std::string text = FieldWriter().AddNumber(ok ? 1 : 0).Text();
    if (CopyText(text, response) != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "PackSetSystemStateResponse failed respStr=%s respStrSize=%zu", text.c_str(), text.size());
        return false;
    }
    return true;
}

bool PackChangeAppInfoResponse(bool ok, const std::vector<AppChangeInfo>& apps, SsToOwnerResponseMsg& response) {
    FieldWriter writer;
    writer.AddNumber(apps.size() + 1).AddNumber(ok ? 1 : 0);
    for (const AppChangeInfo& app : apps) {
        writer.AddText(app.appName).AddNumber(static_cast<uint32_t>(app.state));
    }
    const std::string text = writer.TakeText();
    if (text.size() >= kSsPayloadMax) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "ChangeAppState owner pack response failed size=%zu beyond %zu!!", text.size(), kSsPayloadMax);
        return false;
    }
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                  "ChangeAppState owner pack response appSize+1#cb_ret#app#(SU-0,TERM_F,START_F,RESTART_F,INIT)#:%s",
                  text.c_str());
    if (CopyText(text, response) != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "memcpy_s failed, copy respStr=%s respStrSize=%lu failed",
                      text.c_str(), static_cast<unsigned long>(text.size()));
        return false;
    }
    return true;
}

}  // namespace ProcMgr::SS
