#include "tools/ssctl/events.h"

#include <cstdint>

#include "tools/ssctl/answers.h"
#include "tools/ssctl/reports.h"

namespace Ssctl {

namespace {

Outcome ComplainOfLateness(const CommandLine& line, uint32_t came) {
    return Complain(Fault::TIMED_OUT,
                    std::to_string(came) + " of " + std::to_string(*line.eventCount) + " events came within " +
                        std::to_string(line.eventTimeoutMs.value_or(0)) + " ms",
                    "Wait longer with --timeout.");
}

Outcome ComplainOfQueue(const CommandLine& line, const EventReply& reply) {
    if (reply.delivery == Delivery::NO_SERVICE) {
        return Complain(Fault::NO_SERVICE,
                        "nobody tells events on '" + QueueName(line) + "' in " + RunDirName(line) +
                            (reply.detail.empty() ? "" : ": " + reply.detail),
                        "Start the group owner with 'grpownerd --resource " + line.resource + " --events " +
                            QueueName(line) + "', or choose another with --queue and --run-dir.");
    }
    CommandLine named = line;
    named.resource = QueueName(line);
    return ComplainOfDelivery(named, {reply.delivery, 0, {}, reply.detail});
}

}  // namespace

Outcome FollowEvents(const CommandLine& line, const Deadline& deadline, const NextEvent& next, const ShowEvent& show) {
    for (uint32_t came = 0; !line.eventCount || came < *line.eventCount; ++came) {
        const EventReply reply = next(deadline);
        if (reply.delivery == Delivery::TIMED_OUT && line.eventTimeoutMs) {
            return line.eventCount ? ComplainOfLateness(line, came) : Outcome();
        }
        if (reply.delivery != Delivery::ANSWERED) {
            return ComplainOfQueue(line, reply);
        }
        const auto state = ReadEvent(reply.text);
        if (!state) {
            return Complain(Fault::BAD_ANSWER, state.What(), "Is '" + QueueName(line) + "' a group owner's queue?");
        }
        if (!show(ReportEvent(*state))) {
            break;
        }
    }
    return {};
}

}  // namespace Ssctl
