/// @file
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
    std::string appName;                 ///< the name under which it is started, reported and logged
    std::string binPath;                 ///< the file to execute
    uint32_t uid = 0;                    ///< user of the process; 0 for an owner that is not root: the owner's own
    uint32_t gid = 0;                    ///< group of the process, in the same way
    std::vector<std::string> arguments;  ///< the command line behind the program's own name
    std::string restart;                 ///< "on-failure", "on-forever", "on-until-succeed" or anything else: never
    bool isSo = false;                   ///< a shared object that runs inside the process of `processBindPath`
    std::string soName;                  ///< file name of the shared object
    std::string soPath;                  ///< folder of the shared object or, without `soName`, the whole path
    std::string processBindPath;         ///< the host program of a shared object; empty: the one of the process manager
    uint32_t termTimeOut = 5000;  ///< ms from the termination request to the forced one, or to the time-out report
    bool isForceTerm = true;      ///< end it by force after `termTimeOut`
    bool isRosNode = false;       ///< the application is a ROS node
    bool isReporting = false;     ///< the application reports its own readiness
    std::vector<int32_t> coreAffinity;  ///< the processor cores that it may use; empty: those of the process manager
    std::string resGroupName;           ///< the control group that the process joins; empty: none
    std::set<std::string> depends;  ///< the applications that must run before it is started: direct dependencies only
    bool isAutoBoot = false;        ///< started when the group owner comes up
    std::map<std::string, std::string> envArgv;  ///< environment variables beside the process manager's
    std::string setRtPrio;  ///< priority within the scheduling class, in decimal digits; empty: none asked for
    std::string setRtType;  ///< "fifo", "rr", "other", "batch" or "idle", in any case; empty: as the process manager
    bool heartBeatSwitch = false;    ///< its heartbeat is watched
    int32_t nodeType = 0;            ///< the kind of node; passed on, not interpreted
    bool isDynamicPara = false;      ///< a template: instances are named `name@instance`
    uint32_t vfId = 0;               ///< the device that it belongs to; passed on, not interpreted
    std::set<std::string> mustHold;  ///< attributes without which the application must not run, by manifest key
};

/// What a manifest says, for reading. Copying copies every attribute.
class ApplicationManifest {
public:
    /// The attributes of a manifest that names nothing at all.
    ApplicationManifest() = default;

    /// Takes the attributes over as they are; nothing is checked.
    explicit ApplicationManifest(ApplicationAttributes attributes) : attributes_(std::move(attributes)) {}

    /// @{
    /// Each returns a copy of the attribute of its name in ApplicationAttributes; GetDependList that of `depends`.
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
    /// @}

private:
    ApplicationAttributes attributes_;
};

#endif
