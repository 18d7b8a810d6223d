#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "common/boot_trace.h"
#include "common/enumeration_names.h"
#include "common/grp_owner_log.h"
#include "tests/fake_platform/fake_log.h"

namespace ProcMgr {
namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 200;

void InParallel(const std::function<void(int)>& work) {
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([&work, number] { work(number); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(CommonConcurrency, NameTablesAndLevelMapsAreBuiltOnceUnderTheFirstCalls) {
    InParallel([](int) {
        for (int round = 0; round < kRounds; ++round) {
            EXPECT_EQ(GetAppState(5), "PROCESSING");
            EXPECT_EQ(GetOptionType(2), "RESTART");
            EXPECT_EQ(GetGroupOwner(0), "DATAMASTER");
            EXPECT_EQ(GetSysState(1), "WORKING");
            EXPECT_EQ(GetReportAppStateTypeStr(0), "RUNNING_NORMAL_START");
            EXPECT_EQ(GetKmonLevel(GrpOwnerLogLevel::GRP_OWNER_LOG_EVENT), 16);
            EXPECT_EQ(GetSyslogLevel(GrpOwnerLogLevel::GRP_OWNER_LOG_EVENT), 5);
            EXPECT_NE(BootStrace("t"), "");
        }
    });
}

TEST(CommonConcurrency, LinesOfManyThreadsAllArriveWhileTheSyslogSwitchIsTurned) {
    InParallel([](int number) {
        for (int round = 0; round < kRounds; ++round) {
            if (number == 0 && round == kRounds / 2) {
                EnableSyslogState();
            }
            GRP_OWNER_LOG(GrpOwnerLogLevel::GRP_OWNER_LOG_INFO, "thread %d round %d", number, round);
        }
    });
    EXPECT_EQ(FakeLog::Get().Records().size(), static_cast<size_t>(kThreads) * kRounds);
}

}  // namespace
}  // namespace ProcMgr
