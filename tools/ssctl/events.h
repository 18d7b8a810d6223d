/// Following the system events of a group owner.
#ifndef SSCTL_EVENTS_H
#define SSCTL_EVENTS_H

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "tools/ssctl/command_line.h"
#include "tools/ssctl/commands.h"
#include "tools/ssctl/outcome.h"

namespace Ssctl {

using Deadline = std::optional<std::chrono::steady_clock::time_point>;

/// The next event, or why there is none.
struct EventReply {
    Delivery delivery = Delivery::FAILED;  ///< TIMED_OUT when the deadline passed
    std::string text;                      ///< of the event
    std::string detail;
};

/// Waits for an event, for ever without a deadline.
using NextEvent = std::function<EventReply(const Deadline&)>;

/// Called for each event as it comes; false ends the following.
using ShowEvent = std::function<bool(const Outcome&)>;

/// Follows until the wanted number of events came, the deadline passed, the service went away or nobody
/// wants to be shown more. Without a wanted
/// number the deadline is no failure.
[[nodiscard]] Outcome FollowEvents(const CommandLine& line, const Deadline& deadline, const NextEvent& next,
                                   const ShowEvent& show);

}  // namespace Ssctl

#endif
