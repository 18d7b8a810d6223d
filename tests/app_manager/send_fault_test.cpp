#include <algorithm>
#include <ostream>
#include <set>

#include "tests/app_manager/manager_fixture.h"

namespace ProcMgr {
namespace {

constexpr size_t kForEver = 1000000;

/// Which of a scenario's sends fail.
struct Fault {
    size_t first;
    size_t count;

    friend std::ostream& operator<<(std::ostream& out, const Fault& fault) {
        return out << "sends from " << fault.first << " on, " << fault.count << " of them";
    }
};

class SendFault : public ManagerTest, public ::testing::WithParamInterface<Fault> {
protected:
    /// Every success that was answered must be true of the state machine.
    void ExpectTrue(const std::vector<AppChangeInfo>& infos, const std::set<AppStateType>& states) {
        for (const AppChangeInfo& info : infos) {
            if (info.state == AppChangeState::SUCCESS) {
                EXPECT_EQ(states.count(StateOf(info.appName)), 1U) << info.appName;
            }
        }
    }

    /// Runs one change and checks its answer: each name once, and true only if every one succeeded.
    void Do(const Lists& lists, const std::set<AppStateType>& states) {
        std::vector<AppChangeInfo> infos;
        const bool isSuccess = manager_.ChangeApp(lists.term, lists.start, lists.restart, infos, 1000);
        EXPECT_EQ(infos.size(), 4U) << Text(isSuccess, infos);
        EXPECT_EQ(isSuccess, std::all_of(infos.begin(), infos.end(), [](const AppChangeInfo& info) {
                      return info.state == AppChangeState::SUCCESS;
                  }));
        ExpectTrue(infos, states);
    }

    void RunScenario() {
        (void)manager_.StartBaseApplication();
        Do({{}, Apps(names_), {}}, {AppStateType::RUNNING_STATE});
        Do({{}, {}, Apps(names_)}, {AppStateType::RUNNING_STATE});
        std::vector<AppStatus> statuses;
        (void)manager_.QueryAppState(names_, statuses, 1000);
        processManager_.Tell("b", Report::TERMINATED_ABNORMAL_EXIT, 0, 5);
        while (processManager_.Step()) {
        }
        Do({Apps(names_), {}, {}}, {AppStateType::INIT_STATE, AppStateType::TERMINATED_STATE});
        (void)manager_.ReloadCfg();
    }

    const Strings names_ = {"a", "b", "c", "d"};
};

TEST_P(SendFault, LeavesNoStuckStateAndGivesNoWrongAnswer) {
    Load({Manifest("base").AutoBoot(), Manifest("a"), Manifest("b").DependsOn({"a"}).Restart("on-forever"),
          Manifest("c").DependsOn({"base"}), Manifest("d").DependsOn({"b", "c"})});
    processManager_.FailSends(GetParam().first, GetParam().count);
    RunScenario();
    processManager_.FailSends(1, 0);
    // Once requests get through again, everything can be stopped and started. Those that a lost request left running or
    // coming up are ended first.
    EXPECT_EQ(Term({"base", "a", "b", "c", "d"}), "true a=SUCCESS b=SUCCESS base=SUCCESS c=SUCCESS d=SUCCESS");
    EXPECT_EQ(Start({"base", "a", "b", "c", "d"}), "true a=SUCCESS b=SUCCESS base=SUCCESS c=SUCCESS d=SUCCESS");
    EXPECT_EQ(Restart({"base", "a", "b", "c", "d"}), "true a=SUCCESS b=SUCCESS base=SUCCESS c=SUCCESS d=SUCCESS");
    EXPECT_TRUE(manager_.ReloadCfg());
}

std::vector<Fault> EveryFault() {
    std::vector<Fault> faults;
    // The scenario has fewer sends than that; the last ones run it without a fault.
    constexpr size_t kMostSends = 14;
    for (size_t first = 1; first <= kMostSends; ++first) {
        faults.push_back({first, 1});
        faults.push_back({first, kForEver});
    }
    return faults;
}

std::string NameOf(const ::testing::TestParamInfo<Fault>& info) {
    return "Send" + std::to_string(info.param.first) + (info.param.count == 1 ? "FailsOnce" : "AndAllLaterFail");
}

INSTANTIATE_TEST_SUITE_P(EverySend, SendFault, ::testing::ValuesIn(EveryFault()), NameOf);

}  // namespace
}  // namespace ProcMgr
