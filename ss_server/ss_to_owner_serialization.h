/// The payload texts of requests and responses. A text is a sequence of fields, each ended by '#'; numbers are decimal:
///
///     change request     appCount# then for each application name#optionType#argvSize#arg1#...#argN# and its dynamic
///                        parameters: groupCount# then index#valueNum#v1#...#vK# for each group
///     change response    parts#result# then name#state# for each application; parts is one more than the applications
///     verify request     count# then name#value# for each application
///     set-state request  a signed number, with or without its '#'
///     set-state response result#
///
/// Readers are strict: a missing field or '#', anything but digits in a number, a number that does not fit, and a
/// payload larger than kSsPayloadMax are failures. What stands behind the last field is ignored. They replace their
/// output; after a failure it holds nothing of use, except that a state is then 0. Limits log, other failures do not:
/// the caller says what failed.
///
/// Writers log their failure and leave the response's length alone.
///
/// All functions may be called from any thread.
#ifndef PROCMGR_SS_SERVER_SS_TO_OWNER_SERIALIZATION_H
#define PROCMGR_SS_SERVER_SS_TO_OWNER_SERIALIZATION_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "common/app_records.h"
#include "common/field_reader.h"
#include "ss_server/ss_to_owner_messages.h"

namespace ProcMgr::SS {

/// Applications in one request, arguments of one application, values of one group of dynamic parameters.
inline constexpr size_t kMaxApps = 1024;
inline constexpr size_t kMaxArgs = 1024;
inline constexpr size_t kMaxValues = 1024;

/// Groups of dynamic parameters of one application, and the largest index of one. An index may be negative.
inline constexpr size_t kMaxDynamicGroups = 3;
inline constexpr int32_t kMaxDynamicIndex = 2;

[[nodiscard]] bool UnPackChangeAppInfoRequestMsg(const SsToOwnerRequestMsg& request, std::vector<AppInfo>& apps);

/// Adds the groups to `app`; the values of an index that comes twice are joined.
[[nodiscard]] bool UnPackDynamicPara(FieldReader& reader, AppInfo& app);

/// The last value of a name that comes twice counts.
[[nodiscard]] bool UnPackVerifyRequest(const SsToOwnerRequestMsg& request, std::map<std::string, unsigned int>& apps);

[[nodiscard]] bool UnPackSetSystemStateRequest(const SsToOwnerRequestMsg& request, int& state);

[[nodiscard]] bool PackSetSystemStateResponse(bool ok, SsToOwnerResponseMsg& response);

/// Fails for a text that fills the whole payload, too: one byte stays free.
[[nodiscard]] bool PackChangeAppInfoResponse(bool ok, const std::vector<AppChangeInfo>& apps,
                                             SsToOwnerResponseMsg& response);

}  // namespace ProcMgr::SS

#endif
