/// The answer to a configuration call: one signed decimal number, with or without a '#' behind it.
#ifndef PROCMGR_PM_AGENT_CALL_RESULT_H
#define PROCMGR_PM_AGENT_CALL_RESULT_H

#include <cstdint>
#include <string_view>

namespace ProcMgr {

/// The number; -1 for any other text, so that a broken answer never counts as success.
[[nodiscard]] int32_t ReadCallResult(std::string_view text);

}  // namespace ProcMgr

#endif
