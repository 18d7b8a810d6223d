#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "platform/include/platform_log.h"
#include "tests/contract/written_lines.h"

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 100;

// The only line that ends so, whatever stands in front.
size_t CountOf(const std::vector<std::string>& lines, const std::string& end) {
    return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), [&end](const std::string& line) {
        return line.size() >= end.size() && line.compare(line.size() - end.size(), end.size(), end) == 0;
    }));
}

TEST(PlatformLogConcurrency, RecordsOfManyThreadsStayWholeAndNoneIsLost) {
    WatchLog();
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int number = 0; number < kThreads; ++number) {
        threads.emplace_back([number] {
            for (int round = 0; round < kRounds; ++round) {
                if (CheckLogLevel(27, 1) == 1 && !IsSyslogEnable()) {
                    KmonRecord(27, 1, "thread %d round %d.", number, round);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::vector<std::string> lines = WrittenLines();
    EXPECT_EQ(lines.size(), static_cast<size_t>(kThreads) * kRounds);
    for (int number = 0; number < kThreads; ++number) {
        EXPECT_EQ(CountOf(lines, "thread " + std::to_string(number) + " round 99."), 1U);
    }
}

}  // namespace
