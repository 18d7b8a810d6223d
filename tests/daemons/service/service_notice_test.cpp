#include "daemons/service/service_notice.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "tests/daemons/service/notice_receiver.h"

namespace {

class AService : public testing::Test {
protected:
    AService() {
        char folder[] = "/tmp/procmgr-service-XXXXXX";
        folder_ = ::mkdtemp(folder);
        address_ = folder_ + "/notify";
        for (const char* name : {"WATCHDOG_USEC", "WATCHDOG_PID"}) {
            ::unsetenv(name);
        }
        ::setenv("NOTIFY_SOCKET", address_.c_str(), 1);
    }

    ~AService() override { std::filesystem::remove_all(folder_); }

    void Listen() { receiver_ = std::make_unique<NoticeReceiver>(address_); }

    static int FirstBeatOf(const char* allowed) {
        ::setenv("WATCHDOG_USEC", allowed, 1);
        return ServiceNotice().BeatIfDue();
    }

    std::string folder_;
    std::string address_;
    std::unique_ptr<NoticeReceiver> receiver_;
};

constexpr const char* kTenMinutes = "600000000";

}  // namespace

TEST_F(AService, TellsReadinessStatusAndStopWithALineForPeople) {
    Listen();
    ServiceNotice service;
    EXPECT_EQ(service.Ready("owners: 0, applications: 0"), 0);
    service.Status("owners: 1, applications: 4");
    service.Stopping("asked to end");
    EXPECT_EQ(receiver_->Take(), "READY=1\nSTATUS=owners: 0, applications: 0");
    EXPECT_EQ(receiver_->Take(), "STATUS=owners: 1, applications: 4");
    EXPECT_EQ(receiver_->Take(), "STOPPING=1\nSTATUS=asked to end");
    EXPECT_EQ(receiver_->Take(), "nothing");
}

TEST_F(AService, SpeaksToAnAbstractAddress) {
    address_ = "@procmgr-service-test/" + std::to_string(::getpid());
    ::setenv("NOTIFY_SOCKET", address_.c_str(), 1);
    Listen();
    EXPECT_EQ(ServiceNotice().Ready("up"), 0);
    EXPECT_EQ(receiver_->Take(), "READY=1\nSTATUS=up");
}

TEST_F(AService, KeepsAStatusOnOneLine) {
    Listen();
    ServiceNotice().Status("a\nREADY=1\x1b\x7f\xc3\xa4");
    EXPECT_EQ(receiver_->Take(), "STATUS=a READY=1  \xc3\xa4");
}

TEST_F(AService, LeavesNothingOfItToChildren) {
    Listen();
    ::setenv("WATCHDOG_USEC", kTenMinutes, 1);
    ::setenv("WATCHDOG_PID", std::to_string(::getpid()).c_str(), 1);
    ServiceNotice service;
    EXPECT_EQ(::getenv("NOTIFY_SOCKET"), nullptr);
    EXPECT_EQ(::getenv("WATCHDOG_USEC"), nullptr);
    EXPECT_EQ(::getenv("WATCHDOG_PID"), nullptr);
    EXPECT_EQ(service.Address(), address_);
    EXPECT_EQ(service.BeatIfDue(), 300000);
}

TEST_F(AService, ThatNobodyAskedSaysNothing) {
    Listen();
    ::unsetenv("NOTIFY_SOCKET");
    ::setenv("WATCHDOG_USEC", kTenMinutes, 1);
    ServiceNotice service;
    EXPECT_EQ(service.Ready("up"), 0);
    service.Status("up");
    service.Stopping("down");
    EXPECT_EQ(service.BeatIfDue(), -1);
    EXPECT_EQ(receiver_->Take(), "nothing");
}

TEST_F(AService, IsToldWhyItsReadinessReachedNobody) {
    EXPECT_EQ(ServiceNotice().Ready("up"), ENOENT);
    ::setenv("NOTIFY_SOCKET", std::string(108, 'a').c_str(), 1);
    EXPECT_EQ(ServiceNotice().Ready("up"), ENAMETOOLONG);
}

TEST_F(AService, BeatsAtOnceAndThenWhenHalfOfTheTimeHasPassed) {
    Listen();
    ::setenv("WATCHDOG_USEC", kTenMinutes, 1);
    ServiceNotice service;
    EXPECT_EQ(service.BeatIfDue(), 300000);
    EXPECT_EQ(receiver_->Take(), "WATCHDOG=1");
    EXPECT_LE(service.BeatIfDue(), 300000);
    EXPECT_EQ(receiver_->Take(), "nothing");
}

TEST_F(AService, BeatsAgainSoonWhenABeatReachedNobody) {
    EXPECT_EQ(FirstBeatOf(kTenMinutes), 30000);
}

TEST_F(AService, BeatsAtLeastOnceInAnHourAndAtMostOnceInAMillisecond) {
    Listen();
    EXPECT_EQ(FirstBeatOf("9223372036854775807"), 3600000);
    ::setenv("NOTIFY_SOCKET", address_.c_str(), 1);
    EXPECT_EQ(FirstBeatOf("1"), 1);
}

TEST_F(AService, DoesNotBeatForAnotherProcess) {
    Listen();
    ::setenv("WATCHDOG_PID", "1", 1);
    EXPECT_EQ(FirstBeatOf(kTenMinutes), -1);
    ::setenv("NOTIFY_SOCKET", address_.c_str(), 1);
    ::setenv("WATCHDOG_PID", "x", 1);
    EXPECT_EQ(FirstBeatOf(kTenMinutes), -1);
    EXPECT_EQ(receiver_->Take(), "nothing");
}

TEST_F(AService, DoesNotBeatWithoutATimeThatIsANumber) {
    Listen();
    for (const char* allowed : {"", "0", "-1", "5s", " 5", "9223372036854775808"}) {
        ::setenv("NOTIFY_SOCKET", address_.c_str(), 1);
        EXPECT_EQ(FirstBeatOf(allowed), -1) << allowed;
    }
    EXPECT_EQ(receiver_->Take(), "nothing");
}
