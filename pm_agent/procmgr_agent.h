/// The group owner's client of the process manager: one pipe for the whole process, over which requests go out and the
/// process manager's reports come in.
///
/// Every operation may be called from any thread. Requests return a status code: 0 on success, else one of kAgent...;
/// each failure has logged its reason. A one-way request waits for no answer; what became of it comes as a report.
#ifndef PROCMGR_PM_AGENT_PROCMGR_AGENT_H
#define PROCMGR_PM_AGENT_PROCMGR_AGENT_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "pm_agent/message_records.h"

namespace ProcMgr {

inline constexpr uint32_t kAgentSuccess = 0;
inline constexpr uint32_t kAgentNoPiece = 0xF10000;       ///< call: nothing to send
inline constexpr uint32_t kAgentEmptyInput = 0xF10001;    ///< the list is empty
inline constexpr uint32_t kAgentCallFailed = 0xF1000A;    ///< call: no answer in time, or the pipe failed
inline constexpr uint32_t kAgentNotOk = 0xF10501;         ///< the pipe is not open
inline constexpr uint32_t kAgentPackFailed = 0xF10502;    ///< the request does not fit the wire form
inline constexpr uint32_t kAgentSendFailed = 0xF10503;    ///< nothing, or only the first pieces, was sent
inline constexpr uint32_t kAgentNoAnswerData = 0xF10504;  ///< call: an answer without data
inline constexpr uint32_t kAgentResultNotZero =
    0xF10505;  ///< call: the process manager refused, or its answer is broken

class ProcMgrAgent {
public:
    using AppStateChangeCallBack = std::function<void(std::vector<Message::AppStateInfo>)>;
    using QueryAppStateCallBack = std::function<void(std::map<std::string, unsigned int>)>;

    static ProcMgrAgent& GetInstance();

    virtual ~ProcMgrAgent() = default;

    /// True when the pipe is open; opens it if it is not, which may wait for the process manager up to 180 s (1800 s
    /// when DATAMASTER_RUN_MODE is "1"). A pipe that broke later still counts as open: sending then fails.
    [[nodiscard]] virtual bool IsOk() = 0;

    /// Stores the callback for state reports, or for the answers to QueryAppState, then opens the pipe as IsOk. False
    /// when the callback is empty or the pipe can't be opened; in the latter case the callback stays stored. A later
    /// registration replaces an earlier one. Callbacks run on the pipe's receiving thread, one at a time; they must not
    /// close the pipe and should not throw. A report without any entry calls nobody.
    virtual bool RegAppStateChangeCallBackImpl(const AppStateChangeCallBack& callBack) = 0;
    virtual bool RegQueryAppStateCallBackImpl(const QueryAppStateCallBack& callBack) = 0;

    /// One-way requests. They do not open the pipe. Entries may arrive in another order than that of the list.
    virtual uint32_t StartApp(const std::vector<Message::StartAppInfo>& startAppList) = 0;
    virtual uint32_t RestartApp(const std::vector<Message::RestartAppInfo>& restartAppList) = 0;
    virtual uint32_t TermApp(const std::vector<Message::TermAppInfo>& termAppList) = 0;
    virtual uint32_t ReportBaseServiceState(const Message::BaseServiceStateInfo& info) = 0;
    virtual uint32_t ReportAppExecState(const Message::AppExecInfo& info) = 0;

    /// Asks for the states of the named applications. The answer comes through the query callback and carries nothing
    /// that ties it to this request: an answer that is late can be taken for the next one's.
    virtual uint32_t QueryAppState(const std::vector<std::string>& appList) = 0;

    /// Calls: wait for the process manager's result, up to 5 s (1800 s when DATAMASTER_RUN_MODE is "1").
    virtual uint32_t LoadStartupCfgInfo(const Message::StartupCfgInfo& cfg) = 0;
    virtual uint32_t ReLoadStartupCfgInfo(const Message::StartupCfgInfo& cfg) = 0;

    /// Starts sending this process's heartbeat to the process manager, under the name in PROC_NAME. Only the first call
    /// does anything, whether it succeeds or not.
    virtual void StartOwnerHeart() = 0;

    /// Stops sending it; nothing when it is not being sent.
    virtual void StopOwnerHeart() = 0;

    /// Closes the pipe and waits for a running callback to return. Meant for the end of the process: whoever receives
    /// callbacks must call it before he goes away. Nothing when the pipe is not open.
    virtual void ClosePipe() = 0;

    ProcMgrAgent(const ProcMgrAgent&) = delete;
    ProcMgrAgent& operator=(const ProcMgrAgent&) = delete;

protected:
    ProcMgrAgent() = default;
};

}  // namespace ProcMgr

#endif
