/// Runs ssctl as a person or a script would.
#ifndef TESTS_TOOLS_SSCTL_RUNS_H
#define TESTS_TOOLS_SSCTL_RUNS_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/integration/group_fixture.h"

/// What a run came to.
struct SsctlResult {
    int exitCode = -1;
    std::string output;     ///< standard output
    std::string complaint;  ///< standard error
};

/// True when the process has ended, though nobody may have waited for it yet.
bool HasEnded(const ChildProcess& child);

class SsctlRuns : public GroupFixture {
protected:
    /// Boots the group of the manifests with the resource "grp_owner".
    void BootWithResource();

    /// Runs ssctl with these words and waits for its end.
    SsctlResult Ssctl(const std::vector<std::string>& words) const;

    /// The one document that it prints with --json.
    nlohmann::json Document(std::vector<std::string> words) const;

    /// Runs it on a terminal; `output` has all that the terminal got.
    SsctlResult OnTerminal(const std::vector<std::string>& words) const;

    static std::string Program();
};

#endif
