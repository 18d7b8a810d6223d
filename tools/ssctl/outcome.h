/// What a command came to, and the texts that say so: for people, for scripts, and what went wrong.
#ifndef SSCTL_OUTCOME_H
#define SSCTL_OUTCOME_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/ssctl/table.h"

namespace Ssctl {

/// Part of the interface: scripts depend on the numbers.
enum class ExitCode { DONE = 0, REFUSED = 1, USAGE = 2, NO_SERVICE = 3, TIMED_OUT = 4 };

/// Why a command did not do all of its work. The kinds are part of the interface, too; each has one exit code.
enum class Fault {
    NONE,
    REFUSED,     ///< the owner said no to all of it
    FAILED,      ///< it did not work for some applications
    DENIED,      ///< the user may not do that
    BAD_ANSWER,  ///< what came back is no answer
    USAGE,
    NO_SERVICE,
    TIMED_OUT,
    BAD_MANIFESTS,  ///< there are errors in them
};

/// More to show below the rest, behind an empty line; each may be empty.
struct Section {
    std::string sentence;
    Table table;
};

struct Outcome {
    Fault fault = Fault::NONE;
    std::string problem;  ///< what went wrong, without its full stop
    std::string advice;   ///< what to do next, in whole sentences

    // What to show; each may be empty.
    Table table;
    std::string sentence;
    std::vector<Section> sections;
    std::string text;                                                   ///< goes out as it is: what other programs read
    nlohmann::ordered_json members = nlohmann::ordered_json::object();  ///< of the document
};

/// Who is spoken to and with what; a command that speaks to nobody has the path of what it reads instead.
struct Subject {
    std::string command;
    std::string resource;
    std::string path = {};
};

[[nodiscard]] ExitCode ExitCodeOf(Fault fault);

[[nodiscard]] Outcome Complain(Fault fault, std::string problem, std::string advice);

/// For the standard output: the sentence and the table.
[[nodiscard]] std::string RenderText(const Outcome& outcome, bool wantsColour);

/// For the standard error; empty when all went well.
[[nodiscard]] std::string RenderComplaint(const Outcome& outcome);

/// For scripts: one document in one line, as the schema has it.
[[nodiscard]] std::string RenderDocument(const Subject& subject, const Outcome& outcome);

}  // namespace Ssctl

#endif
