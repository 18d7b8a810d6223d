/// @file
/// The service through which the system-state manager (SS) reaches the group owner, and the queue on which the group
/// owner reports system events to it.
///
/// A group-owner process needs only the first three operations: ProcMgrGrpOwner::GrpOwnerEnable makes the
/// registrations when its configuration asks for the service. Results are 0 for success.
///
/// The records of the change and query callbacks are defined in common/app_records.h.
///
/// Threads: every operation may be called from any thread. Callbacks run on the bus's threads, possibly on several at
/// the same time; one that throws counts as one that returned false.
#ifndef PROCMGR_SS_TO_OWNER_SERVER_H
#define PROCMGR_SS_TO_OWNER_SERVER_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "include/procmgr_export.h"

struct AppChangeInfo;
struct AppInfoForServer;
struct AppStatus;

/// A system event. It reaches the reader as its state in decimal digits.
struct SysEvent {
    uint32_t state = 0;  ///< the number of a system state
};

/// The service and the queue.
class PROCMGR_EXPORT SsToOwnerServer {
public:
    /// @{
    /// One type for each kind of request; true when it could be done. They run on threads of the bus and may block.
    /// Arguments are valid during the call only; results go into the last reference. `timeoutMs` is how long the client
    /// waits; without it the callback has no time-out to keep. `state` is the number of a system state.
    using ChangeAppCallback =
        std::function<bool(const std::vector<AppInfoForServer>& term, const std::vector<AppInfoForServer>& start,
                           const std::vector<AppInfoForServer>& restart, std::vector<AppChangeInfo>& result)>;
    using ChangeAppTimeoutCallback = std::function<bool(
        const std::vector<AppInfoForServer>& term, const std::vector<AppInfoForServer>& start,
        const std::vector<AppInfoForServer>& restart, std::vector<AppChangeInfo>& result, int timeoutMs)>;
    using ReloadCallback = std::function<bool()>;
    using DumpCallback = std::function<bool()>;
    using QueryAppListCallback = std::function<bool(std::vector<std::string>& names)>;
    using StopAllAppCallback = std::function<bool()>;
    using SetSystemStateCallback = std::function<bool(int state)>;
    using SetSystemStateTimeoutCallback = std::function<bool(int state, int timeoutMs)>;
    using VerifyAppCallback = std::function<bool(const std::map<std::string, unsigned int>& apps)>;
    using QueryAppStateCallback =
        std::function<bool(const std::vector<std::string>& names, std::vector<AppStatus>& states, int timeoutMs)>;
    /// @}

    /// The only instance. It belongs to the library and is never destroyed.
    static SsToOwnerServer& GetInstance();

    virtual ~SsToOwnerServer();

    /// From now on every message of the library goes to syslog, and to syslog only. There is no way back.
    virtual void EnableSyslog() = 0;

    /// Offers the event queue under `serviceName`. Enables syslog first, as EnableSyslog says. Returns 0, or the bus's
    /// error number.
    virtual int InitSysEventServer(const std::string& serviceName) = 0;

    /// Sends the event to every open file of the queue. Returns 0 when it reached all of them, also when there are
    /// none; otherwise what went wrong last: 0xF10001 a file is open but not read yet, 0xF10209 no memory block left,
    /// 0xF10003 writing it failed, 0xF1020B the queue refused it. A failure with one file does not stop the others.
    virtual int ReportSysEvent(const SysEvent& event) = 0;

    /// @{
    /// Each stores the callback of one kind of request, replacing an earlier one, and then offers the service under
    /// `resFileName`. Returns 0, or the bus's error number. Of a pair with and without time-out the one with it is
    /// called when both are set.
    virtual int RegSsChangeAppCallBackImpl(ChangeAppCallback callback, const std::string& resFileName) = 0;
    virtual int RegSsChangeAppTimeoutCallBackImpl(ChangeAppTimeoutCallback callback,
                                                  const std::string& resFileName) = 0;
    virtual int RegReloadCallBackImpl(ReloadCallback callback, const std::string& resFileName) = 0;
    virtual int RegDumpCallBackImpl(DumpCallback callback, const std::string& resFileName) = 0;
    virtual int RegQueryAppListCallBackImpl(QueryAppListCallback callback, const std::string& resFileName) = 0;
    virtual int RegStopAllAppCallBackImpl(StopAllAppCallback callback, const std::string& resFileName) = 0;
    virtual int RegSetSystemStateCallBackImpl(SetSystemStateCallback callback, const std::string& resFileName) = 0;
    virtual int RegSetSystemStateTimeoutCallBackImpl(SetSystemStateTimeoutCallback callback,
                                                     const std::string& resFileName) = 0;
    virtual int RegSsVerifyAppCallBackImpl(VerifyAppCallback callback, const std::string& resFileName) = 0;
    virtual int RegSsQueryAppStateCallBackImpl(QueryAppStateCallback callback, const std::string& resFileName) = 0;
    /// @}
};

#endif
