/// The resource service behind SsToOwnerServer: takes requests from the bus, has the registered callback do the work,
/// and writes the answer into the requester's buffer.
///
/// A request that can't be read, has no callback, or whose callback throws, is answered with the failure text of its
/// command; only a buffer that can't be used at all is refused by the result of MyIoctl.
///
/// Threads: requests of several files may run at the same time, as may registrations. Each handler loads its callback
/// once and calls that copy; it writes no member. poolMutex_ guards the event queue's files and is held across calls
/// into the bus.
#ifndef PROCMGR_SS_SERVER_SS_TO_OWNER_SERVER_IMPL_H
#define PROCMGR_SS_SERVER_SS_TO_OWNER_SERVER_IMPL_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "common/app_records.h"
#include "common/callback_slot.h"
#include "include/ss_to_owner_server.h"
#include "platform/include/vek.h"
#include "ss_server/request_gate.h"
#include "ss_server/ss_to_owner_messages.h"

namespace ProcMgr {

class SsToOwnerServerImpl : public SsToOwnerServer {
public:
    /// A buffer or file that is not usable, and an answer that could not be copied back.
    static constexpr int kBadArgument = static_cast<int>(0xff0f0000U);
    static constexpr int kCopyFailed = -0xf10003;

    SsToOwnerServerImpl();

    SsToOwnerServerImpl(const SsToOwnerServerImpl&) = delete;
    SsToOwnerServerImpl& operator=(const SsToOwnerServerImpl&) = delete;

    void EnableSyslog() override;
    int InitSysEventServer(const std::string& serviceName) override;
    int ReportSysEvent(const SysEvent& event) override;
    int RegSsChangeAppCallBackImpl(ChangeAppCallback callback, const std::string& resFileName) override;
    int RegSsChangeAppTimeoutCallBackImpl(ChangeAppTimeoutCallback callback, const std::string& resFileName) override;
    int RegReloadCallBackImpl(ReloadCallback callback, const std::string& resFileName) override;
    int RegDumpCallBackImpl(DumpCallback callback, const std::string& resFileName) override;
    int RegQueryAppListCallBackImpl(QueryAppListCallback callback, const std::string& resFileName) override;
    int RegStopAllAppCallBackImpl(StopAllAppCallback callback, const std::string& resFileName) override;
    int RegSetSystemStateCallBackImpl(SetSystemStateCallback callback, const std::string& resFileName) override;
    int RegSetSystemStateTimeoutCallBackImpl(SetSystemStateTimeoutCallback callback,
                                             const std::string& resFileName) override;
    int RegSsVerifyAppCallBackImpl(VerifyAppCallback callback, const std::string& resFileName) override;
    int RegSsQueryAppStateCallBackImpl(QueryAppStateCallback callback, const std::string& resFileName) override;

    /// The instance that the bus's entry points reach.
    static SsToOwnerServerImpl* GetThis() { return pThis_; }

    // Entry points of the bus. None lets an exception out. A file that is null is refused with -1.

    static int SsToOwnerServerOpen(VekQfsMgrFile* file) noexcept;
    static int SsToOwnerServerClose(VekQfsMgrFile* file) noexcept;
    static int MyOpen(VEKMgrFile* file) noexcept;
    static long MyRead(VEKMgrFile* file, char* buffer, size_t size, long* offset) noexcept;
    static int MyClose(VEKMgrFile* file) noexcept;

    /// Returns the length of the answer's payload plus 8 (kSsResponseHead), kBadArgument or kCopyFailed. After
    /// StopServing every request gets kBadArgument.
    static int MyIoctl(VEKMgrFile* file, unsigned int cmd, VEKIoctlArg* arg) noexcept;

    /// Ends the service for good and waits for the requests that are under way. Meant for the end of the process:
    /// whoever the callbacks work on calls it before he goes away.
    static void StopServing();

private:
    using Request = SsToOwnerRequestMsg;
    using Response = SsToOwnerResponseMsg;

    /// What a change request asks for.
    struct ChangeLists {
        std::vector<AppInfoForServer> term;
        std::vector<AppInfoForServer> start;
        std::vector<AppInfoForServer> restart;
    };

    struct Command;

    int RegisterResService(const std::string& name);

    static int HandleIoctl(VEKMgrFile* file, unsigned int cmd, VEKIoctlArg* arg);
    void HandleRequestFromClient(unsigned int cmd, const Request& request, Response& response) const;

    void ChangeApp(const Request& request, Response& response) const;
    void SetSystemStateHandle(const Request& request, Response& response) const;
    void ReloadCfg(const Request& request, Response& response) const;
    void DumpHandle(const Request& request, Response& response) const;
    void StopAllApp(const Request& request, Response& response) const;
    void QueryAppList(const Request& request, Response& response) const;
    void VerifyApp(const Request& request, Response& response) const;
    void QueryAppState(const Request& request, Response& response) const;

    /// Entries of an unknown option are in no list.
    static ChangeLists SortByOption(const std::vector<AppInfo>& apps);

    /// What the callbacks make of a readable request; false when none is registered, too.
    bool CallChangeApp(const ChangeLists& lists, int timeoutMs, std::vector<AppChangeInfo>& result) const;
    bool CallSetSystemState(int state, int timeoutMs) const;
    bool CallVerifyApp(const std::map<std::string, unsigned int>& apps) const;
    bool CallQueryAppState(const std::vector<std::string>& names, int timeoutMs, std::vector<AppStatus>& states) const;

    static int OpenFile(VekQfsMgrFile* file);
    static int CloseFile(const void* file, const char* fileName) noexcept;

    /// With poolMutex_ held and the file's pool in poolHandle_.
    static int ReportToFile(const VekQfsMgrFile* file, uint32_t state);

    // Safe by themselves.
    CallbackSlot<bool(const std::vector<AppInfoForServer>&, const std::vector<AppInfoForServer>&,
                      const std::vector<AppInfoForServer>&, std::vector<AppChangeInfo>&)>
        changeAppCb_;
    CallbackSlot<bool(const std::vector<AppInfoForServer>&, const std::vector<AppInfoForServer>&,
                      const std::vector<AppInfoForServer>&, std::vector<AppChangeInfo>&, int)>
        changeAppTimeoutCb_;
    CallbackSlot<bool()> reloadCb_;
    CallbackSlot<bool()> dumpCb_;
    CallbackSlot<bool(std::vector<std::string>&)> queryAppListCb_;
    CallbackSlot<bool()> stopAllAppCb_;
    CallbackSlot<bool(int)> setSystemStateCb_;
    CallbackSlot<bool(int, int)> setSystemStateTimeoutCb_;
    CallbackSlot<bool(const std::map<std::string, unsigned int>&)> verifyAppCb_;
    CallbackSlot<bool(const std::vector<std::string>&, std::vector<AppStatus>&, int)> queryAppStateCb_;
    std::shared_ptr<const std::string> resFileName_;  ///< only through atomic loads and stores

    static SsToOwnerServerImpl* pThis_;

    // Safe by itself. Never destroyed, as the bus may call while the process exits.
    static RequestGate& gate_;

    // Guarded by poolMutex_. Never destroyed, as the bus may call while the process exits.
    static std::mutex& poolMutex_;
    static std::map<VekQfsMgrFile*, VEKShmPoolHandle>& procQfsFileMap_;
    static VEKShmPoolHandle poolHandle_;    ///< of the file opened last, or reported to last
    static VEKShmBlockHandle blockHandle_;  ///< of the event being reported
};

}  // namespace ProcMgr

#endif
