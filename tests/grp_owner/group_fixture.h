/// What the tests of the server and of the facade share: a group with clocks that stand still, a process manager that
/// answers when the manager waits, and a subscriber that notes what it hears, with the heartbeat calls in between.
#ifndef PROCMGR_TESTS_GRP_OWNER_GROUP_FIXTURE_H
#define PROCMGR_TESTS_GRP_OWNER_GROUP_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "app_manager/application_manager.h"
#include "grp_owner/grp_owner_server.h"
#include "pm_agent/procmgr_agent.h"
#include "tests/app_manager/fake_clocks.h"
#include "tests/app_manager/fake_process_manager.h"
#include "tests/fake_platform/fake_platform.h"

namespace ProcMgr {

/// Notes what a subscriber hears ("cam 7 SWITCH_ON") and, before it, the heartbeat calls made meanwhile.
class Listener {
public:
    std::function<bool(const std::string&, int, AppReportState)> Subscriber();

    /// Everything so far, the heartbeat calls of after the last notification at the end.
    std::vector<std::string> Heard();
    void Clear();

    /// Called after a notification was noted.
    std::function<void(const std::string& name, AppReportState state)> onNotice;

    bool answer = true;

private:
    void TakeHeartBeats();

    std::vector<std::string> heard_;
    size_t heartBeats_ = 0;
};

class GroupTest : public ::testing::Test {
protected:
    using Report = Message::ReportAppStateType;
    using Strings = std::vector<std::string>;

    GroupTest();
    ~GroupTest() override;

    static AppInfoForServer App(const std::string& name, const Strings& args = {}) { return {name, args, {}}; }

    /// The lines of one source file, in order: "INFO text".
    static Strings LinesOf(const std::string& file);

    static void Forget();

    bool IsKnown(const std::string& name) const { return manager_.FindApplicationSilently(name) != nullptr; }
    AppStateType StateOf(const std::string& name) const;

    /// What the answer of a change says: "a=SUCCESS b=TERM_FAILED".
    static std::string Text(const std::vector<AppChangeInfo>& infos);

    ApplicationManager& manager_ = ApplicationManager::GetInstance();
    FakeClocks clocks_;
    FakeProcessManager processManager_;
    Listener listener_;
};

/// The server alone, wired to the agent as the facade does it.
class ServerTest : public GroupTest {
protected:
    ServerTest();

    /// Initialises the manager with these manifests and forgets what was logged and sent meanwhile.
    void Load(const std::vector<ApplicationManifest>& manifests);

    /// Starts applications for a test that is about what follows; forgets what was logged, sent and heard.
    void BringUp(const Strings& names);

    /// One report of the process manager, on this thread.
    void Tell(const std::string& name, Report kind, uint32_t pid = 0, uint32_t reason = 0);

    static Message::AppStateInfo Info(const std::string& name, Report kind, uint32_t pid = 0, uint32_t reason = 0);

    static Strings ServerLines() { return LinesOf("grp_owner_server.cpp"); }

    int pauses_ = 0;
    std::function<void()> onPause_;
    GrpOwnerServer server_;
};

}  // namespace ProcMgr

#endif
