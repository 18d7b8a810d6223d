/// What the command line and the environment say.
#ifndef PROCMGR_PROCMGRD_OPTIONS_H
#define PROCMGR_PROCMGRD_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>

#include "platform/posix/manifest_check/manifest_check.h"

namespace Procmgrd {

struct Options {
    std::string runDir = "/run/procmgr";
    std::string logDir;     ///< empty: applications write to the daemon's own output
    std::string rulesFile;  ///< empty: only root and the daemon's own user may connect
    bool isTerminatingOnOwnerExit = false;
    uint32_t stopTimeoutMs = 10000;
    int readyFd = -1;

    std::optional<ProcMgr::CheckRequest> check;  ///< what to check instead of being a daemon
    bool isCheckDocument = false;                ///< tell it to scripts
};

/// Empty when the process is to end now with `exitCode`; what there was to say is then printed already.
[[nodiscard]] std::optional<Options> ReadOptions(int argc, char** argv, int& exitCode);

}  // namespace Procmgrd

#endif
