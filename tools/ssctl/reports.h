/// What an answer means for the one who asked.
#ifndef SSCTL_REPORTS_H
#define SSCTL_REPORTS_H

#include <cstdint>
#include <string>
#include <vector>

#include "ss_server/ss_to_owner_messages.h"
#include "tools/ssctl/answers.h"
#include "tools/ssctl/outcome.h"

namespace Ssctl {

/// The operation that each line of the answer is about: "start", "stop", "restart", or empty when it was not asked for.
/// An answer tells all starts, then all stops, then all restarts; an instance belongs to its template's order. When an
/// application was asked for several and has fewer lines, the operations that are carried out last are missing.
[[nodiscard]] std::vector<std::string> MatchActions(const std::vector<ProcMgr::AppInfo>& asked,
                                                    const std::vector<AppChangeInfo>& answered);

[[nodiscard]] Outcome ReportChange(const std::vector<ProcMgr::AppInfo>& asked, const ChangeAnswer& answer);
[[nodiscard]] Outcome ReportList(const ListAnswer& answer, bool namesOnly);

/// Of all the states together; `asked` names.
[[nodiscard]] Outcome ReportState(size_t asked, const StateAnswer& answer);

/// The member "event" of an event's document.
[[nodiscard]] Outcome ReportEvent(uint32_t state);

/// The printable name of a system state, or "UNKNOWN".
[[nodiscard]] std::string SystemStateName(int64_t state);

}  // namespace Ssctl

#endif
