#include "tools/ssctl/outcome.h"

#include <array>
#include <cstddef>
#include <utility>

#include "platform/posix/common_posix/rows_in_order.h"
#include "platform/posix/manifest_check/json_document.h"

namespace Ssctl {

namespace {

using Json = nlohmann::ordered_json;

struct FaultRow {
    Fault fault;
    const char* name;
    ExitCode exit;
};

constexpr std::array<FaultRow, 9> kFaults = {{
    {Fault::NONE, "none", ExitCode::DONE},
    {Fault::REFUSED, "refused", ExitCode::REFUSED},
    {Fault::FAILED, "failed", ExitCode::REFUSED},
    {Fault::DENIED, "denied", ExitCode::REFUSED},
    {Fault::BAD_ANSWER, "bad_answer", ExitCode::REFUSED},
    {Fault::USAGE, "usage", ExitCode::USAGE},
    {Fault::NO_SERVICE, "no_service", ExitCode::NO_SERVICE},
    {Fault::TIMED_OUT, "timed_out", ExitCode::TIMED_OUT},
    {Fault::BAD_MANIFESTS, "bad_manifests", ExitCode::REFUSED},
}};

static_assert(ProcMgr::RowsAreInOrder(kFaults, &FaultRow::fault), "a fault is the index of its row");

const FaultRow& RowOf(Fault fault) {
    return kFaults[static_cast<size_t>(fault)];
}

std::string RenderSection(const std::string& sentence, const Table& table, bool wantsColour) {
    const std::string text = sentence.empty() ? "" : Printable(sentence) + "\n";
    return table.columns.empty() ? text : text + RenderTable(table, wantsColour);
}

}  // namespace

ExitCode ExitCodeOf(Fault fault) {
    return RowOf(fault).exit;
}

Outcome Complain(Fault fault, std::string problem, std::string advice) {
    Outcome outcome;
    outcome.fault = fault;
    outcome.problem = std::move(problem);
    outcome.advice = std::move(advice);
    return outcome;
}

std::string RenderText(const Outcome& outcome, bool wantsColour) {
    std::string text = RenderSection(outcome.sentence, outcome.table, wantsColour);
    for (const Section& section : outcome.sections) {
        text += "\n" + RenderSection(section.sentence, section.table, wantsColour);
    }
    return text + outcome.text;
}

std::string RenderComplaint(const Outcome& outcome) {
    if (outcome.problem.empty()) {
        return {};
    }
    std::string text = "ssctl: " + Printable(outcome.problem) + ".\n";
    if (!outcome.advice.empty()) {
        text += "       " + Printable(outcome.advice) + "\n";
    }
    return text;
}

std::string RenderDocument(const Subject& subject, const Outcome& outcome) {
    const FaultRow& row = RowOf(outcome.fault);
    Json document = {{"schema", ProcMgr::kDocumentSchema}, {"command", subject.command}};
    document[subject.path.empty() ? "resource" : "path"] = subject.path.empty() ? subject.resource : subject.path;
    document["ok"] = outcome.fault == Fault::NONE;
    document["exit_code"] = static_cast<int>(row.exit);
    document.update(outcome.members);
    if (outcome.fault != Fault::NONE) {
        document["error"] = {{"kind", row.name}, {"message", outcome.problem}, {"advice", outcome.advice}};
    }
    return ProcMgr::InOneLine(document);
}

}  // namespace Ssctl
