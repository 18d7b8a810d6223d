#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/include/owner_link.h"
#include "platform/include/tunor.h"
#include "tests/platform/tunor_test_kit.h"

using TunorTest::ServerOnHand;
using TunorTest::ServerThread;

namespace {

/// Counts what the handlers are told.
class Counter {
public:
    void Count() {
        watched_.Change([this] { ++count_; });
    }
    [[nodiscard]] bool Reaches(int count) const {
        return watched_.WaitFor([this, count] { return count_ >= count; });
    }
    int Value() {
        int value = 0;
        watched_.Change([&] { value = count_; });
        return value;
    }

private:
    TunorTest::Watched watched_;
    int count_ = 0;
};

Counter& requests = *new Counter;
Counter& reports = *new Counter;
Counter& losses = *new Counter;

void OnRequest(int, TunorRequest*) {
    requests.Count();
}
void OnReport(const char*, size_t, int, uint32_t) {
    reports.Count();
}
void OnLost(int) {
    losses.Count();
}

int Open(const std::string& name) {
    ::setenv("PROC_NAME", name.c_str(), 1);
    const TunorOpenParam param = {"PROCMGR", static_cast<uint32_t>(::getgid()), 30000, OnRequest};
    return TunorOpen(&param);
}

int Send(int fd, std::string bytes) {
    const TunorRequest request = {bytes.data(), static_cast<uint32_t>(bytes.size())};
    return TunorSendRequest(fd, &request);
}

int Call(int fd, std::string bytes, std::string& answer) {
    const TunorRequest request = {bytes.data(), static_cast<uint32_t>(bytes.size())};
    TunorResponse response = {nullptr, 0};
    const int result = TunorTimedRPCSync(fd, &request, &response, 30000);
    if (result == 0) {
        answer.assign(static_cast<const char*>(response.data), response.size);
    }
    return result;
}

void InThreads(int count, const std::function<void(int)>& work) {
    std::vector<std::thread> threads;
    threads.reserve(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&work, i] { work(i); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

void AnswerWithEcho(ServerThread& server) {
    server.Do([](ServerOnHand& hand) {
        hand.onCall = [&hand](ProcMgr::TunorConnectionId id, uint32_t seq, const std::string& bytes) {
            hand.Server().Answer(id, seq, bytes.data(), bytes.size());
        };
    });
}

TEST(PipeConcurrency, EachOfManyCallersGetsItsOwnAnswer) {
    ServerThread server;
    AnswerWithEcho(server);
    const int fd = Open("GrpOwner");
    ASSERT_GT(fd, 0);
    InThreads(8, [fd](int thread) {
        for (int i = 0; i < 100; ++i) {
            const std::string text = std::to_string(thread) + "." + std::to_string(i);
            std::string answer;
            EXPECT_EQ(Call(fd, text, answer), 0);
            EXPECT_EQ(answer, text);
        }
    });
    EXPECT_EQ(TunorClosePipe(fd), 0);
}

TEST(PipeConcurrency, AnswersInTheOtherOrderReachTheirCallers) {
    ServerThread server;
    std::vector<std::pair<uint32_t, std::string>> waiting;
    server.Do([&waiting](ServerOnHand& hand) {
        hand.onCall = [&](ProcMgr::TunorConnectionId id, uint32_t seq, const std::string& bytes) {
            waiting.emplace_back(seq, bytes);
            for (auto call = waiting.rbegin(); waiting.size() == 4 && call != waiting.rend(); ++call) {
                hand.Server().Answer(id, call->first, call->second.data(), call->second.size());
            }
        };
    });
    const int fd = Open("GrpOwner");
    InThreads(4, [fd](int thread) {
        std::string answer;
        EXPECT_EQ(Call(fd, std::to_string(thread), answer), 0);
        EXPECT_EQ(answer, std::to_string(thread));
    });
    EXPECT_EQ(TunorClosePipe(fd), 0);
}

TEST(PipeConcurrency, RequestsReportsSendsAndCallsRunTogether) {
    ServerThread server;
    AnswerWithEcho(server);
    OwnerSetAppReportHandler(OnReport);
    const int fd = Open("GrpOwner");
    InThreads(4, [&](int thread) {
        for (int i = 0; i < 100; ++i) {
            std::string answer;
            if (thread == 0) {
                server.Do([](ServerOnHand& hand) { hand.Server().SendRequest(hand.ids[0], "a", 1); });
            } else if (thread == 1) {
                server.Do([](ServerOnHand& hand) { hand.Server().SendAppReport(hand.ids[0], "cam", 1, 0); });
            } else if (thread == 2) {
                EXPECT_EQ(Send(fd, "a"), 0);
            } else {
                EXPECT_EQ(Call(fd, "a", answer), 0);
            }
        }
    });
    EXPECT_EQ(server.WaitForTold("request a", 100).size(), 100U);
    EXPECT_TRUE(requests.Reaches(100));
    EXPECT_TRUE(reports.Reaches(100));
    EXPECT_EQ(TunorClosePipe(fd), 0);
}

TEST(PipeConcurrency, LossWakesEveryCaller) {
    ServerThread server;
    OwnerSetPipeLostHandler(OnLost);
    const int fd = Open("GrpOwner");
    std::thread killer([&server] {
        EXPECT_EQ(server.WaitForTold("call wait", 6).size(), 6U);
        server.Stop();
    });
    InThreads(6, [fd](int) {
        std::string answer;
        EXPECT_EQ(Call(fd, "wait", answer), -EPIPE);
    });
    killer.join();
    EXPECT_TRUE(losses.Reaches(1));
    EXPECT_EQ(TunorClosePipe(fd), 0);
    EXPECT_EQ(losses.Value(), 1);
}

TEST(PipeConcurrency, CloseWakesEveryCallerAndIsNoLoss) {
    ServerThread server;
    OwnerSetPipeLostHandler(OnLost);
    const int fd = Open("GrpOwner");
    std::thread closer([&server, fd] {
        EXPECT_EQ(server.WaitForTold("call wait", 6).size(), 6U);
        EXPECT_EQ(TunorClosePipe(fd), 0);
    });
    InThreads(6, [fd](int) {
        std::string answer;
        EXPECT_EQ(Call(fd, "wait", answer), -ECANCELED);
    });
    closer.join();
    EXPECT_EQ(losses.Value(), 0);
}

TEST(PipeConcurrency, OnlyOneOfManyClosesSucceedsWhileOthersSend) {
    ServerThread server;
    AnswerWithEcho(server);
    for (int round = 0; round < 10; ++round) {
        const int fd = Open("GrpOwner" + std::to_string(round));
        ASSERT_GT(fd, 0);
        std::atomic<int> closed{0};
        InThreads(6, [&](int thread) {
            std::string answer;
            if (thread < 3) {
                closed += TunorClosePipe(fd) == 0 ? 1 : 0;
            } else if (thread == 3) {
                while (Call(fd, "a", answer) == 0) {
                }
            } else {
                while (Send(fd, "a") == 0) {
                }
            }
        });
        EXPECT_EQ(closed, 1);
    }
}

TEST(PipeConcurrency, HundredPipesAtOnce) {
    ServerThread server;
    AnswerWithEcho(server);
    std::vector<int> fds;
    for (int i = 0; i < 100; ++i) {
        fds.push_back(Open("owner" + std::to_string(i)));
        ASSERT_GT(fds.back(), 0) << i;
    }
    InThreads(4, [&fds](int thread) {
        for (size_t i = static_cast<size_t>(thread); i < fds.size(); i += 4) {
            std::string answer;
            EXPECT_EQ(Call(fds[i], std::to_string(i), answer), 0);
            EXPECT_EQ(answer, std::to_string(i));
            EXPECT_EQ(TunorClosePipe(fds[i]), 0);
        }
    });
    EXPECT_EQ(server.WaitForTold("closed ", 100).size(), 100U);
}

TEST(PipeConcurrency, HandlersMayBeReplacedWhileReportsCome) {
    ServerThread server;
    const int fd = Open("GrpOwner");
    InThreads(2, [&](int thread) {
        for (int i = 0; i < 100; ++i) {
            if (thread == 0) {
                OwnerSetAppReportHandler(i % 2 == 0 ? OnReport : nullptr);
                OwnerSetPipeLostHandler(i % 2 == 0 ? OnLost : nullptr);
            } else {
                server.Do([](ServerOnHand& hand) { hand.Server().SendAppReport(hand.ids[0], "cam", 1, 0); });
            }
        }
    });
    EXPECT_EQ(TunorClosePipe(fd), 0);
    EXPECT_LE(reports.Value(), 100);
}

}  // namespace
