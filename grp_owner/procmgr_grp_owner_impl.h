/// The facade's implementation: thin translations onto the group-owner server, the application manager, the agent of
/// the process manager and the resource service.
#ifndef PROCMGR_GRP_OWNER_PROCMGR_GRP_OWNER_IMPL_H
#define PROCMGR_GRP_OWNER_PROCMGR_GRP_OWNER_IMPL_H

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "grp_owner/grp_owner_server.h"
#include "include/procmgr_grp_owner.h"

namespace ProcMgr {

class ProcMgrGrpOwnerImpl : public ProcMgrGrpOwner {
public:
    ProcMgrGrpOwnerImpl() = default;
    ~ProcMgrGrpOwnerImpl() override = default;

    ProcMgrGrpOwnerImpl(const ProcMgrGrpOwnerImpl&) = delete;
    ProcMgrGrpOwnerImpl& operator=(const ProcMgrGrpOwnerImpl&) = delete;

    int GrpOwnerConfig(const GrpOwnerCfg& cfg) override;
    int GrpOwnerEnable() override;
    int GrpOwnerDisable() override;
    bool StartAutoStartApp() override;
    bool CheckAppExisted(const std::string& name) const override;
    int QueryAppInfo(const std::string& name, ApplicationInfo& info) const override;
    void ReportAppStateFromApp(const std::string& name, int pid, AppReportState state) const override;
    int ReportEventFromApp(const unsigned char* data, unsigned int len) const override;
    void SubscribeSystemState(const std::function<bool(int, int)>& fn) override;
    void SubscribeAppState(const std::function<bool(const std::string&, int, AppReportState)>& fn) override;
    bool ReportSelfStateToPm(bool ok) override;
    int ChangeAppState(const std::vector<std::string>& termList, const std::vector<std::string>& startList,
                       const std::vector<std::string>& restartList, std::map<std::string, bool>& result) override;
    int GrpOwnerRestartApp(const std::string& name) override;

private:
    /// What of the configuration is kept.
    struct Config {
        std::string startupEntryPath;
        std::string reserved;
        std::string resFileName;
        bool eventReportEnable = false;
        bool ssServerEnable = false;
    };

    /// The work of GrpOwnerEnable. Ends at the first failure and leaves what was registered before it.
    [[nodiscard]] bool GroupOwnerRegCb();
    void RegisterAgentCallbacks();
    void RegisterSsCallbacks();

    Config cfg_;
    GrpOwnerServer server_;

    static LogOutputFunc logOutput_;
    [[maybe_unused]] static std::mutex fdMutex_;
};

}  // namespace ProcMgr

#endif
