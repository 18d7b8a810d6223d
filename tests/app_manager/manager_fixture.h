/// What the manager's tests share: the manager with clocks that stand still, a process manager that answers when the
/// manager waits, and the reports on their usual way into the manager.
#ifndef PROCMGR_TESTS_APP_MANAGER_MANAGER_FIXTURE_H
#define PROCMGR_TESTS_APP_MANAGER_MANAGER_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "app_manager/application_manager.h"
#include "tests/app_manager/fake_clocks.h"
#include "tests/app_manager/fake_process_manager.h"
#include "tests/fake_platform/fake_platform.h"

namespace ProcMgr {

/// Reaches what tests of the records need to see.
class ApplicationManagerPeer {
public:
    static StartAppInfo& BaseStart() { return Manager().baseStartAppInfo_; }
    static StartAppInfo& Start() { return Manager().startAppInfo_; }
    static TermAppInfo& Term() { return Manager().termAppInfo_; }
    static RestartAppResultInfo& Restart() { return Manager().restartAppInfo_; }
    static int32_t ChangeTimeout() { return Manager().changeAppTimeout_; }
    static std::string StartupEntryPath() { return Manager().StartupEntryPath(); }
    static void ReportStart(const std::string& name, AppChangeState state, StartAppInfo& info) {
        ApplicationManager::ReportStartAppResult(name, state, info);
    }
    static void StartNoDepends(const std::vector<AppInfoForServer>& list, StartAppInfo& info) {
        std::vector<const AppInfoForServer*> pointers;
        pointers.reserve(list.size());
        for (const AppInfoForServer& app : list) {
            pointers.push_back(&app);
        }
        Manager().StartNoDependsApps(pointers, info);
    }

private:
    static ApplicationManager& Manager() { return ApplicationManager::GetInstance(); }
};

/// One application of a request: App("cam"), App("cam", {"-v"}).
inline AppInfoForServer App(const std::string& name, const std::vector<std::string>& args = {},
                            const std::map<int32_t, std::vector<std::string>>& dynamicPara = {}) {
    return {name, args, dynamicPara};
}

inline std::vector<AppInfoForServer> Apps(const std::vector<std::string>& names) {
    std::vector<AppInfoForServer> apps;
    apps.reserve(names.size());
    for (const std::string& name : names) {
        apps.push_back(App(name));
    }
    return apps;
}

class ManagerTest : public ::testing::Test {
protected:
    using Report = Message::ReportAppStateType;
    using Strings = std::vector<std::string>;

    struct Lists {
        std::vector<AppInfoForServer> term;
        std::vector<AppInfoForServer> start;
        std::vector<AppInfoForServer> restart;
    };

    /// The answer to a change: "true a=SUCCESS b=INIT".
    static std::string Text(bool isSuccess, const std::vector<AppChangeInfo>& infos);

    void SetUp() override;
    void TearDown() override;

    /// Initialises the manager with these manifests, and forgets what was logged and sent meanwhile.
    void Load(const std::vector<ApplicationManifest>& manifests);

    std::string Change(const Lists& lists, int timeoutMs = 5000);
    std::string Start(const Strings& names, int timeoutMs = 5000) { return Change({{}, Apps(names), {}}, timeoutMs); }
    std::string Term(const Strings& names, int timeoutMs = 5000) { return Change({Apps(names), {}, {}}, timeoutMs); }
    std::string Restart(const Strings& names, int timeoutMs = 5000) { return Change({{}, {}, Apps(names)}, timeoutMs); }

    /// Starts applications for a test that is about what follows; forgets what was logged and sent.
    void BringUp(const Strings& names);

    AppStateType StateOf(const std::string& name);

    /// The lines that the manager logged itself.
    static Strings ManagerLines();

    static void Forget();

    /// What a group owner does with the process manager's reports.
    void TakeReport(const Message::AppStateInfo& info);
    void TakeStates(const std::map<std::string, unsigned int>& states);

    ApplicationManager& manager_ = ApplicationManager::GetInstance();
    FakeClocks clocks_;
    FakeProcessManager processManager_;

    /// Runs between the report of an end and the removal of an instance.
    std::function<void(const std::string& name)> beforeRemoval_;
};

}  // namespace ProcMgr

#endif
