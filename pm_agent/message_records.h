/// What the group owner and the process manager tell each other, as values. Their wire form is written in
/// procmgr_agent_serialization.h. Strings hold no '#', because '#' ends every field of the wire form.
///
/// The namespace is always written out: the manager keeps bookkeeping records of the same names.
#ifndef PROCMGR_PM_AGENT_MESSAGE_RECORDS_H
#define PROCMGR_PM_AGENT_MESSAGE_RECORDS_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace ProcMgr::Message {

/// Dynamic parameters: the values of each parameter index.
using DynamicPara = std::map<int32_t, std::vector<std::string>>;

/// Start one application.
struct StartAppInfo {
    std::string appName;
    std::vector<std::string> argv;  ///< empty: the arguments of its manifest
    DynamicPara dynamicPara;
};

/// End one application and start it again.
struct RestartAppInfo {
    std::string appName;
    std::vector<std::string> argv;
    DynamicPara dynamicPara;
};

/// End one application.
struct TermAppInfo {
    std::string appName;
};

/// Which manifests the process manager shall read, and with what replacement data.
struct StartupCfgInfo {
    std::map<std::string, std::string> matchDataToPath;
    std::string procName;  ///< the startup entry path: the file or the folder of the manifests
};

/// Execution state of one application, reported to the process manager.
struct AppExecInfo {
    std::string appName;
    uint32_t execState = 0;  ///< an AppExecState
    uint32_t value1 = 0;     ///< carried, not interpreted
    uint32_t value2 = 0;     ///< carried, not interpreted
};

/// State of the group owner's base services, reported to the process manager.
struct BaseServiceStateInfo {
    uint32_t state = 0;  ///< a BaseServiceStateType
};

/// One report of the process manager about one application.
struct AppStateInfo {
    std::string appName;
    uint32_t pid = 0;
    uint32_t value1 = 0;    ///< carried, not interpreted
    uint32_t appState = 0;  ///< a ReportAppStateType, or a value outside of it
    uint32_t reason = 0;    ///< an AppAbnormalExitReason, or a value outside of it
};

}  // namespace ProcMgr::Message

#endif
