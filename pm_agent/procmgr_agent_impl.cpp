#include "pm_agent/procmgr_agent_impl.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "common/boot_trace.h"
#include "common/enumeration_names.h"
#include "common/grp_owner_log.h"
#include "common/name_constants.h"
#include "pm_agent/call_result.h"
#include "pm_agent/query_state_message.h"
#include "pm_agent/tunor_wrappers.h"

namespace ProcMgr {

// What the one-way requests that travel as pieces differ in beside their begin line.
struct OneWayRequest {
    Message::RequestType type;
    void (*logEmpty)();  ///< null: the request is no list
    void (*logNotOk)();
    void (*logPackFailed)();
    void (*logCombineFailed)();
    void (*logSendFailed)();
};

// What the registrations of the two callbacks differ in.
struct Registration {
    void (*logNull)();
    void (*logBegin)(const char* procName);
    void (*logOpenFailed)();
    void (*logSuccess)(int fd);
};

namespace {

constexpr GrpOwnerLogLevel kInfo = GrpOwnerLogLevel::GRP_OWNER_LOG_INFO;
constexpr GrpOwnerLogLevel kWarn = GrpOwnerLogLevel::GRP_OWNER_LOG_WARN;
constexpr GrpOwnerLogLevel kError = GrpOwnerLogLevel::GRP_OWNER_LOG_ERROR;

constexpr int kTryAgain = -11;
constexpr size_t kHeartNameMax = 128;

struct TimeoutsMs {
    uint32_t open;
    uint32_t call;
};

constexpr TimeoutsMs kNormalTimeouts{180000, 5000};
constexpr TimeoutsMs kLongTimeouts{1800000, 1800000};

constexpr OneWayRequest kStartApp{
    Message::RequestType::START_APP,
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : StartApp failed: startAppList is zero"); },
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : StartApp failed: agent is not ok, please exec ProcMgrAgent::isOk"); },
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : StartApp failed: ProcMgrPackStartRequest failed"); },
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : StartApp failed: ProcMgrCombinePiecesMsg failed"); },
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : StartApp failed: SendRequestMsg failed"); },
};

constexpr OneWayRequest kTermApp{
    Message::RequestType::TERM_APP,
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : TermApp failed: TermAppList is zero"); },
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : TermApp failed: agent is not ok, please exec ProcMgrAgent::isOk"); },
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : TermApp failed: ProcMgrPackTermRequest failed"); },
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : TermApp failed: ProcMgrCombinePiecesMsg failed"); },
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : TermApp failed: SendRequestMsg failed"); },
};

constexpr OneWayRequest kRestartApp{
    Message::RequestType::RESTART_APP,
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : restartApp failed: restartAppList is zero"); },
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : restartApp failed: agent is not ok, please exec ProcMgrAgent::isOk"); },
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : restartApp failed: PackrestartRequest failed"); },
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : restartApp failed: ProcMgrCombinePiecesMsg failed"); },
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : restartApp failed: SendRequestMsg failed"); },
};

constexpr OneWayRequest kReportBaseServiceState{
    Message::RequestType::BASESERVICE_STATE_REPORT,
    nullptr,
    [] {
        GRP_OWNER_LOG(kError,
                      "ProcMgrAgent: ReportBaseServiceState failed: agent is not ok, please exec ProcMgrAgent::isOk");
    },
    [] {
        GRP_OWNER_LOG(kError,
                      "ProcMgrAgent : ReportBaseServiceState failed: ProcMgrPackBaseServiceStateRequest failed");
    },
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : ReportBaseServiceState failed: ProcMgrCombinePiecesMsg failed"); },
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : ReportBaseServiceState failed: SendRequestMsg failed"); },
};

// The pack text names another packer; whoever reads these logs knows it so.
constexpr OneWayRequest kReportAppExecState{
    Message::RequestType::APP_EXECUTION_REPORT,
    nullptr,
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : ReportAppExecState failed: agent is not ok"); },
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : ReportAppExecState failed: PackrestartRequest failed"); },
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : ReportAppExecState failed: ProcMgrCombinePiecesMsg failed"); },
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : ReportAppExecState failed: SendRequestMsg failed"); },
};

constexpr Registration kAppStateChange{
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent :RegAppStateChangeCallBack failed: cb is null"); },
    [](const char* procName) {
        GRP_OWNER_LOG(kInfo, "********* ProcMgrAgent : RegAppStateChangeCallBack begin :cur_proName=%s", procName);
    },
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent :RegisterService failed: CheckPipeIsOk failed"); },
    [](int fd) { GRP_OWNER_LOG(kInfo, "********* ProcMgrAgent : RegAppStateChangeCallBack success fd=%d", fd); },
};

constexpr Registration kQueryAppState{
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent : RegQueryAppStateCallBackImpl failed: cb is null"); },
    [](const char* procName) {
        GRP_OWNER_LOG(kInfo, "ProcMgrAgent : RegQueryAppStateCallBackImpl begin:cur_proName=%s", procName);
    },
    [] { GRP_OWNER_LOG(kError, "ProcMgrAgent :RegQueryAppStateCallBackImpl failed: CheckPipeIsOk failed"); },
    [](int fd) { GRP_OWNER_LOG(kInfo, "ProcMgrAgent : RegQueryAppStateCallBackImpl success fd=%d", fd); },
};

std::string TimeStamp() {
    return BootStrace(kPmAgentName);
}

const TimeoutsMs& Timeouts() {
    const char* const mode = getenv(kRunModeEnv.c_str());
    return mode != nullptr && std::string_view(mode) == "1" ? kLongTimeouts : kNormalTimeouts;
}

TunorRequest ToTunorRequest(const Message::RequestMsg& message) {
    // The pipe library reads the record only; its own record has no const.
    return {const_cast<Message::RequestMsg*>(&message), static_cast<uint32_t>(sizeof(message))};
}

// The descriptor, or what TunorOpen returned instead of one.
int OpenPipe() {
    const TunorOpenParam param{kProcMgrName.c_str(), static_cast<uint32_t>(getgid()), Timeouts().open,
                               ProcMgrAgentRequstMsgHandler};
    int ret = TunorOpen(&param);
    if (ret == kTryAgain) {
        GRP_OWNER_LOG(kWarn, "ProcMgrAgent : TunorOpen failed, try again");
        ret = TunorOpen(&param);
    }
    const int error = errno;
    if (ret <= 0) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : TunorOpen failed!! ret=%d, errno=%d", ret, error);
    }
    return ret;
}

// Sends one record as a call. Returns a status code.
uint32_t CallAndGetResult(int fd, const Message::RequestMsg& piece, uint32_t timeoutMs) {
    const TunorRequest request = ToTunorRequest(piece);
    TunorResponse response{};
    const int ret = ProcMgrTunorTimedRPCSync(fd, &request, &response, timeoutMs);
    if (ret < 0) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : LoadStartupCfgInfo failed: TunorTimedRPCSync failed: err code=%d", ret);
        return kAgentCallFailed;
    }
    if (response.data == nullptr || response.size == 0) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : LoadStartupCfgInfo failed, resp.data is nullptr");
        return kAgentNoAnswerData;
    }
    const int result = ReadCallResult(std::string_view(static_cast<const char*>(response.data), response.size));
    GRP_OWNER_LOG(kInfo, "ProcMgrAgent : LoadStartupCfgInfo result=%d", result);
    if (result != 0) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : LoadStartupCfgInfo failed, result=%d", result);
        return kAgentResultNotZero;
    }
    return kAgentSuccess;
}

bool IsOfType(const Message::RequestMsg& message, Message::RequestType type) {
    return message.type == static_cast<uint32_t>(type);
}

void HandleRequest(int fd, const TunorRequest* request) {
    if (request == nullptr) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : ProcMgrAgentRequstMsgHandler failed: req is null point. (fd=%d)", fd);
        return;
    }
    if (request->size != sizeof(Message::RequestMsg)) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : ProcMgrAgentRequstMsgHandler failed: size=%u bytes is illegal",
                      request->size);
        return;
    }
    if (request->data == nullptr) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : ProcMgrAgentRequstMsgHandler failed: request is null point");
        return;
    }
    // The received bytes may lie at an odd address.
    Message::RequestMsg message;
    memcpy(&message, request->data, sizeof(message));
    if (IsOfType(message, Message::RequestType::QUERY_APP_STATE_RESP)) {
        ProcMgrAgentImpl::GetThis().QueryAppStateRespHandler(message);
    }
    if (IsOfType(message, Message::RequestType::APP_STATE_REPORT)) {
        ProcMgrAgentImpl::GetThis().AppStateReportHandler(fd, message);
    }
}

}  // namespace

void ProcMgrAgentRequstMsgHandler(int fd, TunorRequest* request) {
    // The caller is C code. A report that could not be handled, for want of memory, say, is a lost report.
    try {
        HandleRequest(fd, request);
    } catch (...) {
    }
}

ProcMgrAgent& ProcMgrAgent::GetInstance() {
    return ProcMgrAgentImpl::GetThis();
}

ProcMgrAgentImpl& ProcMgrAgentImpl::GetThis() {
    static ProcMgrAgentImpl agent;
    return agent;
}

ProcMgrAgentImpl::~ProcMgrAgentImpl() {
    ProcMgrAgentImpl::ClosePipe();
}

bool ProcMgrAgentImpl::IsOk() {
    if (isOk_.load(std::memory_order_acquire)) {
        return true;
    }
    const int fd = OpenPipe();
    if (fd <= 0) {
        // Another thread may have opened it meanwhile.
        return isOk_.load(std::memory_order_acquire);
    }
    int32_t none = kNoPipe;
    if (!fd_.compare_exchange_strong(none, fd)) {
        (void)ProcMgrTunorClosePipe(fd);
    }
    isOk_.store(true, std::memory_order_release);
    return true;
}

void ProcMgrAgentImpl::ClosePipe() {
    isOk_.store(false);
    const int32_t fd = fd_.exchange(kNoPipe);
    if (fd != kNoPipe) {
        (void)ProcMgrTunorClosePipe(fd);
    }
}

template <typename Signature>
bool ProcMgrAgentImpl::Register(const Registration& registration, CallbackSlot<Signature>& slot,
                                const std::function<Signature>& callBack) {
    if (!callBack) {
        registration.logNull();
        return false;
    }
    const char* const procName = getenv(kProcNameEnv.c_str());
    registration.logBegin(procName != nullptr ? procName : "");
    slot.Store(callBack);
    if (!IsOk()) {
        registration.logOpenFailed();
        return false;
    }
    registration.logSuccess(fd_.load());
    return true;
}

bool ProcMgrAgentImpl::RegAppStateChangeCallBackImpl(const AppStateChangeCallBack& callBack) {
    return Register(kAppStateChange, appStateChangeCb_, callBack);
}

bool ProcMgrAgentImpl::RegQueryAppStateCallBackImpl(const QueryAppStateCallBack& callBack) {
    return Register(kQueryAppState, dealQueryAppStateRespCb_, callBack);
}

uint32_t ProcMgrAgentImpl::StartApp(const std::vector<Message::StartAppInfo>& startAppList) {
    GRP_OWNER_LOG(kInfo, "%s, ProcMgrAgent Send START_APP msg to PM begin: startAppList size=%lu", TimeStamp().c_str(),
                  static_cast<unsigned long>(startAppList.size()));
    return SendOneWay(kStartApp, startAppList.empty(), [&startAppList](Serialization::PackedRequests& packed) {
        return Serialization::ProcMgrPackStartRequest(startAppList, packed);
    });
}

uint32_t ProcMgrAgentImpl::RestartApp(const std::vector<Message::RestartAppInfo>& restartAppList) {
    GRP_OWNER_LOG(kInfo, "%s, ProcMgrAgent Send RESTART_APP msg to PM begin: restartAppList size=%lu",
                  TimeStamp().c_str(), static_cast<unsigned long>(restartAppList.size()));
    return SendOneWay(kRestartApp, restartAppList.empty(), [&restartAppList](Serialization::PackedRequests& packed) {
        return Serialization::ProcMgrPackRestartRequest(restartAppList, packed);
    });
}

uint32_t ProcMgrAgentImpl::TermApp(const std::vector<Message::TermAppInfo>& termAppList) {
    GRP_OWNER_LOG(kInfo, "%s, ProcMgrAgent Send TERM_APP msg to PM begin: termAppList size=%lu", TimeStamp().c_str(),
                  static_cast<unsigned long>(termAppList.size()));
    return SendOneWay(kTermApp, termAppList.empty(), [&termAppList](Serialization::PackedRequests& packed) {
        return Serialization::ProcMgrPackTermRequest(termAppList, packed);
    });
}

uint32_t ProcMgrAgentImpl::ReportBaseServiceState(const Message::BaseServiceStateInfo& info) {
    GRP_OWNER_LOG(kInfo, "%s, ProcMgrAgent Send BASESERVICE_STATE_REPORT msg to PM begin: BaseServiceState=%s",
                  TimeStamp().c_str(), GetBaseServiceStateTypeStr(info.state).c_str());
    return SendOneWay(kReportBaseServiceState, false, [&info](Serialization::PackedRequests& packed) {
        return Serialization::ProcMgrPackBaseServiceStateRequest(info, packed);
    });
}

uint32_t ProcMgrAgentImpl::ReportAppExecState(const Message::AppExecInfo& info) {
    GRP_OWNER_LOG(kInfo, "%s, ProcMgrAgent Send APP_EXECUTION_REPORT msg to PM begin", TimeStamp().c_str());
    return SendOneWay(kReportAppExecState, false, [&info](Serialization::PackedRequests& packed) {
        return Serialization::ProcMgrPackAppExecInfoRequest(info, packed);
    });
}

uint32_t ProcMgrAgentImpl::SendOneWay(const OneWayRequest& request, bool isEmpty, const Packer& pack) const {
    if (isEmpty) {
        request.logEmpty();
        return kAgentEmptyInput;
    }
    if (!isOk_.load(std::memory_order_acquire)) {
        request.logNotOk();
        return kAgentNotOk;
    }
    Serialization::PackedRequests packed;
    if (!pack(packed)) {
        request.logPackFailed();
        return kAgentPackFailed;
    }
    std::vector<Message::RequestMsg> pieces;
    if (!Serialization::ProcMgrCombinePiecesMsg(request.type, packed, pieces)) {
        request.logCombineFailed();
        return kAgentPackFailed;
    }
    if (!SendRequestMsg(fd_.load(), pieces)) {
        request.logSendFailed();
        return kAgentSendFailed;
    }
    return kAgentSuccess;
}

bool ProcMgrAgentImpl::SendRequestMsg(int fd, const std::vector<Message::RequestMsg>& pieces) const {
    if (pieces.empty()) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : SendRequestMsg failed: requestPieceMsg is empty, fd=%d", fd);
        return false;
    }
    for (const Message::RequestMsg& piece : pieces) {
        const TunorRequest request = ToTunorRequest(piece);
        const int ret = ProcMgrTunorSendRequest(fd, &request);
        if (ret < 0) {
            GRP_OWNER_LOG(kError, "ProcMgrAgent : SendRequestMsg failed: fd=%d, err_code=%d", fd, ret);
            return false;
        }
    }
    return true;
}

uint32_t ProcMgrAgentImpl::QueryAppState(const std::vector<std::string>& appList) {
    GRP_OWNER_LOG(kInfo, "%s, ProcMgrAgent Send QUERY_APP_STATE msg to PM begin: appList size=%zu", TimeStamp().c_str(),
                  appList.size());
    if (appList.empty()) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : QueryAppState failed: appList is empty");
        return kAgentEmptyInput;
    }
    if (!isOk_.load(std::memory_order_acquire)) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : QueryAppState failed: agent is not ok");
        return kAgentNotOk;
    }
    std::vector<Message::RequestMsg> pieces(1);
    if (!WriteStateQuery(appList, pieces.front())) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : QueryAppState SerializeMessage failed");
        return kAgentPackFailed;
    }
    if (!SendRequestMsg(fd_.load(), pieces)) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : QueryAppState failed: SendRequestMsg failed");
        return kAgentSendFailed;
    }
    return kAgentSuccess;
}

uint32_t ProcMgrAgentImpl::LoadStartupCfgInfo(const Message::StartupCfgInfo& cfg) {
    GRP_OWNER_LOG(kInfo, "%s, ProcMgrAgent Send LOAD_STARTUP_CFG msg to PM begin", TimeStamp().c_str());
    return LoadStartupCfgInfo(cfg, Message::RequestType::LOAD_STARTUP_CFG);
}

uint32_t ProcMgrAgentImpl::ReLoadStartupCfgInfo(const Message::StartupCfgInfo& cfg) {
    GRP_OWNER_LOG(kInfo, "%s, ProcMgrAgent Send RELOAD_STARTUP_CFG msg to PM begin", TimeStamp().c_str());
    return LoadStartupCfgInfo(cfg, Message::RequestType::RELOAD_STARTUP_CFG);
}

// The texts name the load also when it is a reload.
uint32_t ProcMgrAgentImpl::LoadStartupCfgInfo(const Message::StartupCfgInfo& cfg, Message::RequestType type) const {
    if (!isOk_.load(std::memory_order_acquire)) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : LoadStartupCfgInfo failed: agent is not ok");
        return kAgentNotOk;
    }
    Serialization::PackedRequests packed;
    if (!Serialization::ProcMgrPackMatchDataAndPathRequest(cfg, packed)) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : LoadStartupCfgInfo failed: ProcMgrPackMatchDataAndPathRequest failed");
        return kAgentPackFailed;
    }
    std::vector<Message::RequestMsg> pieces;
    if (!Serialization::ProcMgrCombinePiecesMsg(type, packed, pieces)) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : LoadStartupCfgInfo failed: ProcMgrCombinePiecesMsg failed");
        return kAgentPackFailed;
    }
    return RpcSyncAndGetResult(pieces);
}

uint32_t ProcMgrAgentImpl::RpcSyncAndGetResult(const std::vector<Message::RequestMsg>& pieces) const {
    if (pieces.empty()) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : LoadStartupCfgInfo failed: requestPieceMsg is empty");
        return kAgentNoPiece;
    }
    for (const Message::RequestMsg& piece : pieces) {
        const uint32_t status = CallAndGetResult(fd_.load(), piece, Timeouts().call);
        if (status != kAgentSuccess) {
            return status;
        }
    }
    return kAgentSuccess;
}

void ProcMgrAgentImpl::QueryAppStateRespHandler(const Message::RequestMsg& message) {
    const std::map<std::string, unsigned int> appStatusList = ReadStateAnswer(message);
    if (appStatusList.empty()) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent: QueryAppStateRespHandler failed: appStatusList is null");
        return;
    }
    const auto callBack = dealQueryAppStateRespCb_.Load();
    if (callBack == nullptr) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent: dealQueryAppStateRespCb_ is null");
        return;
    }
    (*callBack)(appStatusList);
}

void ProcMgrAgentImpl::AppStateReportHandler(int fd, const Message::RequestMsg& message) {
    std::vector<Message::AppStateInfo> appStateList;
    if (!Serialization::ProcMgrUnpackedAppStateRequest(message, appStateList) || appStateList.empty()) {
        GRP_OWNER_LOG(
            kError,
            "ProcMgrAgent : ProcMgrAgentRequstMsgHandler failed: ProcMgrUnpackedAppStateRequest appStateList is null");
        return;
    }
    for (const Message::AppStateInfo& info : appStateList) {
        GRP_OWNER_LOG(kInfo, "%s ProcMgrAgent revice appState msg from PM appState=%s, appName=%s, pid=%u",
                      TimeStamp().c_str(), GetReportAppStateTypeStr(info.appState).c_str(), info.appName.c_str(),
                      info.pid);
    }
    const auto callBack = appStateChangeCb_.Load();
    if (callBack == nullptr) {
        GRP_OWNER_LOG(kError, "Process pm request message, but callback is null. (fd=%d)", fd);
        return;
    }
    (*callBack)(appStateList);
}

void ProcMgrAgentImpl::StartOwnerHeart() {
    if (heartStarted_.exchange(true)) {
        return;
    }
    const char* const given = getenv(kProcNameEnv.c_str());
    if (given == nullptr) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent : cur proName is null.");
        return;
    }
    const std::string procName = given;
    HeartBeatHandle handle = nullptr;
    const int ret = RegisterSendHeartBeat(procName.c_str(), strnlen(procName.c_str(), kHeartNameMax),
                                          kProcMgrName.c_str(), kProcMgrName.size(), &handle);
    if (ret != 0) {
        GRP_OWNER_LOG(kError, "ProcMgrAgent: register heart beat from %s to %s failed. (ret=%d)", procName.c_str(),
                      kProcMgrName.c_str(), ret);
        return;
    }
    heartHandle_.store(handle);
    GRP_OWNER_LOG(kInfo, "ProcMgrAgent: register heart beat from %s to %s.", procName.c_str(), kProcMgrName.c_str());
}

void ProcMgrAgentImpl::StopOwnerHeart() {
    const HeartBeatHandle handle = heartHandle_.exchange(nullptr);
    if (handle != nullptr) {
        (void)UnregisterSendHeartBeat(handle);
    }
}

}  // namespace ProcMgr
