/// Records of change requests and queries that several layers share.
#ifndef PROCMGR_COMMON_APP_RECORDS_H
#define PROCMGR_COMMON_APP_RECORDS_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "common/enumerations.h"

/// One application of a change request.
struct AppInfoForServer {
    std::string appName;
    std::vector<std::string> args;                            ///< arguments of this start or restart
    std::map<int32_t, std::vector<std::string>> dynamicPara;  ///< dynamic parameters of this request, by index
};

/// One line of the answer to a change request.
struct AppChangeInfo {
    AppChangeInfo(std::string name, AppChangeState result) : appName(std::move(name)), state(result) {}

    std::string appName;
    AppChangeState state;
};

/// One line of the answer to a state query.
struct AppStatus {
    std::string appName;
    int32_t pid = -1;   ///< -1 when unknown
    int32_t state = 1;  ///< 0 running, 1 not running or unknown, 2 in transition
};

#endif
