#include "ss_server/ss_to_owner_server_impl.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <utility>

#include "common/boot_trace.h"
#include "common/enumeration_names.h"
#include "common/field_writer.h"
#include "common/grp_owner_log.h"
#include "common/name_constants.h"
#include "platform/include/bounded_copy.h"
#include "ss_server/ss_to_owner_serialization.h"
#include "ss_server/state_query_payload.h"

namespace ProcMgr {

namespace {

constexpr uint32_t kServiceTimeoutMs = 5000;
constexpr uint32_t kStretchedServiceTimeoutMs = 1800000;

constexpr int kQueueNotRead = 0xF10001;
constexpr int kNoBlock = 0xF10209;
constexpr int kWriteFailed = 0xF10003;
constexpr int kEnqueueFailed = 0xF1020B;

constexpr int kNullFile = -1;
constexpr VEKShmPoolConfig kEventPool = {64, 64};

const char* Printable(const char* text) {
    return text == nullptr ? "" : text;
}

const char* TrueOrFalse(bool value) {
    return value ? "true" : "false";
}

std::string StateName(int state) {
    return GetSysState(static_cast<uint64_t>(static_cast<int64_t>(state)));
}

/// A time-out beyond the range of int becomes negative, which asks for the default.
int TimeoutMs(const SsToOwnerRequestMsg& request) {
    return static_cast<int>(request.timeout);
}

/// A callback that throws has failed.
bool Succeeds(const std::function<bool()>& call) {
    try {
        return call();
    } catch (...) {
        return false;
    }
}

/// As above; what the callback put into its output before it threw is not answered.
template <typename Output>
bool Succeeds(const std::function<bool()>& call, Output& output) {
    try {
        return call();
    } catch (...) {
        output.clear();
        return false;
    }
}

uint32_t GetVfsServiceTimeout() {
    const char* mode = std::getenv(kRunModeEnv.c_str());
    if (mode == nullptr) {
        return kServiceTimeoutMs;
    }
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "DATAMASTER_RUN_MODE=%s", mode);
    return std::strcmp(mode, "1") == 0 ? kStretchedServiceTimeoutMs : kServiceTimeoutMs;
}

/// Returns memcpy_s's result; the length is set only on success.
int CopyText(const std::string& text, SsToOwnerResponseMsg& response) {
    const int error = memcpy_s(response.payload, kSsPayloadMax, text.data(), text.size());
    if (error == 0) {
        response.len = static_cast<uint32_t>(text.size());
    }
    return error;
}

/// A result that stands alone has no separator.
std::string BareResult(bool ok) {
    return ok ? "1" : "0";
}

std::string AppListText(bool ok, const std::vector<std::string>& names) {
    FieldWriter writer;
    writer.AddText(BareResult(ok));
    if (ok) {
        for (const std::string& name : names) {
            writer.AddText(name);
        }
    }
    return writer.TakeText();
}

void LogReceivedApps(const std::vector<AppInfo>& apps) {
    for (const AppInfo& app : apps) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                      "%s ChangeAppState receive app list name=%s optionType=%u(%s)", BootStrace(kSsServerName).c_str(),
                      app.name.c_str(), app.optionType, GetOptionType(app.optionType).c_str());
    }
}

/// The answer to the client: the head and as much payload as the response has. Reads `response.len` as any number.
int CopyBack(const SsToOwnerResponseMsg& response, void* buffer) {
    int error = memcpy_s(buffer, kSsRecordSize, &response, kSsResponseHead);
    if (error != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "SsToOwnerRequestMsg memcpy_s failed, errno=%d,(size=%zu bytes,%zu bytes)", error, kSsRecordSize,
                      kSsResponseHead);
        return SsToOwnerServerImpl::kCopyFailed;
    }
    const size_t length = response.len;
    if (length != 0) {
        error = memcpy_s(static_cast<char*>(buffer) + kSsPayloadOffset, kSsPayloadMax, response.payload, length);
    }
    if (error != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "SsToOwnerRequestMsg memcpy_s failed! errno=%d,(size:%zu bytes,%zu bytes)", error, kSsPayloadMax,
                      length);
        return SsToOwnerServerImpl::kCopyFailed;
    }
    // The sum is not where the payload ends; the client knows it this way.
    return static_cast<int>(length + kSsResponseHead);
}

void FreeBlock(VEKShmBlockHandle block, const char* fileName) {
    const int error = VEKShmFree(block);
    if (error != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "ReportSysEvent: VEKShmFree failed, err=%d, file=%s",
                      error, fileName);
    }
}

}  // namespace

/// A command of the client and who handles it; commands outside the table are answered with nothing.
struct SsToOwnerServerImpl::Command {
    unsigned int cmd;
    void (SsToOwnerServerImpl::*handle)(const Request& request, Response& response) const;
};

SsToOwnerServerImpl* SsToOwnerServerImpl::pThis_ = nullptr;
RequestGate& SsToOwnerServerImpl::gate_ = *new RequestGate;
std::mutex& SsToOwnerServerImpl::poolMutex_ = *new std::mutex;
std::map<VekQfsMgrFile*, VEKShmPoolHandle>& SsToOwnerServerImpl::procQfsFileMap_ =
    *new std::map<VekQfsMgrFile*, VEKShmPoolHandle>;
VEKShmPoolHandle SsToOwnerServerImpl::poolHandle_ = nullptr;
VEKShmBlockHandle SsToOwnerServerImpl::blockHandle_ = nullptr;

SsToOwnerServerImpl::SsToOwnerServerImpl() {
    pThis_ = this;
}

int SsToOwnerServerImpl::RegSsChangeAppCallBackImpl(ChangeAppCallback callback, const std::string& resFileName) {
    changeAppCb_.Store(std::move(callback));
    const int ret = RegisterResService(resFileName);
    if (ret != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "RegSsChangeAppCallBackImpl failed, resFileName=%s",
                      resFileName.c_str());
    }
    return ret;
}

int SsToOwnerServerImpl::RegSsChangeAppTimeoutCallBackImpl(ChangeAppTimeoutCallback callback,
                                                           const std::string& resFileName) {
    changeAppTimeoutCb_.Store(std::move(callback));
    const int ret = RegisterResService(resFileName);
    if (ret != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "RegSsChangeAppCallBackImpl(with timeout) failed, resFileName=%s", resFileName.c_str());
    }
    return ret;
}

int SsToOwnerServerImpl::RegReloadCallBackImpl(ReloadCallback callback, const std::string& resFileName) {
    reloadCb_.Store(std::move(callback));
    const int ret = RegisterResService(resFileName);
    if (ret != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "RegReloadCallBackImpl failed, resFileName=%s",
                      resFileName.c_str());
    }
    return ret;
}

int SsToOwnerServerImpl::RegDumpCallBackImpl(DumpCallback callback, const std::string& resFileName) {
    dumpCb_.Store(std::move(callback));
    const int ret = RegisterResService(resFileName);
    if (ret != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "RegDumpCallBackImpl failed, resFileName=%s",
                      resFileName.c_str());
    }
    return ret;
}

int SsToOwnerServerImpl::RegQueryAppListCallBackImpl(QueryAppListCallback callback, const std::string& resFileName) {
    queryAppListCb_.Store(std::move(callback));
    const int ret = RegisterResService(resFileName);
    if (ret != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "RegQueryAppListCallBackImpl failed, resFileName=%s",
                      resFileName.c_str());
    }
    return ret;
}

int SsToOwnerServerImpl::RegStopAllAppCallBackImpl(StopAllAppCallback callback, const std::string& resFileName) {
    stopAllAppCb_.Store(std::move(callback));
    const int ret = RegisterResService(resFileName);
    if (ret != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "RegStopAllAppCallBackImpl failed, resFileName=%s",
                      resFileName.c_str());
    }
    return ret;
}

int SsToOwnerServerImpl::RegSetSystemStateCallBackImpl(SetSystemStateCallback callback,
                                                       const std::string& resFileName) {
    setSystemStateCb_.Store(std::move(callback));
    const int ret = RegisterResService(resFileName);
    if (ret != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "RegSetSystemStateCallBackImpl failed, resFileName=%s",
                      resFileName.c_str());
    }
    return ret;
}

int SsToOwnerServerImpl::RegSetSystemStateTimeoutCallBackImpl(SetSystemStateTimeoutCallback callback,
                                                              const std::string& resFileName) {
    setSystemStateTimeoutCb_.Store(std::move(callback));
    const int ret = RegisterResService(resFileName);
    if (ret != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "RegSetSystemStateCallBackImpl(with timeout) failed, resFileName=%s", resFileName.c_str());
    }
    return ret;
}

int SsToOwnerServerImpl::RegSsVerifyAppCallBackImpl(VerifyAppCallback callback, const std::string& resFileName) {
    verifyAppCb_.Store(std::move(callback));
    const int ret = RegisterResService(resFileName);
    if (ret != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "RegSsVerifyAppCallBackImpl failed, resFileName=%s",
                      resFileName.c_str());
    }
    return ret;
}

int SsToOwnerServerImpl::RegSsQueryAppStateCallBackImpl(QueryAppStateCallback callback,
                                                        const std::string& resFileName) {
    queryAppStateCb_.Store(std::move(callback));
    const int ret = RegisterResService(resFileName);
    if (ret != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "RegSsQueryAppStateCallBackImpl failed, resFileName=%s",
                      resFileName.c_str());
    }
    return ret;
}

int SsToOwnerServerImpl::RegisterResService(const std::string& name) {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "RegisterVfsService begin. serviceName=%s", name.c_str());
    std::atomic_store(&resFileName_, std::make_shared<const std::string>(name));
    const VEKServiceOps ops = {MyOpen, MyRead, MyClose, MyIoctl};
    const int ret = VEKRegisterService(name.c_str(), &ops, GetVfsServiceTimeout());
    if (ret != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "RegisterVfsService failed. ret=%d serviceName=%s", ret,
                      name.c_str());
    }
    return ret;
}

int SsToOwnerServerImpl::MyOpen(VEKMgrFile* file) noexcept {
    return file == nullptr ? kNullFile : 0;
}

long SsToOwnerServerImpl::MyRead(VEKMgrFile* /*file*/, char* /*buffer*/, size_t /*size*/, long* /*offset*/) noexcept {
    return 0;
}

int SsToOwnerServerImpl::MyClose(VEKMgrFile* file) noexcept {
    // A file of the request service has no pool: it is looked for by its address alone, as if it were a queue's.
    return file == nullptr ? kNullFile : CloseFile(file, file->fileName);
}

int SsToOwnerServerImpl::MyIoctl(VEKMgrFile* file, unsigned int cmd, VEKIoctlArg* arg) noexcept {
    try {
        const RequestGate::Visit visit(gate_);
        return visit.IsInside() ? HandleIoctl(file, cmd, arg) : kBadArgument;
    } catch (...) {
        return kCopyFailed;
    }
}

void SsToOwnerServerImpl::StopServing() {
    gate_.Close();
}

int SsToOwnerServerImpl::HandleIoctl(VEKMgrFile* file, unsigned int cmd, VEKIoctlArg* arg) {
    if (file == nullptr || arg == nullptr) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "MyIoctl failed. VEKMgrFile or VEKIoctlArg is NULL");
        return kBadArgument;
    }
    const VEKIoctlArg buffer = *arg;
    if (buffer.size != kSsRecordSize || buffer.addr == nullptr) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "SsToOwnerRequestMsg ioBuf invalid. (expectSize=%zubytes,realSize=%lubytes)", kSsRecordSize,
                      buffer.size);
        return kBadArgument;
    }
    // The client may change the buffer meanwhile; whatever is checked is checked on this copy.
    Request request;
    std::memcpy(&request, buffer.addr, sizeof(request));
    Response response;
    GetThis()->HandleRequestFromClient(cmd, request, response);
    return CopyBack(response, buffer.addr);
}

void SsToOwnerServerImpl::HandleRequestFromClient(unsigned int cmd, const Request& request, Response& response) const {
    static constexpr Command kCommands[] = {
        {0, &SsToOwnerServerImpl::ChangeApp},  {2, &SsToOwnerServerImpl::SetSystemStateHandle},
        {3, &SsToOwnerServerImpl::ReloadCfg},  {4, &SsToOwnerServerImpl::DumpHandle},
        {5, &SsToOwnerServerImpl::StopAllApp}, {6, &SsToOwnerServerImpl::QueryAppList},
        {8, &SsToOwnerServerImpl::VerifyApp},  {9, &SsToOwnerServerImpl::QueryAppState},
    };
    const auto* command = std::find_if(std::begin(kCommands), std::end(kCommands),
                                       [cmd](const Command& candidate) { return candidate.cmd == cmd; });
    if (command != std::end(kCommands)) {
        (this->*command->handle)(request, response);
    }
}

void SsToOwnerServerImpl::ChangeApp(const Request& request, Response& response) const {
    std::vector<AppInfo> apps;
    std::vector<AppChangeInfo> result;
    bool ok = false;
    if (SS::UnPackChangeAppInfoRequestMsg(request, apps)) {
        for (AppInfo& app : apps) {
            app.timeout = request.timeout;
        }
        LogReceivedApps(apps);
        ok = CallChangeApp(SortByOption(apps), TimeoutMs(request), result);
    } else {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "UnPackChangeAppInfoRequestMsg failed, appChangeList size=%lu",
                      static_cast<unsigned long>(apps.size()));
    }
    const bool packed = SS::PackChangeAppInfoResponse(ok, result, response);
    if (!packed) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "PackChangeAppInfoResponse failed, ret=%u",
                      static_cast<unsigned int>(packed));
    }
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "%s ChangeApp finish", BootStrace(kSsServerName).c_str());
}

SsToOwnerServerImpl::ChangeLists SsToOwnerServerImpl::SortByOption(const std::vector<AppInfo>& apps) {
    ChangeLists lists;
    const std::pair<OptionType, std::vector<AppInfoForServer>*> listOfOption[] = {
        {OptionType::START, &lists.start}, {OptionType::TERM, &lists.term}, {OptionType::RESTART, &lists.restart}};
    for (const AppInfo& app : apps) {
        for (const auto& [option, list] : listOfOption) {
            if (app.optionType == static_cast<uint32_t>(option)) {
                list->push_back({app.name, app.argv, app.dynamicPara});
            }
        }
    }
    return lists;
}

bool SsToOwnerServerImpl::CallChangeApp(const ChangeLists& lists, int timeoutMs,
                                        std::vector<AppChangeInfo>& result) const {
    if (const auto callback = changeAppTimeoutCb_.Load()) {
        const bool ok =
            Succeeds([&] { return (*callback)(lists.term, lists.start, lists.restart, result, timeoutMs); }, result);
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "ChangeAppState with timeout callback end. ret=%u(%s)",
                      static_cast<unsigned int>(ok), TrueOrFalse(ok));
        return ok;
    }
    if (const auto callback = changeAppCb_.Load()) {
        const bool ok = Succeeds([&] { return (*callback)(lists.term, lists.start, lists.restart, result); }, result);
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "ChangeAppState callback end. ret=%u(%s)",
                      static_cast<unsigned int>(ok), TrueOrFalse(ok));
        return ok;
    }
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "ChangeAppState failed, callback is nullptr");
    return false;
}

void SsToOwnerServerImpl::SetSystemStateHandle(const Request& request, Response& response) const {
    int state = 0;
    bool ok = false;
    if (SS::UnPackSetSystemStateRequest(request, state)) {
        ok = CallSetSystemState(state, TimeoutMs(request));
    } else {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "SetSystemStateHandle: UnPackSetSystemStateRequest fail, state=%d(%s)", state,
                      StateName(state).c_str());
    }
    // A failure is in the log already; the response then stays empty.
    static_cast<void>(SS::PackSetSystemStateResponse(ok, response));
}

bool SsToOwnerServerImpl::CallSetSystemState(int state, int timeoutMs) const {
    if (const auto callback = setSystemStateTimeoutCb_.Load()) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                      "SetSystemStateHandle with timeout callback begin. state=%d(%s)", state,
                      StateName(state).c_str());
        const bool ok = Succeeds([&] { return (*callback)(state, timeoutMs); });
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "SetSystemStateHandle with timeout callback end. ret=%u",
                      static_cast<unsigned int>(ok));
        return ok;
    }
    if (const auto callback = setSystemStateCb_.Load()) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "SetSystemStateHandle callback begin. state=%d(%s)", state,
                      StateName(state).c_str());
        const bool ok = Succeeds([&] { return (*callback)(state); });
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "SetSystemStateHandle callback end. ret=%u",
                      static_cast<unsigned int>(ok));
        return ok;
    }
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "SetSystemStateHandle failed, callback is nullptr");
    return false;
}

void SsToOwnerServerImpl::ReloadCfg(const Request& /*request*/, Response& response) const {
    bool ok = false;
    if (const auto callback = reloadCb_.Load()) {
        ok = Succeeds(*callback);
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "Reload cfg callback end. ret=%u",
                      static_cast<unsigned int>(ok));
    } else {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "Reload cfg failed, callback is nullptr");
    }
    const std::string text = BareResult(ok);
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "Reload respStr=%s respStrSize=%zu.", text.c_str(),
                  text.size());
    const int error = CopyText(text, response);
    if (error != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "Reload memcpy_s failed, err=%d", error);
    }
}

void SsToOwnerServerImpl::DumpHandle(const Request& /*request*/, Response& response) const {
    bool ok = false;
    if (const auto callback = dumpCb_.Load()) {
        ok = Succeeds(*callback);
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "DumpHandle callback end. ret=%u",
                      static_cast<unsigned int>(ok));
    } else {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "DumpHandle failed, callback is nullptr");
    }
    const int error = CopyText(BareResult(ok), response);
    if (error != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "DumpHandle memcpy_s failed, err=%d", error);
    }
}

void SsToOwnerServerImpl::StopAllApp(const Request& /*request*/, Response& response) const {
    bool ok = false;
    if (const auto callback = stopAllAppCb_.Load()) {
        ok = Succeeds(*callback);
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "StopAllApp callback end. ret=%u",
                      static_cast<unsigned int>(ok));
    } else {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "StopAllApp failed, callback is nullptr");
    }
    const int error = CopyText(BareResult(ok), response);
    if (error != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "stopAllApp memcpy_s failed, err=%d", error);
    }
}

void SsToOwnerServerImpl::QueryAppList(const Request& /*request*/, Response& response) const {
    std::vector<std::string> names;
    bool ok = false;
    if (const auto callback = queryAppListCb_.Load()) {
        ok = Succeeds([&] { return (*callback)(names); });
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "QueryAppList callback end. ret=%u",
                      static_cast<unsigned int>(ok));
    } else {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "QueryAppList failed, callback is nullptr");
    }
    const int error = CopyText(AppListText(ok, names), response);
    if (error != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "QueryAppList memcpy_s failed, err=%d", error);
    }
}

void SsToOwnerServerImpl::VerifyApp(const Request& request, Response& response) const {
    std::map<std::string, unsigned int> apps;
    bool ok = false;
    if (SS::UnPackVerifyRequest(request, apps)) {
        ok = CallVerifyApp(apps);
    } else {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "VerifyApp UnPackVerifyRequest failed, change record size=%lu",
                      static_cast<unsigned long>(apps.size()));
    }
    const int error = CopyText(BareResult(ok), response);
    if (error != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "VerifyApp memcpy_s failed, err=%d", error);
    }
}

bool SsToOwnerServerImpl::CallVerifyApp(const std::map<std::string, unsigned int>& apps) const {
    for (const auto& app : apps) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "VerifyApp receive changeRecord name=%s opt=%s",
                      app.first.c_str(), GetOptionType(app.second).c_str());
    }
    const auto callback = verifyAppCb_.Load();
    if (callback == nullptr) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "VerifyApp failed, callback is nullptr");
        return false;
    }
    const bool ok = Succeeds([&] { return (*callback)(apps); });
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "VerifyApp callback end. ret=%u",
                  static_cast<unsigned int>(ok));
    return ok;
}

void SsToOwnerServerImpl::QueryAppState(const Request& request, Response& response) const {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "%s QueryAppState begin", BootStrace(kSsServerName).c_str());
    std::vector<std::string> names;
    std::vector<AppStatus> states;
    bool ok = false;
    if (SS::ReadStateQuery(request, names)) {
        ok = CallQueryAppState(names, TimeoutMs(request), states);
    } else {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "QueryAppState DeserializeMessage failed");
    }
    if (!SS::WriteStateAnswer(ok, states, response)) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "QueryAppState SerializeMessage failed");
    }
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "%s QueryAppState finish", BootStrace(kSsServerName).c_str());
}

bool SsToOwnerServerImpl::CallQueryAppState(const std::vector<std::string>& names, int timeoutMs,
                                            std::vector<AppStatus>& states) const {
    const auto callback = queryAppStateCb_.Load();
    if (callback == nullptr) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "QueryAppState failed, callback is nullptr");
        return false;
    }
    const bool ok = Succeeds([&] { return (*callback)(names, states, timeoutMs); }, states);
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "QueryAppState callback end. ret=%u",
                  static_cast<unsigned int>(ok));
    return ok;
}

void SsToOwnerServerImpl::EnableSyslog() {
    EnableSyslogState();
}

int SsToOwnerServerImpl::InitSysEventServer(const std::string& serviceName) {
    EnableSyslog();
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                  "InitSysEventServer VEKRegisterQueueService begin. serviceName=%s", serviceName.c_str());
    const VEKQueueOps ops = {SsToOwnerServerOpen, SsToOwnerServerClose};
    const int error = VEKRegisterQueueService(serviceName.c_str(), kServiceTimeoutMs, &ops);
    if (error != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "InitSysEventServer VEKRegisterQueueService failed err=%d,file=%s", error, serviceName.c_str());
        return error;
    }
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO,
                  "InitSysEventServer VEKRegisterQueueService success, serviceName=%s", serviceName.c_str());
    return 0;
}

int SsToOwnerServerImpl::SsToOwnerServerOpen(VekQfsMgrFile* file) noexcept {
    if (file == nullptr) {
        return kNullFile;
    }
    try {
        return OpenFile(file);
    } catch (...) {
        return kNullFile;
    }
}

int SsToOwnerServerImpl::OpenFile(VekQfsMgrFile* file) {
    const char* fileName = Printable(file->fileName);
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "SsToOwnerServerOpen is called file=%s", fileName);
    const std::lock_guard<std::mutex> lock(poolMutex_);
    const auto opened = procQfsFileMap_.find(file);
    if (opened != procQfsFileMap_.end()) {
        static_cast<void>(VEKShmDestroyPool(opened->second));
        procQfsFileMap_.erase(opened);
    }
    const int error = VEKShmRegisterPoolWithConfig(file, &kEventPool, &poolHandle_);
    if (error != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "SsToOwnerServerOpen: Register ShmPool failed, fileName=%s, err=%d", fileName, error);
        return error;
    }
    procQfsFileMap_[file] = poolHandle_;
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "SsToOwnerServerOpen: Register ShmPool success, fileName=%s",
                  fileName);
    return 0;
}

int SsToOwnerServerImpl::SsToOwnerServerClose(VekQfsMgrFile* file) noexcept {
    return file == nullptr ? kNullFile : CloseFile(file, file->fileName);
}

int SsToOwnerServerImpl::CloseFile(const void* file, const char* fileName) noexcept {
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "SsToOwnerServerClose is called file=%s", Printable(fileName));
    const std::lock_guard<std::mutex> lock(poolMutex_);
    const auto opened = std::find_if(procQfsFileMap_.begin(), procQfsFileMap_.end(),
                                     [file](const auto& entry) { return entry.first == file; });
    if (opened == procQfsFileMap_.end()) {
        return 0;
    }
    const int error = VEKShmDestroyPool(opened->second);
    procQfsFileMap_.erase(opened);
    if (error != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR,
                      "SsToOwnerServerClose: Free poolHandle failed, err=%d file=%s", error, Printable(fileName));
    }
    return error;
}

int SsToOwnerServerImpl::ReportSysEvent(const SysEvent& event) {
    const std::lock_guard<std::mutex> lock(poolMutex_);
    int status = 0;
    for (const auto& [file, pool] : procQfsFileMap_) {
        poolHandle_ = pool;
        const int result = ReportToFile(file, event.state);
        status = result == 0 ? status : result;
    }
    return status;
}

int SsToOwnerServerImpl::ReportToFile(const VekQfsMgrFile* file, uint32_t state) {
    const VEKQueueHandle queue = VEKQfsFileQueue(file);
    if (queue == nullptr) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_WARN, "ReportSysEvent: Please wait to open the resfile");
        return kQueueNotRead;
    }
    const char* fileName = Printable(file->fileName);
    GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "ReportSysEvent. (state=%u,file=%s)", state, fileName);
    const std::string text = std::to_string(state);
    int error = VEKShmHandleMalloc(poolHandle_, text.size(), &blockHandle_);
    if (error != 0) {
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "ReportSysEvent, Malloc block failed. (err=%d,resfile=%s)",
                      error, fileName);
        return kNoBlock;
    }
    error = VEKShmWrite(blockHandle_, text.data(), text.size());
    if (error != 0) {
        FreeBlock(blockHandle_, fileName);
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "ReportSysEvent: VEKShmWrite failed, err=%d, file=%s",
                      error, fileName);
        return kWriteFailed;
    }
    error = VEKDataEnqueue(queue, blockHandle_);
    if (error < 0) {
        FreeBlock(blockHandle_, fileName);
        GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR, "ReportSysEvent: VEKDataEnqueue failed, err=%d, file=%s",
                      error, fileName);
        return kEnqueueFailed;
    }
    return 0;
}

}  // namespace ProcMgr

SsToOwnerServer::~SsToOwnerServer() = default;

SsToOwnerServer& SsToOwnerServer::GetInstance() {
    // Never destroyed: a request may still come while the process exits.
    static SsToOwnerServer& instance = *new ProcMgr::SsToOwnerServerImpl;
    return instance;
}
