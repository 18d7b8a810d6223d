// Pairs of operations that the manager, the report thread and the state-query thread make at the same time.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/application/application_test_support.h"

namespace ProcMgr {
namespace {

constexpr int kRounds = 500;

// Each work runs `kRounds` times in a thread of its own.
void InParallel(const std::vector<std::function<void()>>& works) {
    std::vector<std::thread> threads;
    threads.reserve(works.size());
    for (const auto& work : works) {
        threads.emplace_back([&work] {
            for (int round = 0; round < kRounds; ++round) {
                work();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

class ApplicationConcurrency : public testing::Test {
protected:
    ApplicationConcurrency() { FakeLog::Get().SetCheckResult(0); }

    Application application_{Manifest("cam").Restart("on-forever").Arguments({"a"}), ""};
};

TEST_F(ApplicationConcurrency, VerifyAndTheApplicationsOwnStartReport) {
    for (int round = 0; round < kRounds; ++round) {
        Application application(Manifest("cam").Reporting(), "");
        bool isSet = false;
        AppStateType previous{};
        AppChangeState result{};
        std::thread verify(
            [&] { isSet = application.CompareAndSetAppState(AppStateType::INIT_STATE, AppStateType::RUNNING_STATE); });
        std::thread report([&] { result = application.ReportRunningNormalStartFromApp(previous); });
        verify.join();
        report.join();
        EXPECT_TRUE(application.IsAppRunning());
        EXPECT_EQ(isSet, result == AppChangeState::PROCESSING) << "exactly one of the two moves it";
        EXPECT_EQ(previous, isSet ? AppStateType::RUNNING_STATE : AppStateType::INIT_STATE);
    }
}

TEST_F(ApplicationConcurrency, OperationsAndReportsAndComparisonsAllTogether) {
    InParallel({
        [this] { static_cast<void>(application_.Start()); },
        [this] { static_cast<void>(application_.Term()); },
        [this] { static_cast<void>(application_.CanRestart()); },
        [this] {
            AppStateType previous{};
            application_.ReportRunningNormalStartFromProcMgr(previous);
            application_.ReportTerminatedNormalFromProcMgr(previous);
            application_.ReportRunningAbnormalTermTimeoutFromProcMgr(previous);
            application_.ReportRunningNormalReStartFromProcMgr(previous);
            application_.ReportTerminatedAbnormalFromProcMgr(1, previous);
            application_.ReportRunningNormalStartFromApp(previous);
        },
        [this] {
            static_cast<void>(
                application_.CompareAndSetAppState(AppStateType::TERMINATED_STATE, AppStateType::INIT_STATE));
            static_cast<void>(application_.IsAppRunning());
        },
    });
    EXPECT_LE(static_cast<uint32_t>(application_.GetAppStateType()), 4U);
}

TEST_F(ApplicationConcurrency, OnlyOneOfManyStartsIsAccepted) {
    for (int round = 0; round < kRounds / 10; ++round) {
        Application application(Manifest("cam"), "");
        std::atomic<int> accepted{0};
        std::vector<std::thread> threads;
        threads.reserve(4);
        for (int number = 0; number < 4; ++number) {
            threads.emplace_back([&application, &accepted] { accepted += application.Start() ? 1 : 0; });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(accepted.load(), 1);
    }
}

TEST_F(ApplicationConcurrency, AttributesAreWrittenOnOneThreadAndReadOnOthers) {
    InParallel({
        [this] {
            application_.SetArguments({"x", "y"});
        },
        [this] {
            const std::vector<std::string> arguments = application_.GetArguments();
            EXPECT_TRUE(arguments == std::vector<std::string>{"a"} ||
                        (arguments == std::vector<std::string>{"x", "y"}));
        },
        [this] {
            application_.SetPid(application_.GetPid() + 1);
            application_.SetRestartCount(application_.GetRestartCount() + 1);
            application_.SetQueriedState(2);
        },
        [this] {
            static_cast<void>(application_.GetPid());
            static_cast<void>(application_.GetRestartCount());
            static_cast<void>(application_.GetQueriedState());
            static_cast<void>(application_.AppInfoToString());
        },
    });
    EXPECT_EQ(application_.GetPid(), kRounds - 1);
}

TEST_F(ApplicationConcurrency, AReloadCopiesWhileTheOldRecordRestarts) {
    Application old(Manifest("cam").Restart("on-failure"), "");
    old.SetAppState(old.MapStateTypeToStatePointer(AppStateType::TERMINATED_STATE));
    InParallel({
        [&old] { static_cast<void>(old.CanRestart()); },
        [&old] {
            AppStateType previous{};
            old.ReportTerminatedNormalFromProcMgr(previous);
        },
        [this, &old] { EXPECT_TRUE(application_.CopyDynamicAttributeFromApp(old)); },
        [this] { static_cast<void>(application_.Term()); },
    });
    EXPECT_LE(application_.GetRestartCount(), 5U);
}

TEST_F(ApplicationConcurrency, TwoRecordsMayCopyFromEachOther) {
    Application other(Manifest("cam"), "");
    InParallel({
        [this, &other] { EXPECT_TRUE(application_.CopyDynamicAttributeFromApp(other)); },
        [this, &other] { EXPECT_TRUE(other.CopyDynamicAttributeFromApp(application_)); },
    });
}

}  // namespace
}  // namespace ProcMgr
