/// A folder of its own with manifests, a run directory and the two daemons: what a test of a whole group needs.
#ifndef TESTS_INTEGRATION_GROUP_FIXTURE_H
#define TESTS_INTEGRATION_GROUP_FIXTURE_H

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/integration/child_process.h"

class GroupFixture : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    /// Writes `yaml` as a manifest file; "$APP" in it becomes the path of the example application.
    void Manifests(const std::string& fileName, std::string yaml) const;

    /// Starts the process manager and waits until it is ready.
    void StartManager(const std::vector<std::string>& options = {});

    /// Starts the group owner and waits for nothing.
    void StartOwner(const std::vector<std::string>& options = {});

    /// Starts both and waits until the group is up.
    void Boot();

    /// The process of an application: the last one of the lines so far that told its coming up. Waits for the first
    /// one.
    pid_t PidOf(const std::string& application);

    /// Where the owner's output tells this event first; waits for it.
    size_t PositionOf(const std::string& event, const std::string& application);

    /// True when the owner's output so far tells nothing of the application.
    bool IsUntold(const std::string& application) const;

    /// The processes that the process manager started in this run directory and that are still there.
    std::vector<pid_t> LeftOver() const;

    const std::string& Folder() const { return folder_; }

    std::unique_ptr<ChildProcess> manager_;
    std::unique_ptr<ChildProcess> owner_;
    std::map<std::string, std::string> environment_;

private:
    std::string folder_;
};

/// True when the process is there and no zombie.
bool IsAlive(pid_t pid);

/// Waits until the process, which need not be a child, is gone; false when patience ended first.
bool WaitUntilGone(pid_t pid);

#endif
