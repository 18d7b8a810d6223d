#include "tests/app_manager/manager_fixture.h"

#include "common/enumeration_names.h"
#include "pm_agent/procmgr_agent.h"

namespace ProcMgr {

void ManagerTest::SetUp() {
    manager_.UseClocks(clocks_);
    clocks_.OnWait([this] { return processManager_.Step(); });
    ProcMgrAgent& agent = ProcMgrAgent::GetInstance();
    agent.RegAppStateChangeCallBackImpl([this](const std::vector<Message::AppStateInfo>& infos) {
        for (const Message::AppStateInfo& info : infos) {
            TakeReport(info);
        }
    });
    agent.RegQueryAppStateCallBackImpl(
        [this](const std::map<std::string, unsigned int>& states) { TakeStates(states); });
}

void ManagerTest::TearDown() {
    ProcMgrAgent::GetInstance().ClosePipe();
    manager_.UseClocks(WaitClocks::System());
    FakeLog::Get().OnLine(nullptr);
}

void ManagerTest::Forget() {
    FakeLog::Get().Clear();
    FakePipe::Get().ClearSent();
}

void ManagerTest::Load(const std::vector<ApplicationManifest>& manifests) {
    FakeManifests::Get().SetManifests(manifests);
    ASSERT_TRUE(manager_.ApplicationMgrInit("/group/manifests"));
    processManager_.ClearRequests();
    Forget();
}

std::string ManagerTest::Text(bool isSuccess, const std::vector<AppChangeInfo>& infos) {
    std::string text = isSuccess ? "true" : "false";
    for (const AppChangeInfo& info : infos) {
        text += " " + info.appName + "=" + GetAppState(ToValue(info.state));
    }
    return text;
}

std::string ManagerTest::Change(const Lists& lists, int timeoutMs) {
    std::vector<AppChangeInfo> infos;
    const bool isSuccess = manager_.ChangeApp(lists.term, lists.start, lists.restart, infos, timeoutMs);
    return Text(isSuccess, infos);
}

void ManagerTest::BringUp(const Strings& names) {
    const std::string answer = Start(names);
    ASSERT_EQ(answer.substr(0, 4), "true") << answer;
    processManager_.ClearRequests();
    Forget();
}

AppStateType ManagerTest::StateOf(const std::string& name) {
    const std::shared_ptr<Application> app = manager_.FindApplicationSilently(name);
    EXPECT_NE(app, nullptr) << name;
    return app == nullptr ? AppStateType::INIT_STATE : app->GetAppStateType();
}

ManagerTest::Strings ManagerTest::ManagerLines() {
    Strings lines;
    for (const FakeLog::Record& record : FakeLog::Get().Records()) {
        if (record.file == "application_manager.cpp") {
            lines.push_back(record.ToString());
        }
    }
    return lines;
}

void ManagerTest::TakeReport(const Message::AppStateInfo& info) {
    const std::string& name = info.appName;
    const auto report = static_cast<Report>(info.appState);
    const auto ended = [this, &name] {
        if (beforeRemoval_) {
            beforeRemoval_(name);
        }
        manager_.RemoveDynamicApplication(name);
    };
    switch (report) {
        case Report::RUNNING_NORMAL_START:
            manager_.ReportRunningNormalStartFromProcMgr(name, info.pid);
            return;
        case Report::RUNNING_NORMAL_RESTART:
            manager_.ReportRunningNormalReStartFromProcMgr(name, info.pid);
            return;
        case Report::RUNNING_ABNORMAL_TERM_TIMEOUT:
            manager_.ReportRunningAbnormalTermTimeoutFromProcMgr(name);
            return;
        case Report::TERMINATED_NORMAL_EXIT:
            manager_.ReportTerminatedNormalFromProcMgr(name);
            ended();
            return;
        case Report::TERMINATED_ABNORMAL_EXIT:
            manager_.ReportTerminatedAbnormalFromProcMgr(name,
                                                         static_cast<Message::AppAbnormalExitReason>(info.reason));
            ended();
            manager_.CheckAndRestartApp(name);
            return;
        case Report::INVALID_INTERMEDIATE_STATE:
            return;
    }
}

void ManagerTest::TakeStates(const std::map<std::string, unsigned int>& states) {
    for (const auto& [name, state] : states) {
        if (const std::shared_ptr<Application> app = manager_.FindApplicationSilently(name)) {
            app->SetQueriedState(static_cast<int32_t>(state));
        }
    }
    ApplicationManager::NotifyQueryAppState();
}

}  // namespace ProcMgr
