/// The glue between the callers of the group owner and the application manager. One half serves requests (of the
/// system-state manager and of the facade), the other takes in reports (of the process manager, of the applications and
/// of the heartbeat library) and tells the subscriber.
///
/// Threads: requests run on the thread of the resource service or of the facade's caller, process-manager reports and
/// query answers on the pipe's receiving thread, heartbeat notices on the heartbeat library's. No operation holds a
/// lock of this class while it calls the manager or a subscriber, with one exception that UpdateHeartBeatLostApps
/// names.
#ifndef PROCMGR_GRP_OWNER_GRP_OWNER_SERVER_H
#define PROCMGR_GRP_OWNER_GRP_OWNER_SERVER_H

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "application/application.h"
#include "common/app_records.h"
#include "common/enumerations.h"
#include "pm_agent/message_records.h"

namespace ProcMgr {

class GrpOwnerServer {
public:
    using AppStateSubscriber = std::function<bool(const std::string& name, int pid, AppReportState state)>;
    using SystemStateSubscriber = std::function<bool(int state, int timeoutMs)>;

    /// `pauseAfterStop` is called after every attempt of StopAllApp; without one the thread rests for a second.
    explicit GrpOwnerServer(std::function<void()> pauseAfterStop = {});

    GrpOwnerServer(const GrpOwnerServer&) = delete;
    GrpOwnerServer& operator=(const GrpOwnerServer&) = delete;

    /// Replace a subscriber; an empty function ends the subscription. Any thread, any time. A call under way still
    /// ends in the former subscriber, whose target is destroyed only after that call.
    void SubscribeSystemState(const SystemStateSubscriber& subscriber);
    static void SubscribeAppState(const AppStateSubscriber& subscriber);

    // Requests.

    /// The subscriber's answer, or false without one.
    [[nodiscard]] bool SetSystemState(int state, int timeoutMs);

    /// Announces each termination to the subscriber, then lets the manager carry out the change.
    [[nodiscard]] bool ChangeApp(const std::vector<AppInfoForServer>& term, const std::vector<AppInfoForServer>& start,
                                 const std::vector<AppInfoForServer>& restart, std::vector<AppChangeInfo>& result,
                                 int timeoutMs);

    [[nodiscard]] bool QueryAppState(const std::vector<std::string>& names, std::vector<AppStatus>& states,
                                     int timeoutMs);

    /// The process manager's answer to a query: stores each application's state and wakes the thread that waits for
    /// the answer, whatever the answer holds.
    void QueryAppStateRespFromProcMgr(std::map<std::string, unsigned int> states);

    [[nodiscard]] bool QueryAppList(std::vector<std::string>& names);
    [[nodiscard]] bool GrpOwnerVerifyApp(const std::map<std::string, unsigned int>& apps);
    [[nodiscard]] bool ReloadCfg();
    [[nodiscard]] bool ApplicationDump();

    /// Terminates the driving applications, then the base applications that they may depend on; up to three attempts of
    /// 5000 ms for each of the two, and a pause of one second after every attempt. False when one of the two fails; the
    /// base applications are left alone when the driving ones do.
    [[nodiscard]] bool StopAllApp();

    /// Empty for an unknown name.
    std::shared_ptr<Application> FindApp(const std::string& name) const;

    /// Accepts and drops an event. Returns 0.
    int GrpOwnerReportEvent(const unsigned char* data, unsigned int len) const;

    // Reports.

    /// Tells the subscriber. Its answer, or false without one.
    static bool NotifyAppState(const std::string& name, int pid, AppReportState state);

    void ReportAppStateFromApp(const std::string& name, int pid, AppReportState state) const;
    void ReportAppStateFromProcMgr(std::vector<Message::AppStateInfo> infos);
    std::string GetAppStateFromProcMgrName(Message::ReportAppStateType type) const;

    static void RegisterAppHeartBeat(const std::shared_ptr<Application>& app);
    static void UnregisterAppHeartBeat(const std::shared_ptr<Application>& app);

    /// Keeps the set of applications whose heartbeat is lost. SWITCH_ON of a lost one tells the subscriber of the
    /// recovery, with the lock of the set held: the subscriber must not come back to the heartbeat operations.
    static void UpdateHeartBeatLostApps(const std::string& name, unsigned int pid, AppReportState op);

    /// Called by the heartbeat library. `name` is exactly `nameLen` bytes; status 1 is lost, 0 recovered. Returns 1
    /// when handled, 0 when ignored. Lets no exception out.
    static int ProcessHeartBeatNotify(const char* name, size_t nameLen, unsigned int pid, int status) noexcept;

private:
    // Guards both subscribers; never held while one is called. The application-state subscriber and the lock are never
    // destroyed: the platform's threads may still report while the process exits.
    static std::mutex& subscriberMutex_;
    static AppStateSubscriber& appStateChangeCb_;
    SystemStateSubscriber systemStateChangeCb_;

    const std::function<void()> pauseAfterStop_;
};

}  // namespace ProcMgr

#endif
