/// A process manager in a folder of its own, manifests, and the notes that applications of the tests send.
#ifndef TESTS_DAEMONS_PROCMGRD_DAEMON_FIXTURE_H
#define TESTS_DAEMONS_PROCMGRD_DAEMON_FIXTURE_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/daemons/procmgrd/owner_client.h"
#include "tests/integration/child_process.h"

namespace ProcmgrdTest {

class DaemonTest : public testing::Test {
protected:
    DaemonTest();
    /// Stops the daemon, which must leave nothing behind.
    ~DaemonTest() override;

    void StartDaemon(const std::vector<std::string>& options = {});
    void StopDaemon();

    /// Writes <folder>/manifests/<fileName>. ${APP} in it is the application of the tests, ${DIR} the folder.
    void Manifests(const std::string& yaml, const std::string& fileName = "apps.yaml") const;

    /// Connects an owner that loads the manifests.
    std::unique_ptr<OwnerClient> Owner(const std::string& name = "group") const;

    std::string ManifestPath() const { return folder_ + "/manifests"; }
    std::map<std::string, std::string> MatchData() const;

    /// Waits for a note that begins with `begin` and returns the rest. Other notes before it are dropped.
    std::string WaitNote(const std::string& begin) const;
    pid_t WaitPid(const std::string& begin) const { return std::stoi(WaitNote(begin)); }

    /// Starts it and waits until it waits; its pid.
    pid_t StartAndWait(OwnerClient& owner, const std::string& app) const;

    /// The processes with our run folder in their environment that still live.
    std::vector<pid_t> Survivors() const;

    const std::string& Folder() const { return folder_; }
    std::string RunDir() const { return folder_ + "/run"; }

    std::unique_ptr<ChildProcess> daemon_;
    std::map<std::string, std::string> environment_ = {{"PROCMGR_LOG_LEVEL", "debug"}};  ///< of the daemon

private:
    std::string folder_;
    int notes_ = -1;
};

/// True while a process of that number lives; a zombie does not.
bool Lives(pid_t pid);

/// Waits until it does not; false when patience ended.
bool WaitGone(pid_t pid);

/// The number of children of a process that are zombies.
size_t ZombieChildren(pid_t parent);

}  // namespace ProcmgrdTest

#endif
