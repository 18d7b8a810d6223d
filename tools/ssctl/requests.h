/// Requests to a group owner, byte for byte as they go out. What does not fit is refused here, before anything is sent.
#ifndef SSCTL_REQUESTS_H
#define SSCTL_REQUESTS_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "ss_server/ss_to_owner_messages.h"
#include "tools/ssctl/checked.h"

namespace Ssctl {

/// The numbers of the requests that the service answers.
enum class RequestKind : unsigned int {
    CHANGE = 0,
    SET_STATE = 2,
    RELOAD = 3,
    DUMP = 4,
    STOP_ALL = 5,
    LIST = 6,
    VERIFY = 8,
    STATE = 9,
};

struct Request {
    RequestKind kind = RequestKind::LIST;
    uint32_t timeoutMs = 0;  ///< that the owner may take, where the request says it
    uint32_t waitMs = 0;     ///< that the answer may take here
    std::string payload;
};

/// The names of one state query.
struct StateBatch {
    std::vector<std::string> names;
    std::string payload;
};

[[nodiscard]] Checked<std::string> WriteChange(const std::vector<ProcMgr::AppInfo>& apps);
[[nodiscard]] Checked<std::string> WriteVerification(const std::map<std::string, uint32_t>& apps);
[[nodiscard]] std::string WriteSystemState(int state);

/// As few queries as it takes, in order, each so small that its answer fits as well.
[[nodiscard]] Checked<std::vector<StateBatch>> WriteStateQueries(const std::vector<std::string>& names);

/// The record as it is sent; bytes behind the payload are zero. The payload must come from a function above.
[[nodiscard]] ProcMgr::SsToOwnerRequestMsg MakeRecord(const Request& request);

}  // namespace Ssctl

#endif
