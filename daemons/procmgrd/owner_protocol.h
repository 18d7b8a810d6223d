/// The records that an owner and the process manager exchange, from the process manager's side. pm_agent has the other
/// side and describes the texts.
///
/// The readers are strict: a piece of which anything is wrong, be it a missing field, a number that is none, a count
/// that the text does not bear out, an empty name, a NUL byte or bytes behind the last entry, is refused as a whole.
/// Outputs are written only on success. Everything here is pure.
#ifndef PROCMGR_PROCMGRD_OWNER_PROTOCOL_H
#define PROCMGR_PROCMGRD_OWNER_PROTOCOL_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "pm_agent/message_records.h"
#include "pm_agent/request_msg.h"

namespace Procmgrd {

/// Longer names of applications are refused, so that every report fits one record.
inline constexpr size_t kMaxAppName = 3900;

/// One record as it came over the pipe: the kind, and the meaningful bytes of its data. False for any other size than
/// that of a record.
[[nodiscard]] bool ReadRecord(const std::string& bytes, uint32_t& type, std::string& text);

/// START_APP and RESTART_APP, whose texts are the same.
[[nodiscard]] bool ReadStartPiece(const std::string& text, std::vector<ProcMgr::Message::StartAppInfo>& apps);
[[nodiscard]] bool ReadTermPiece(const std::string& text, std::vector<ProcMgr::Message::TermAppInfo>& apps);
[[nodiscard]] bool ReadConfigPiece(const std::string& text, ProcMgr::Message::StartupCfgInfo& config);
[[nodiscard]] bool ReadExecPiece(const std::string& text, ProcMgr::Message::AppExecInfo& info);
[[nodiscard]] bool ReadBaseServicePiece(const std::string& text, ProcMgr::Message::BaseServiceStateInfo& info);

/// QUERY_APP_STATE, which is binary. Names may be empty here; they are only looked up.
[[nodiscard]] bool ReadQuery(const std::string& data, std::vector<std::string>& names);

/// APP_STATE_REPORT records, as many as needed, in the order given.
std::vector<ProcMgr::Message::RequestMsg> WriteStateReports(const std::vector<ProcMgr::Message::AppStateInfo>& reports);

/// QUERY_APP_STATE_RESP records: the name and the state of each.
std::vector<ProcMgr::Message::RequestMsg> WriteQueryAnswer(const std::vector<std::pair<std::string, uint32_t>>& states);

/// The answer to a configuration call.
std::string WriteResult(int result);

}  // namespace Procmgrd

#endif
