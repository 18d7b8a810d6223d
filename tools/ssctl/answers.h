/// Answers of a group owner. The readers trust nothing: an answer is taken only when it is whole and exact, and nothing
/// stands behind it. Numbers outside the known ones are kept, so that a newer owner's can be shown.
#ifndef SSCTL_ANSWERS_H
#define SSCTL_ANSWERS_H

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "common/app_records.h"
#include "ss_server/ss_to_owner_messages.h"
#include "tools/ssctl/checked.h"

namespace Ssctl {

using Record = std::array<char, ProcMgr::kSsRecordSize>;

struct ChangeAnswer {
    bool ok = false;
    std::vector<AppChangeInfo> apps;  ///< states as they came, also unknown ones
};

struct ListAnswer {
    bool ok = false;
    std::vector<std::string> names;
};

struct StateAnswer {
    bool ok = false;
    std::vector<AppStatus> apps;
};

/// The payload of the record that a request of this result came back with. An empty one is no answer: the owner had one
/// that did not fit.
[[nodiscard]] Checked<std::string> TakePayload(int result, const Record& record);

[[nodiscard]] Checked<ChangeAnswer> ReadChange(const std::string& payload);
[[nodiscard]] Checked<ListAnswer> ReadList(const std::string& payload);
[[nodiscard]] Checked<StateAnswer> ReadState(const std::string& payload);

/// "1" or "0": of verify, reload, dump and stop-all.
[[nodiscard]] Checked<bool> ReadFlag(const std::string& payload);

/// "1#" or "0#": of set-state.
[[nodiscard]] Checked<bool> ReadFlagField(const std::string& payload);

/// The state that an event tells.
[[nodiscard]] Checked<uint32_t> ReadEvent(const std::string& text);

}  // namespace Ssctl

#endif
