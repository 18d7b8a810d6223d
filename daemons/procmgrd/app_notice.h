/// What a datagram of an application says about it. Pure.
///
/// A datagram is made of lines. Two kinds of them are known, and may stand together: those of our own library
/// ("procmgr 1 on", "procmgr 1 off", "procmgr 1 beat") and the assignments with which programs tell a service manager
/// of their readiness ("READY=1", "STOPPING=1", "WATCHDOG=1", "STATUS=...", "BARRIER=1"). Anything may come: what is
/// not known is passed over, and what is known in the same datagram still counts.
#ifndef PROCMGR_PROCMGRD_APP_NOTICE_H
#define PROCMGR_PROCMGRD_APP_NOTICE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Procmgrd {

/// Bytes of the longest datagram that is read whole.
inline constexpr size_t kAppNoticeMax = 4096;

struct AppNotice {
    std::optional<uint32_t> appState;   ///< 0 on, 1 off; the last one counts
    std::optional<std::string> status;  ///< with its control characters written out; the last one counts
    bool isBeat = false;
    bool isBarrier = false;
    bool isUnderstood = false;  ///< one of the above, or an assignment that nobody here handles
};

/// `isWhole`: the datagram was not cut; otherwise its last line, which may be half of one, is passed over.
AppNotice ReadAppNotice(std::string_view datagram, bool isWhole);

}  // namespace Procmgrd

#endif
