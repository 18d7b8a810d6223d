#include "platform/posix/manifest_check/check_report.h"

#include <algorithm>
#include <array>

#include "platform/posix/common_posix/rows_in_order.h"
#include "platform/posix/manifest_check/json_document.h"

namespace ProcMgr {
namespace {

using Json = nlohmann::ordered_json;

struct FaultRow {
    ManifestFault fault;
    const char* name;
    bool isError;  ///< something of the group will not work as it is written; a warning may be meant like that
};

constexpr std::array<FaultRow, 13> kFaults = {{
    {ManifestFault::UNREADABLE, "unreadable", true},
    {ManifestFault::SYNTAX, "syntax", true},
    {ManifestFault::SCHEMA, "schema", true},
    {ManifestFault::NO_MANIFEST, "no_manifest", false},
    {ManifestFault::DUPLICATE_NAME, "duplicate_name", true},
    {ManifestFault::CYCLE, "cycle", true},
    {ManifestFault::UNKNOWN_DEPENDENCY, "unknown_dependency", true},
    {ManifestFault::TEMPLATE_DEPENDENCY, "template_dependency", true},
    {ManifestFault::TEMPLATE_AT_BOOT, "template_at_boot", false},
    {ManifestFault::BOOT_DEPENDENCY, "boot_dependency", true},
    {ManifestFault::NEVER_RESTARTS, "never_restarts", true},
    {ManifestFault::NO_EFFECT, "no_effect", false},
    {ManifestFault::PROGRAM, "program", false},
}};

static_assert(RowsAreInOrder(kFaults, &FaultRow::fault), "a fault is the index of its row");

const FaultRow& RowOf(const ManifestError& error) {
    return kFaults[static_cast<size_t>(error.fault)];
}

const char* SeverityOf(const ManifestError& error) {
    return RowOf(error).isError ? "error" : "warning";
}

size_t CountErrors(const CheckResult& result) {
    return static_cast<size_t>(std::count_if(result.found.begin(), result.found.end(),
                                             [](const ManifestError& error) { return RowOf(error).isError; }));
}

std::string Count(size_t number, const std::string& what) {
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

int ExitCode(const CheckResult& result) {
    return CountErrors(result) == 0 ? 0 : 1;
}

template <typename Value>
Json OrNull(bool isKnown, const Value& value) {
    return isKnown ? Json(value) : Json();
}

Json Finding(const ManifestError& error) {
    return {{"severity", SeverityOf(error)},
            {"kind", RowOf(error).name},
            {"file", error.file},
            {"line", OrNull(error.line > 0, error.line)},
            {"column", OrNull(error.line > 0, error.column)},
            {"key", OrNull(!error.key.empty(), error.key)},
            {"application", OrNull(!error.application.empty(), error.application)},
            {"related", error.related},
            {"message", error.text}};
}

}  // namespace

CheckReport TellPeople(const CheckResult& result) {
    std::string text;
    for (const ManifestError& error : result.found) {
        text += SeverityOf(error) + (": " + FormatError(error)) + "\n";
    }
    const size_t errors = CountErrors(result);
    text += Count(result.goodManifests, "good manifest") + ", " + Count(errors, "error") + ", " +
            Count(result.found.size() - errors, "warning") + "\n";
    return {text, ExitCode(result)};
}

CheckReport TellScripts(const CheckRequest& request, const CheckResult& result) {
    const size_t errors = CountErrors(result);
    Json document = {{"schema", kDocumentSchema},
                     {"command", "check"},
                     {"path", request.path},
                     {"ok", errors == 0},
                     {"exit_code", ExitCode(result)},
                     {"good_manifests", result.goodManifests},
                     {"errors", errors},
                     {"warnings", result.found.size() - errors},
                     {"findings", Json::array()}};
    for (const ManifestError& error : result.found) {
        document["findings"].push_back(Finding(error));
    }
    if (errors != 0) {
        document["error"] = {{"kind", "bad_manifests"},
                             {"message", Count(errors, "error") + " in the manifests"},
                             {"advice", "See 'findings'."}};
    }
    return {InOneLine(document), ExitCode(result)};
}

CheckReport RunCheck(const CheckRequest& request, bool wantsDocument) {
    const CheckResult result = CheckManifests(request);
    return wantsDocument ? TellScripts(request, result) : TellPeople(result);
}

}  // namespace ProcMgr
