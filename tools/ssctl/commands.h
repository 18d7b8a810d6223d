/// The commands: each makes its requests, has them asked, and says what came out. How they are asked is the caller's
/// business, so that everything here runs without a group owner, too.
#ifndef SSCTL_COMMANDS_H
#define SSCTL_COMMANDS_H

#include <functional>
#include <string>

#include "tools/ssctl/answers.h"
#include "tools/ssctl/command_line.h"
#include "tools/ssctl/outcome.h"
#include "tools/ssctl/requests.h"

namespace Ssctl {

/// What became of a request.
enum class Delivery {
    ANSWERED,
    NO_SERVICE,  ///< nobody listens
    LOST,        ///< the service went away before it answered
    DENIED,
    TIMED_OUT,
    BAD_NAME,  ///< no service can have the name
    FAILED,    ///< anything else
};

struct Reply {
    Delivery delivery = Delivery::FAILED;
    int result = 0;      ///< of the service; negative when it refused the request as such
    Record record{};     ///< after an answer
    std::string detail;  ///< more about what went wrong; may be empty
};

using Ask = std::function<Reply(const Request&)>;

/// Runs any command but "events". A request that can't be sent is refused before `ask` is called.
[[nodiscard]] Outcome RunCommand(const CommandLine& line, const Ask& ask);

/// What the command waits for, for the line that shows the progress: "stopping 1, starting 2".
[[nodiscard]] std::string DescribeWork(const CommandLine& line);

/// What to say when a request was not answered.
[[nodiscard]] Outcome ComplainOfDelivery(const CommandLine& line, const Reply& reply);

}  // namespace Ssctl

#endif
