#include "daemons/procmgrd/launch_reason.h"

#include <algorithm>
#include <array>
#include <cerrno>

namespace Procmgrd {
namespace {

struct ErrorRow {
    int error;
    ExitReason reason;
};

constexpr std::array<ErrorRow, 14> kExecErrors = {{
    {ENOENT, ExitReason::NOT_FOUND},
    {ENOTDIR, ExitReason::NOT_FOUND},
    {EACCES, ExitReason::NOT_PERMITTED},
    {EPERM, ExitReason::NOT_PERMITTED},
    {ENOEXEC, ExitReason::NOT_A_PROGRAM},
    {ELIBBAD, ExitReason::NOT_A_PROGRAM},
    {EINVAL, ExitReason::NOT_A_PROGRAM},
    {EISDIR, ExitReason::NOT_A_PROGRAM},
    {ENOMEM, ExitReason::NO_RESOURCES},
    {EAGAIN, ExitReason::NO_RESOURCES},
    {EMFILE, ExitReason::NO_RESOURCES},
    {ENFILE, ExitReason::NO_RESOURCES},
    {ENOSPC, ExitReason::NO_RESOURCES},
    {EIO, ExitReason::IO_ERROR},
}};

bool IsAttribute(ProcMgr::LaunchStage stage) {
    using ProcMgr::LaunchStage;
    return stage == LaunchStage::RESOURCE_GROUP || stage == LaunchStage::AFFINITY || stage == LaunchStage::REAL_TIME ||
           stage == LaunchStage::GROUPS || stage == LaunchStage::GID || stage == LaunchStage::UID;
}

}  // namespace

ExitNote WhyLaunchFailed(ProcMgr::LaunchStage stage, int error) {
    ExitNote why{ExitReason::OTHER, static_cast<uint32_t>(error)};
    const auto* const row =
        std::find_if(kExecErrors.begin(), kExecErrors.end(), [error](const ErrorRow& at) { return at.error == error; });
    if (error != EIO && IsAttribute(stage)) {
        why.reason = ExitReason::ATTRIBUTE_NOT_HELD;
    } else if (row != kExecErrors.end()) {
        why.reason = row->reason;
    }
    return why;
}

}  // namespace Procmgrd
