/// The wire texts of requests to the process manager, their distribution over records, and the reader of the process
/// manager's state reports. No input or output happens here.
///
/// A text is a sequence of fields, each ended by '#'; numbers are decimal. A piece, the payload of one record, is the
/// number of its entries as a field, then the entries:
///
///     start, restart  name#argc#arg1#...#argN# and the dynamic parameters: count# then key#count#v1#...#vK# for each
///     term            name#
///     execution       name#state#value1#value2#
///     base service    state#
///     configuration   path#count#key1#value1#...#keyN#valueN#
///
/// A state report is count# and for each entry name#pid#value1#state#reason#.
///
/// Packers append their entries to a list, one for each element; a false return leaves those before the failing one in
/// it. All functions may be called from any thread.
#ifndef PROCMGR_PM_AGENT_PROCMGR_AGENT_SERIALIZATION_H
#define PROCMGR_PM_AGENT_PROCMGR_AGENT_SERIALIZATION_H

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "pm_agent/message_records.h"
#include "pm_agent/request_msg.h"

namespace ProcMgr::Serialization {

/// The text of one entry with its length in bytes in front, which makes lists of them sort by length first.
using PackedRequest = std::pair<uint32_t, std::string>;
using PackedRequests = std::vector<PackedRequest>;

/// Each of these logs and returns false at the first entry of Message::kPmEntryMax bytes or more.
[[nodiscard]] bool ProcMgrPackStartRequest(const std::vector<Message::StartAppInfo>& apps, PackedRequests& packed);
[[nodiscard]] bool ProcMgrPackRestartRequest(const std::vector<Message::RestartAppInfo>& apps, PackedRequests& packed);
[[nodiscard]] bool ProcMgrPackTermRequest(const std::vector<Message::TermAppInfo>& apps, PackedRequests& packed);
[[nodiscard]] bool ProcMgrPackAppExecInfoRequest(const Message::AppExecInfo& info, PackedRequests& packed);
[[nodiscard]] bool ProcMgrPackBaseServiceStateRequest(Message::BaseServiceStateInfo info, PackedRequests& packed);
[[nodiscard]] bool ProcMgrPackMatchDataAndPathRequest(const Message::StartupCfgInfo& info, PackedRequests& packed);

/// Writes the dynamic parameters of one application; none: "0#".
void PackDynamicPara(std::ostream& out, const Message::DynamicPara& dynamicPara);

/// How many of `packed`, in this order, go into each piece. Logs and stops at an entry that fits no piece: it and all
/// behind it are in no piece.
[[nodiscard]] std::vector<uint32_t> CalculateWindows(const PackedRequests& packed);

/// Sorts `packed` by length, then by bytes, and appends one record of `type` for each piece. False, with a message,
/// when there is no entry at all; true even when CalculateWindows left entries out.
[[nodiscard]] bool ProcMgrCombinePiecesMsg(Message::RequestType type, PackedRequests& packed,
                                           std::vector<Message::RequestMsg>& messages);

/// Appends one record of `type` with `count` entries, whose texts are `text`. One that does not fit is logged and
/// appended without data, its `size` as large as the text.
void ProcMgrCombineMsg(Message::RequestType type, uint32_t count, const std::string& text,
                       std::vector<Message::RequestMsg>& messages);

/// Reads a state report into `states`, which it replaces. Tolerant: what a short or broken text does not give stays 0
/// or empty. False, with a message and an empty list, only for a count of 2000 or more.
[[nodiscard]] bool ProcMgrUnpackedAppStateRequest(const Message::RequestMsg& message,
                                                  std::vector<Message::AppStateInfo>& states);

}  // namespace ProcMgr::Serialization

#endif
