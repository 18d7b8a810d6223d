/// How a check is told: to people and to scripts.
#ifndef PROCMGR_PLATFORM_POSIX_MANIFEST_CHECK_CHECK_REPORT_H
#define PROCMGR_PLATFORM_POSIX_MANIFEST_CHECK_CHECK_REPORT_H

#include <string>

#include "platform/posix/manifest_check/manifest_check.h"

namespace ProcMgr {

/// What goes to the standard output, and the exit code: 0 when there are no errors, otherwise 1.
struct CheckReport {
    std::string text;
    int exitCode = 0;
};

/// One line for each error and warning, and a line with their numbers.
[[nodiscard]] CheckReport TellPeople(const CheckResult& result);

/// One document in one line, as docs/ssctl.schema.json has it.
[[nodiscard]] CheckReport TellScripts(const CheckRequest& request, const CheckResult& result);

/// The whole of it, for the programs that offer it.
[[nodiscard]] CheckReport RunCheck(const CheckRequest& request, bool wantsDocument);

}  // namespace ProcMgr

#endif
