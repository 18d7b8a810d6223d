/// The one implementation of the agent.
///
/// It takes no lock. The descriptor is published before the mark that says that it may be used, and the two callbacks
/// stand in slots; so requests on the callers' threads and deliveries on the pipe's receiving thread need not wait for
/// each other.
#ifndef PROCMGR_PM_AGENT_PROCMGR_AGENT_IMPL_H
#define PROCMGR_PM_AGENT_PROCMGR_AGENT_IMPL_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "common/callback_slot.h"
#include "platform/include/heartbeat.h"
#include "platform/include/tunor.h"
#include "pm_agent/procmgr_agent.h"
#include "pm_agent/procmgr_agent_serialization.h"
#include "pm_agent/request_msg.h"

namespace ProcMgr {

// Rows of tables: what operations of the same course differ in.
struct OneWayRequest;
struct Registration;

/// What the pipe library calls for each request of the process manager. Lets no exception out.
void ProcMgrAgentRequstMsgHandler(int fd, TunorRequest* request);

class ProcMgrAgentImpl : public ProcMgrAgent {
public:
    static ProcMgrAgentImpl& GetThis();

    ~ProcMgrAgentImpl() override;

    bool IsOk() override;
    bool RegAppStateChangeCallBackImpl(const AppStateChangeCallBack& callBack) override;
    bool RegQueryAppStateCallBackImpl(const QueryAppStateCallBack& callBack) override;
    uint32_t StartApp(const std::vector<Message::StartAppInfo>& startAppList) override;
    uint32_t RestartApp(const std::vector<Message::RestartAppInfo>& restartAppList) override;
    uint32_t TermApp(const std::vector<Message::TermAppInfo>& termAppList) override;
    uint32_t ReportBaseServiceState(const Message::BaseServiceStateInfo& info) override;
    uint32_t ReportAppExecState(const Message::AppExecInfo& info) override;
    uint32_t QueryAppState(const std::vector<std::string>& appList) override;
    uint32_t LoadStartupCfgInfo(const Message::StartupCfgInfo& cfg) override;
    uint32_t ReLoadStartupCfgInfo(const Message::StartupCfgInfo& cfg) override;
    void StartOwnerHeart() override;
    void StopOwnerHeart() override;
    void ClosePipe() override;

    /// A state report, or the answer to a query, that arrived over `fd`.
    void AppStateReportHandler(int fd, const Message::RequestMsg& message);
    void QueryAppStateRespHandler(const Message::RequestMsg& message);

protected:
    ProcMgrAgentImpl() = default;

    /// Sends each record, in order, until one fails. False when one failed or when there is none.
    bool SendRequestMsg(int fd, const std::vector<Message::RequestMsg>& pieces) const;

    /// Sends each record as a call and waits for its answer, until one fails. Returns a status code.
    uint32_t RpcSyncAndGetResult(const std::vector<Message::RequestMsg>& pieces) const;

private:
    using Packer = std::function<bool(Serialization::PackedRequests&)>;

    uint32_t SendOneWay(const OneWayRequest& request, bool isEmpty, const Packer& pack) const;
    uint32_t LoadStartupCfgInfo(const Message::StartupCfgInfo& cfg, Message::RequestType type) const;
    template <typename Signature>
    bool Register(const Registration& registration, CallbackSlot<Signature>& slot,
                  const std::function<Signature>& callBack);

    CallbackSlot<void(std::vector<Message::AppStateInfo>)> appStateChangeCb_;
    CallbackSlot<void(std::map<std::string, unsigned int>)> dealQueryAppStateRespCb_;
    std::atomic<bool> isOk_{false};
    std::atomic<bool> heartStarted_{false};
    std::atomic<int32_t> fd_{kNoPipe};
    std::atomic<HeartBeatHandle> heartHandle_{nullptr};

    static constexpr int32_t kNoPipe = -1;
};

}  // namespace ProcMgr

#endif
