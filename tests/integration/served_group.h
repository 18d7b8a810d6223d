/// A group that is driven by `ssctl`, and what its processes are like.
#ifndef TESTS_INTEGRATION_SERVED_GROUP_H
#define TESTS_INTEGRATION_SERVED_GROUP_H

#include <string>
#include <vector>

#include "tests/integration/gate.h"
#include "tests/tools/ssctl_runs.h"

class ServedGroup : public SsctlRuns {
protected:
    /// The application's state and process as the group owner tells them now; the process is 0 without one.
    std::string StateOf(const std::string& name) const;
    pid_t PidNow(const std::string& name) const;

    /// The process's command line or environment, its zeros written as blanks.
    static std::string CommandLineOf(pid_t pid);
    static std::string EnvironmentOf(pid_t pid);

    /// A manifest's `bin_path` and `arguments` of an application that ignores SIGTERM and says "deaf" once it does.
    static std::string Deaf(const Gate& never);

    /// The same of a self-reporting application that reports when the gate opens.
    static std::string ReadyBehind(const Gate& gate);

    /// A request that goes on while the test does.
    std::unique_ptr<ChildProcess> Begin(std::vector<std::string> words) const;

    /// How often the owner's output so far tells this event of the application.
    int CountOf(const std::string& event, const std::string& application) const;

    void ExpectRun(const SsctlResult& run, int exitCode, const std::string& output) const;
};

#endif
