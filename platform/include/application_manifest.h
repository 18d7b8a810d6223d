/// One application as its manifest describes it. A copyable value.
#ifndef PROCMGR_PLATFORM_APPLICATION_MANIFEST_H
#define PROCMGR_PLATFORM_APPLICATION_MANIFEST_H

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

/// The attributes, all with the values of a manifest that names nothing but the application.
/// Parsers and tests fill it; everyone else reads an ApplicationManifest.
struct ApplicationAttributes {
    std::string appName;
    std::string binPath;
    uint32_t uid = 0;  ///< 0 for an owner that is not root: the owner's own; gid alike
    uint32_t gid = 0;
    std::vector<std::string> arguments;
    std::string restart;  ///< "on-failure", "on-forever", "on-until-succeed" or anything else: never
    bool isSo = false;    ///< a shared object that runs inside the process of `processBindPath`
    std::string soName;
    std::string soPath;
    std::string processBindPath;
    uint32_t termTimeOut = 5000;  ///< ms from the termination request to the forced one, or to the time-out report
    bool isForceTerm = true;      ///< end it by force after `termTimeOut`
    bool isRosNode = false;
    bool isReporting = false;  ///< the application reports its own readiness
    std::vector<int32_t> coreAffinity;
    std::string resGroupName;
    std::set<std::string> depends;
    bool isAutoBoot = false;
    std::map<std::string, std::string> envArgv;
    std::string setRtPrio;
    std::string setRtType;
    bool heartBeatSwitch = false;
    int32_t nodeType = 0;
    bool isDynamicPara = false;  ///< a template: instances are named `name@instance`
    uint32_t vfId = 0;
    std::set<std::string> mustHold;  ///< attributes without which the application must not run, by manifest key
};

class ApplicationManifest {
public:
    ApplicationManifest() = default;
    explicit ApplicationManifest(ApplicationAttributes attributes) : attributes_(std::move(attributes)) {}

    std::string GetAppName() const { return attributes_.appName; }
    std::string GetBinPath() const { return attributes_.binPath; }
    uint32_t GetUid() const { return attributes_.uid; }
    uint32_t GetGid() const { return attributes_.gid; }
    std::vector<std::string> GetArguments() const { return attributes_.arguments; }
    std::string GetRestart() const { return attributes_.restart; }
    bool GetIsSo() const { return attributes_.isSo; }
    std::string GetSoName() const { return attributes_.soName; }
    std::string GetSoPath() const { return attributes_.soPath; }
    std::string GetProcessBindPath() const { return attributes_.processBindPath; }
    uint32_t GetTermTimeOut() const { return attributes_.termTimeOut; }
    bool GetIsForceTerm() const { return attributes_.isForceTerm; }
    bool GetIsRosNode() const { return attributes_.isRosNode; }
    bool GetIsReporting() const { return attributes_.isReporting; }
    std::vector<int32_t> GetCoreAffinity() const { return attributes_.coreAffinity; }
    std::string GetResGroupName() const { return attributes_.resGroupName; }
    std::set<std::string> GetDependList() const { return attributes_.depends; }
    bool GetIsAutoBoot() const { return attributes_.isAutoBoot; }
    std::map<std::string, std::string> GetEnvArgv() const { return attributes_.envArgv; }
    std::string GetSetRtPrio() const { return attributes_.setRtPrio; }
    std::string GetSetRtType() const { return attributes_.setRtType; }
    bool GetHeartBeatSwitch() const { return attributes_.heartBeatSwitch; }
    int32_t GetNodeType() const { return attributes_.nodeType; }
    bool GetIsDynamicPara() const { return attributes_.isDynamicPara; }
    uint32_t GetVfId() const { return attributes_.vfId; }
    std::set<std::string> GetMustHold() const { return attributes_.mustHold; }

private:
    ApplicationAttributes attributes_;
};

#endif
