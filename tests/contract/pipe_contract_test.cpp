#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/include/owner_link.h"
#include "platform/include/tunor.h"
#include "tests/contract/pipe_harness.h"

namespace {

using testing::ElementsAre;

/// What the handlers saw, in order, and what they shall do.
class Handlers {
public:
    static Handlers& Get() {
        static Handlers& handlers = *new Handlers;
        return handlers;
    }

    static void OnRequest(int fd, TunorRequest* request) {
        const std::string bytes(static_cast<const char*>(request->data), request->size);
        Get().See("request " + bytes, fd);
        if (Get().work) {
            Get().work(fd, bytes);
        }
        Get().depth_ -= 1;
    }

    static void OnAppReport(const char* name, size_t nameLen, int pid, uint32_t state) {
        Get().See("report " + std::string(name, nameLen) + " " + std::to_string(pid) + " " + std::to_string(state), 0);
        Get().depth_ -= 1;
    }

    static void OnLost(int fd) {
        Get().See("lost", fd);
        Get().depth_ -= 1;
    }

    std::vector<std::string> WaitForSeen(size_t count) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_until(lock, std::chrono::system_clock::now() + std::chrono::seconds(30),
                            [&] { return seen_.size() >= count; });
        return seen_;
    }

    int LastFd() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return lastFd_;
    }

    std::thread::id LastThread() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return lastThread_;
    }

    bool everOverlapped = false;
    std::function<void(int, const std::string&)> work;

private:
    void See(const std::string& what, int fd) {
        const bool overlaps = ++depth_ > 1;
        const std::lock_guard<std::mutex> lock(mutex_);
        everOverlapped |= overlaps;
        seen_.push_back(what);
        lastFd_ = fd;
        lastThread_ = std::this_thread::get_id();
        changed_.notify_all();
    }

    std::atomic<int> depth_{0};
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> seen_;
    int lastFd_ = 0;
    std::thread::id lastThread_;
};

/// Opened once, by anyone; copies are the same gate, so that a handler's copy outlives the test's.
class Gate {
public:
    void Open() const {
        const std::lock_guard<std::mutex> lock(state_->mutex);
        state_->isOpen = true;
        state_->changed.notify_all();
    }
    void Wait() const {
        std::unique_lock<std::mutex> lock(state_->mutex);
        state_->changed.wait_until(lock, std::chrono::system_clock::now() + std::chrono::seconds(30),
                                   [this] { return state_->isOpen; });
    }

private:
    struct State {
        std::mutex mutex;
        std::condition_variable changed;
        bool isOpen = false;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

class PipeContract : public testing::Test {
protected:
    PipeContract() {
        OwnerSetAppReportHandler(Handlers::OnAppReport);
        OwnerSetPipeLostHandler(Handlers::OnLost);
    }
    // A pipe that is left open at the end must not reach a handler whose test is over.
    ~PipeContract() override { TunorClosePipe(fd); }

    static int Open(TunorRequestHandler handler = Handlers::OnRequest) {
        const TunorOpenParam param = {"PROCMGR", static_cast<uint32_t>(::getgid()), 30000, handler};
        return TunorOpen(&param);
    }

    static int Send(int pipe, std::string bytes) {
        const TunorRequest request = {bytes.data(), static_cast<uint32_t>(bytes.size())};
        const int result = TunorSendRequest(pipe, &request);
        bytes.assign(bytes.size(), '!');
        return result;
    }

    static int Respond(int pipe, std::string bytes) {
        const TunorResponse response = {bytes.data(), static_cast<uint32_t>(bytes.size())};
        return TunorSendResponse(pipe, &response);
    }

    static int Call(int pipe, std::string bytes, std::string& answer) {
        const TunorRequest request = {bytes.data(), static_cast<uint32_t>(bytes.size())};
        TunorResponse response = {nullptr, 0};
        const int result = TunorTimedRPCSync(pipe, &request, &response, 30000);
        if (result == 0) {
            answer.assign(static_cast<const char*>(response.data), response.size);
        }
        return result;
    }

    Handlers& handlers = Handlers::Get();
    PipeHarness peer;
    int fd = Open();
};

TEST_F(PipeContract, OpenGivesAPositiveDescriptor) {
    EXPECT_GT(fd, 0);
}

TEST_F(PipeContract, TwoOpenPipesHaveTwoDescriptors) {
    ::setenv("PROC_NAME", "second", 1);
    const int second = Open();
    EXPECT_GT(second, 0);
    EXPECT_NE(fd, second);
    EXPECT_EQ(TunorClosePipe(second), 0);
}

TEST_F(PipeContract, RequestsReachThePeerInTheirOrder) {
    EXPECT_EQ(Send(fd, "one"), 0);
    EXPECT_EQ(Send(fd, "two"), 0);
    EXPECT_EQ(Send(fd, "three"), 0);
    EXPECT_THAT(peer.WaitForRequests(3), ElementsAre("one", "two", "three"));
}

TEST_F(PipeContract, RequestIsCopiedBeforeTheSendReturns) {
    std::string buffer(3984, 'a');
    const TunorRequest request = {buffer.data(), static_cast<uint32_t>(buffer.size())};
    EXPECT_EQ(TunorSendRequest(fd, &request), 0);
    buffer.assign(buffer.size(), 'b');
    EXPECT_THAT(peer.WaitForRequests(1), ElementsAre(std::string(3984, 'a')));
}

TEST_F(PipeContract, HandlerGetsTheDescriptorAndExactlyTheBytes) {
    peer.PushRequest(std::string("a\0b", 3));
    EXPECT_THAT(handlers.WaitForSeen(1), ElementsAre(std::string("request a\0b", 11)));
    EXPECT_EQ(handlers.LastFd(), fd);
}

TEST_F(PipeContract, HandlerRunsOnAThreadOfTheLibrary) {
    peer.PushRequest("a");
    handlers.WaitForSeen(1);
    EXPECT_NE(handlers.LastThread(), std::this_thread::get_id());
}

TEST_F(PipeContract, HandlerRunsOneRequestAtATimeInTheirOrder) {
    std::vector<std::string> expected;
    for (int i = 0; i < 100; ++i) {
        peer.PushRequest(std::to_string(i));
        expected.push_back("request " + std::to_string(i));
    }
    EXPECT_EQ(handlers.WaitForSeen(100), expected);
    EXPECT_FALSE(handlers.everOverlapped);
}

TEST_F(PipeContract, CallReturnsItsAnswer) {
    peer.AnswerCallsBy([](const std::string& bytes) { return "answer to " + bytes; });
    std::string answer;
    EXPECT_EQ(Call(fd, "one", answer), 0);
    EXPECT_EQ(answer, "answer to one");
    EXPECT_EQ(Call(fd, "two", answer), 0);
    EXPECT_EQ(answer, "answer to two");
}

TEST_F(PipeContract, CallWithoutTimeOutReturnsItsAnswer) {
    std::string bytes = "one";
    const TunorRequest request = {bytes.data(), 3};
    TunorResponse response = {nullptr, 0};
    ASSERT_EQ(TunorRPCSync(fd, &request, &response), 0);
    EXPECT_EQ(std::string(static_cast<const char*>(response.data), response.size), "one");
}

TEST_F(PipeContract, EmptyAnswerHasTheSizeZero) {
    peer.AnswerCallsBy([](const std::string&) { return ""; });
    char byte = 'a';
    const TunorRequest request = {&byte, 1};
    TunorResponse response = {&byte, 7};
    EXPECT_EQ(TunorTimedRPCSync(fd, &request, &response, 30000), 0);
    EXPECT_EQ(response.size, 0U);
}

TEST_F(PipeContract, AnswerStaysValidWhileAnotherThreadCalls) {
    std::string bytes = "mine";
    const TunorRequest request = {bytes.data(), 4};
    TunorResponse response = {nullptr, 0};
    ASSERT_EQ(TunorTimedRPCSync(fd, &request, &response, 30000), 0);
    std::thread([this] {
        std::string answer;
        EXPECT_EQ(Call(fd, "theirs", answer), 0);
        EXPECT_EQ(answer, "theirs");
    }).join();
    EXPECT_EQ(std::string(static_cast<const char*>(response.data), response.size), "mine");
}

TEST_F(PipeContract, CallThatIsNotAnsweredGivesUp) {
    peer.LeaveCallsUnanswered();
    char byte = 'a';
    const TunorRequest request = {&byte, 1};
    TunorResponse response = {nullptr, 0};
    EXPECT_LT(TunorTimedRPCSync(fd, &request, &response, 20), 0);
    EXPECT_EQ(Send(fd, "still alive"), 0);
}

TEST_F(PipeContract, AnswerComesWhileTheHandlerIsBusy) {
    const Gate busy;
    const Gate answered;
    handlers.work = [=](int, const std::string&) {
        busy.Open();
        answered.Wait();
    };
    peer.PushRequest("work");
    busy.Wait();
    std::string answer;
    EXPECT_EQ(Call(fd, "quick", answer), 0);
    EXPECT_EQ(answer, "quick");
    EXPECT_EQ(Send(fd, "also quick"), 0);
    answered.Open();
    EXPECT_EQ(TunorClosePipe(fd), 0);
}

TEST_F(PipeContract, HandlerMaySendAndCall) {
    std::string answer;
    const Gate done;
    handlers.work = [&answer, done](int pipe, const std::string&) {
        EXPECT_EQ(Send(pipe, "from the handler"), 0);
        EXPECT_EQ(Call(pipe, "call from the handler", answer), 0);
        done.Open();
    };
    peer.PushRequest("work");
    done.Wait();
    EXPECT_EQ(answer, "call from the handler");
    EXPECT_THAT(peer.WaitForRequests(1), ElementsAre("from the handler"));
    EXPECT_EQ(TunorClosePipe(fd), 0);
}

TEST_F(PipeContract, ResponseReachesThePeer) {
    peer.PushRequest("question");
    handlers.WaitForSeen(1);
    EXPECT_EQ(Respond(fd, "response"), 0);
    EXPECT_THAT(peer.WaitForResponses(1), ElementsAre("response"));
}

TEST_F(PipeContract, AppReportsComeInOrderWithTheRequests) {
    peer.PushRequest("1");
    peer.PushAppReport("cam@front", 4711, 0);
    peer.PushRequest("2");
    peer.PushAppReport("cam@front", 4711, 1);
    EXPECT_THAT(handlers.WaitForSeen(4),
                ElementsAre("request 1", "report cam@front 4711 0", "request 2", "report cam@front 4711 1"));
    EXPECT_FALSE(handlers.everOverlapped);
}

TEST_F(PipeContract, AppReportsWithoutAHandlerAreDropped) {
    OwnerSetAppReportHandler(nullptr);
    peer.PushAppReport("cam", 1, 0);
    peer.PushRequest("after");
    EXPECT_THAT(handlers.WaitForSeen(1), ElementsAre("request after"));
}

TEST_F(PipeContract, RequestsWithoutAHandlerAreDropped) {
    ::setenv("PROC_NAME", "deaf", 1);
    const int deaf = Open(nullptr);
    ASSERT_GT(deaf, 0);
    peer.PushRequest("nobody hears");
    peer.PushAppReport("cam", 1, 0);
    EXPECT_THAT(handlers.WaitForSeen(1), ElementsAre("report cam 1 0"));
    EXPECT_EQ(TunorClosePipe(deaf), 0);
}

TEST_F(PipeContract, LossIsToldOnceBehindEverythingThatCameBefore) {
    peer.PushRequest("1");
    peer.PushAppReport("cam", 1, 0);
    peer.EndPipe();
    EXPECT_THAT(handlers.WaitForSeen(3), ElementsAre("request 1", "report cam 1 0", "lost"));
    EXPECT_EQ(handlers.LastFd(), fd);
    EXPECT_EQ(TunorClosePipe(fd), 0);
    EXPECT_THAT(handlers.WaitForSeen(3), ElementsAre("request 1", "report cam 1 0", "lost"));
}

TEST_F(PipeContract, EverythingFailsAfterALoss) {
    peer.EndPipe();
    handlers.WaitForSeen(1);
    std::string answer = "untouched";
    EXPECT_LT(Send(fd, "a"), 0);
    EXPECT_LT(Call(fd, "a", answer), 0);
    EXPECT_LT(Respond(fd, "a"), 0);
    EXPECT_EQ(answer, "untouched");
}

TEST_F(PipeContract, CloseIsNoLoss) {
    EXPECT_EQ(TunorClosePipe(fd), 0);
    peer.EndPipe();
    ::setenv("PROC_NAME", "second", 1);
    const int second = Open();
    peer.PushRequest("to the second");
    EXPECT_THAT(handlers.WaitForSeen(1), ElementsAre("request to the second"));
    EXPECT_EQ(TunorClosePipe(second), 0);
}

TEST_F(PipeContract, CloseWaitsForARunningHandler) {
    const Gate running;
    const Gate finish;
    std::atomic<bool> hasFinished{false};
    handlers.work = [&hasFinished, running, finish](int, const std::string&) {
        running.Open();
        finish.Wait();
        hasFinished = true;
    };
    peer.PushRequest("work");
    running.Wait();
    const Gate closing;
    std::thread closer([&] {
        closing.Open();
        EXPECT_EQ(TunorClosePipe(fd), 0);
        EXPECT_TRUE(hasFinished);
    });
    closing.Wait();
    finish.Open();
    closer.join();
}

TEST_F(PipeContract, CloseFromTheHandlerReturns) {
    const Gate closed;
    int result = -1;
    handlers.work = [&result, closed](int pipe, const std::string&) {
        result = TunorClosePipe(pipe);
        closed.Open();
    };
    peer.PushRequest("close");
    closed.Wait();
    EXPECT_EQ(result, 0);
    EXPECT_LT(Send(fd, "a"), 0);
}

TEST_F(PipeContract, NothingIsDeliveredAfterTheClose) {
    const Gate running;
    const Gate finish;
    handlers.work = [=](int pipe, const std::string& bytes) {
        if (bytes != "1") {
            return;
        }
        TunorClosePipe(pipe);
        running.Open();
        finish.Wait();
    };
    peer.PushRequest("1");
    running.Wait();
    peer.PushRequest("2");
    finish.Open();
    ::setenv("PROC_NAME", "second", 1);
    const int second = Open();
    peer.PushRequest("to the second");
    EXPECT_THAT(handlers.WaitForSeen(2), ElementsAre("request 1", "request to the second"));
    EXPECT_EQ(TunorClosePipe(second), 0);
}

TEST_F(PipeContract, ADescriptorThatIsNotOpenTakesNothing) {
    EXPECT_EQ(TunorClosePipe(fd), 0);
    std::string answer;
    EXPECT_LT(Send(fd, "a"), 0);
    EXPECT_LT(Call(fd, "a", answer), 0);
    EXPECT_LT(Respond(fd, "a"), 0);
    EXPECT_LT(TunorClosePipe(fd), 0);
    EXPECT_LT(TunorClosePipe(0), 0);
    EXPECT_LT(TunorClosePipe(-1), 0);
}

}  // namespace
