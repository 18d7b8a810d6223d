#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

#include "platform/include/platform_log.h"
#include "tests/platform/log_test_kit.h"

namespace ProcMgr::Posix {
namespace {

constexpr int kThreads = 4;
constexpr int kRecords = 250;

TEST(ConcurrentRecords, AreWrittenWholeEachOnALineOfItsOwn) {
    const LogFolder folder;
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int thread = 0; thread < kThreads; ++thread) {
        threads.emplace_back([thread] {
            for (int i = 0; i < kRecords; ++i) {
                EXPECT_EQ(CheckLogLevel(27, 1), 1);
                KmonRecord(27, 1, "thread %d %s", thread, std::string(600, 'x').c_str());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::map<std::string, int> counts;
    for (const std::string& line : folder.Lines()) {
        ++counts[line];
    }
    std::map<std::string, int> expected;
    for (int thread = 0; thread < kThreads; ++thread) {
        expected["info tester[pid] thread " + std::to_string(thread) + " " + std::string(600, 'x')] = kRecords;
    }
    EXPECT_EQ(counts, expected);
}

TEST(ConcurrentRecords, MayMeetTheSwitchToSyslog) {
    const LogFolder folder;
    std::thread switching([] { EnableSyslogState(); });
    while (!IsSyslogEnable()) {
        std::this_thread::yield();
    }
    switching.join();
    EXPECT_TRUE(IsSyslogEnable());
}

}  // namespace
}  // namespace ProcMgr::Posix
