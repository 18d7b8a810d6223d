#include "tests/grp_owner/group_fixture.h"

#include "common/enumeration_names.h"

namespace ProcMgr {

namespace {

std::string NameOf(AppReportState state) {
    static const char* const names[] = {"SWITCH_ON",           "SWITCH_OFF",    "HEART_BEAT_LOST",
                                        "HEART_BEAT_RECOVERY", "ABNORMAL_EXIT", "ACTIVELY_EXIT"};
    return names[static_cast<size_t>(state)];
}

}  // namespace

std::function<bool(const std::string&, int, AppReportState)> Listener::Subscriber() {
    return [this](const std::string& name, int pid, AppReportState state) {
        TakeHeartBeats();
        heard_.push_back(name + " " + std::to_string(pid) + " " + NameOf(state));
        if (onNotice) {
            onNotice(name, state);
        }
        return answer;
    };
}

std::vector<std::string> Listener::Heard() {
    TakeHeartBeats();
    return heard_;
}

void Listener::Clear() {
    TakeHeartBeats();
    heard_.clear();
}

void Listener::TakeHeartBeats() {
    const std::vector<std::string> lines = FakeHeartBeat::Get().Lines();
    for (; heartBeats_ < lines.size(); ++heartBeats_) {
        heard_.push_back(lines[heartBeats_]);  // NOLINT(performance-inefficient-vector-operation)
    }
}

GroupTest::GroupTest() {
    manager_.UseClocks(clocks_);
    clocks_.OnWait([this] { return processManager_.Step(); });
    GrpOwnerServer::SubscribeAppState(listener_.Subscriber());
    Forget();
}

GroupTest::~GroupTest() {
    ProcMgrAgent::GetInstance().ClosePipe();
    GrpOwnerServer::SubscribeAppState({});
    manager_.UseClocks(WaitClocks::System());
    FakeLog::Get().OnLine(nullptr);
}

GroupTest::Strings GroupTest::LinesOf(const std::string& file) {
    Strings lines;
    for (const FakeLog::Record& record : FakeLog::Get().Records()) {
        if (record.file == file) {
            lines.push_back(record.ToString());
        }
    }
    return lines;
}

void GroupTest::Forget() {
    FakeLog::Get().Clear();
    FakePipe::Get().ClearSent();
}

AppStateType GroupTest::StateOf(const std::string& name) const {
    const std::shared_ptr<Application> app = manager_.FindApplicationSilently(name);
    EXPECT_NE(app, nullptr) << name;
    return app == nullptr ? AppStateType::INIT_STATE : app->GetAppStateType();
}

std::string GroupTest::Text(const std::vector<AppChangeInfo>& infos) {
    std::string text;
    for (const AppChangeInfo& info : infos) {
        text += (text.empty() ? "" : " ") + info.appName + "=" + GetAppState(ToValue(info.state));
    }
    return text;
}

ServerTest::ServerTest()
    : server_([this] {
          ++pauses_;
          if (onPause_) {
              onPause_();
          }
      }) {
    ProcMgrAgent& agent = ProcMgrAgent::GetInstance();
    agent.RegAppStateChangeCallBackImpl(
        [this](const std::vector<Message::AppStateInfo>& infos) { server_.ReportAppStateFromProcMgr(infos); });
    agent.RegQueryAppStateCallBackImpl(
        [this](const std::map<std::string, unsigned int>& states) { server_.QueryAppStateRespFromProcMgr(states); });
    Forget();
}

void ServerTest::Load(const std::vector<ApplicationManifest>& manifests) {
    FakeManifests::Get().SetManifests(manifests);
    ASSERT_TRUE(manager_.ApplicationMgrInit("/group/manifests"));
    processManager_.ClearRequests();
    Forget();
}

void ServerTest::BringUp(const Strings& names) {
    std::vector<AppInfoForServer> apps;
    for (const std::string& name : names) {
        apps.push_back(App(name));
    }
    std::vector<AppChangeInfo> infos;
    ASSERT_TRUE(manager_.ChangeApp({}, apps, {}, infos, 5000)) << Text(infos);
    processManager_.ClearRequests();
    listener_.Clear();
    Forget();
}

void ServerTest::Tell(const std::string& name, Report kind, uint32_t pid, uint32_t reason) {
    server_.ReportAppStateFromProcMgr({Info(name, kind, pid, reason)});
}

Message::AppStateInfo ServerTest::Info(const std::string& name, Report kind, uint32_t pid, uint32_t reason) {
    return {name, pid, 0, static_cast<uint32_t>(kind), reason};
}

}  // namespace ProcMgr
