/// The binary payloads of a state query and of its answer. Numbers are 32-bit in host byte order and unaligned, names
/// have a length in front and no terminator:
///
///     query   count, then length and name for each application
///     answer  one byte with the result, count, then length, name, pid and state for each application
#ifndef PROCMGR_SS_SERVER_STATE_QUERY_PAYLOAD_H
#define PROCMGR_SS_SERVER_STATE_QUERY_PAYLOAD_H

#include <string>
#include <vector>

#include "common/app_records.h"
#include "ss_server/ss_to_owner_messages.h"

namespace ProcMgr::SS {

/// Replaces `names`. False for a payload larger than kSsPayloadMax, and when the count or a length says more than there
/// is. Bytes behind the last name are ignored.
[[nodiscard]] bool ReadStateQuery(const SsToOwnerRequestMsg& request, std::vector<std::string>& names);

/// Writes the payload and its length. False when not all entries fit; the response then holds those before the first
/// that does not, whole and counted. (An answer is longer than its query.)
[[nodiscard]] bool WriteStateAnswer(bool ok, const std::vector<AppStatus>& states, SsToOwnerResponseMsg& response);

}  // namespace ProcMgr::SS

#endif
