#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

#include "include/ss_to_owner_server.h"
#include "ss_server/ss_to_owner_server_impl.h"
#include "tests/fake_platform/fake_platform.h"
#include "tests/fake_platform/fake_vek.h"

using ProcMgr::SsToOwnerServerImpl;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Lines = std::vector<std::string>;

/// Three files in the order of their addresses, which is that of the reports; each opened with a queue.
class SysEventTest : public testing::Test {
protected:
    void SetUp() override {
        for (size_t i = 0; i < files_.size(); ++i) {
            files_[i] = {names_[i], FakeVek::Get().MakeQueue(), nullptr};
        }
    }

    void OpenAll() {
        for (VekQfsMgrFile& file : files_) {
            ASSERT_EQ(SsToOwnerServerImpl::SsToOwnerServerOpen(&file), 0);
        }
        FakeLog::Get().Clear();
    }

    std::vector<std::string> EventsOf(size_t file) const { return FakeVek::Get().Events(files_[file].queueHandle); }

    static constexpr std::array<const char*, 3> names_ = {"f0", "f1", "f2"};
    std::array<VekQfsMgrFile, 3> files_{};
    SsToOwnerServer& server_ = SsToOwnerServer::GetInstance();
};

}  // namespace

TEST_F(SysEventTest, InitEnablesSyslogFirstAndRegistersTheQueue) {
    EXPECT_EQ(server_.InitSysEventServer("events"), 0);
    EXPECT_EQ(FakeLog::Get().Lines(),
              (Lines{"SYSLOG6 InitSysEventServer VEKRegisterQueueService begin. serviceName=events",
                     "SYSLOG6 InitSysEventServer VEKRegisterQueueService success, serviceName=events"}));
    const FakeVek::QueueService service = FakeVek::Get().QueueServices().at(0);
    EXPECT_EQ(service.name, "events");
    EXPECT_EQ(service.timeoutMs, 5000U);
    EXPECT_TRUE(service.ops.open == SsToOwnerServerImpl::SsToOwnerServerOpen);
    EXPECT_TRUE(service.ops.close == SsToOwnerServerImpl::SsToOwnerServerClose);
}

TEST_F(SysEventTest, FailedInitReturnsTheBusCode) {
    FakeVek::Get().SetResult(FakeVek::Operation::REGISTER_QUEUE_SERVICE, 38);
    EXPECT_EQ(server_.InitSysEventServer("events"), 38);
    EXPECT_EQ(FakeLog::Get().Lines().back(),
              "SYSLOG3 InitSysEventServer VEKRegisterQueueService failed err=38,file=events");
}

TEST_F(SysEventTest, OpenRegistersAPoolAndCloseDestroysIt) {
    EXPECT_EQ(SsToOwnerServerImpl::SsToOwnerServerOpen(&files_[0]), 0);
    EXPECT_EQ(FakeVek::Get().PoolCount(), 1U);
    EXPECT_EQ(FakeVek::Get().PoolConfigs().at(0).blockSize, 64U);
    EXPECT_EQ(FakeVek::Get().PoolConfigs().at(0).blockCount, 64U);
    EXPECT_EQ(SsToOwnerServerImpl::SsToOwnerServerClose(&files_[0]), 0);
    EXPECT_EQ(FakeVek::Get().PoolCount(), 0U);
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"INFO SsToOwnerServerOpen is called file=f0",
                                             "INFO SsToOwnerServerOpen: Register ShmPool success, fileName=f0",
                                             "INFO SsToOwnerServerClose is called file=f0"}));
}

TEST_F(SysEventTest, FailedPoolIsLoggedAndNothingIsRecorded) {
    FakeVek::Get().SetResult(FakeVek::Operation::REGISTER_POOL, 12);
    EXPECT_EQ(SsToOwnerServerImpl::SsToOwnerServerOpen(&files_[0]), 12);
    EXPECT_EQ(FakeLog::Get().Lines(),
              (Lines{"INFO SsToOwnerServerOpen is called file=f0",
                     "ERROR SsToOwnerServerOpen: Register ShmPool failed, fileName=f0, err=12"}));
    EXPECT_EQ(server_.ReportSysEvent({1}), 0);
    EXPECT_EQ(SsToOwnerServerImpl::SsToOwnerServerClose(&files_[0]), 0);
}

TEST_F(SysEventTest, FileOpenedTwiceKeepsOnlyItsNewPool) {
    EXPECT_EQ(SsToOwnerServerImpl::SsToOwnerServerOpen(&files_[0]), 0);
    EXPECT_EQ(SsToOwnerServerImpl::SsToOwnerServerOpen(&files_[0]), 0);
    EXPECT_EQ(FakeVek::Get().PoolCount(), 1U);
    EXPECT_EQ(server_.ReportSysEvent({1}), 0);
    EXPECT_THAT(EventsOf(0), ElementsAre("1"));
}

TEST_F(SysEventTest, FailedCloseIsLoggedReturnsTheCodeAndForgetsTheFile) {
    OpenAll();
    FakeVek::Get().SetResult(FakeVek::Operation::DESTROY_POOL, 5);
    EXPECT_EQ(SsToOwnerServerImpl::SsToOwnerServerClose(&files_[1]), 5);
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"INFO SsToOwnerServerClose is called file=f1",
                                             "ERROR SsToOwnerServerClose: Free poolHandle failed, err=5 file=f1"}));
    EXPECT_EQ(server_.ReportSysEvent({1}), 0);
    EXPECT_THAT(EventsOf(1), IsEmpty());
}

TEST_F(SysEventTest, NullFilesAreRefusedWithoutALine) {
    EXPECT_EQ(SsToOwnerServerImpl::SsToOwnerServerOpen(nullptr), -1);
    EXPECT_EQ(SsToOwnerServerImpl::SsToOwnerServerClose(nullptr), -1);
    EXPECT_EQ(SsToOwnerServerImpl::MyOpen(nullptr), -1);
    EXPECT_EQ(SsToOwnerServerImpl::MyClose(nullptr), -1);
    EXPECT_THAT(FakeLog::Get().Lines(), IsEmpty());
}

TEST_F(SysEventTest, FileWithoutNameIsPrintedEmpty) {
    files_[0].fileName = nullptr;
    EXPECT_EQ(SsToOwnerServerImpl::SsToOwnerServerOpen(&files_[0]), 0);
    EXPECT_EQ(FakeLog::Get().Lines()[0], "INFO SsToOwnerServerOpen is called file=");
}

TEST_F(SysEventTest, EventReachesEveryOpenFileAsDecimalText) {
    OpenAll();
    EXPECT_EQ(server_.ReportSysEvent({4294967295U}), 0);
    for (size_t i = 0; i < files_.size(); ++i) {
        EXPECT_THAT(EventsOf(i), ElementsAre("4294967295"));
    }
    EXPECT_EQ(FakeVek::Get().BlockCount(), 0U);
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"INFO ReportSysEvent. (state=4294967295,file=f0)",
                                             "INFO ReportSysEvent. (state=4294967295,file=f1)",
                                             "INFO ReportSysEvent. (state=4294967295,file=f2)"}));
}

TEST_F(SysEventTest, WithoutAnOpenFileTheReportSucceedsAtOnce) {
    EXPECT_EQ(server_.ReportSysEvent({1}), 0);
    EXPECT_THAT(FakeLog::Get().Lines(), IsEmpty());
}

TEST_F(SysEventTest, FileWithoutQueueIsReportedAndTheOthersStillGetTheEvent) {
    VEKQueueHandle unread = nullptr;
    std::swap(files_[0].queueHandle, unread);
    OpenAll();
    EXPECT_EQ(server_.ReportSysEvent({2}), 0xF10001);
    EXPECT_THAT(EventsOf(1), ElementsAre("2"));
    EXPECT_THAT(EventsOf(2), ElementsAre("2"));
    EXPECT_EQ(FakeLog::Get().Lines(),
              (Lines{"WARN ReportSysEvent: Please wait to open the resfile", "INFO ReportSysEvent. (state=2,file=f1)",
                     "INFO ReportSysEvent. (state=2,file=f2)"}));
}

TEST_F(SysEventTest, FailedAllocationIsLoggedForEachFile) {
    OpenAll();
    FakeVek::Get().SetResult(FakeVek::Operation::MALLOC, 12);
    EXPECT_EQ(server_.ReportSysEvent({2}), 0xF10209);
    EXPECT_EQ(FakeLog::Get().LinesWith("ERROR"),
              (Lines{"ERROR ReportSysEvent, Malloc block failed. (err=12,resfile=f0)",
                     "ERROR ReportSysEvent, Malloc block failed. (err=12,resfile=f1)",
                     "ERROR ReportSysEvent, Malloc block failed. (err=12,resfile=f2)"}));
}

TEST_F(SysEventTest, BlockThatCannotBeWrittenIsFreed) {
    ASSERT_EQ(SsToOwnerServerImpl::SsToOwnerServerOpen(&files_[0]), 0);
    FakeLog::Get().Clear();
    FakeVek::Get().SetResult(FakeVek::Operation::WRITE, 34);
    EXPECT_EQ(server_.ReportSysEvent({2}), 0xF10003);
    EXPECT_EQ(FakeVek::Get().BlockCount(), 0U);
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"INFO ReportSysEvent. (state=2,file=f0)",
                                             "ERROR ReportSysEvent: VEKShmWrite failed, err=34, file=f0"}));
}

TEST_F(SysEventTest, BlockThatTheQueueRefusesIsFreed) {
    ASSERT_EQ(SsToOwnerServerImpl::SsToOwnerServerOpen(&files_[0]), 0);
    FakeLog::Get().Clear();
    FakeVek::Get().SetResult(FakeVek::Operation::ENQUEUE, -11);
    EXPECT_EQ(server_.ReportSysEvent({2}), 0xF1020B);
    EXPECT_EQ(FakeVek::Get().BlockCount(), 0U);
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"INFO ReportSysEvent. (state=2,file=f0)",
                                             "ERROR ReportSysEvent: VEKDataEnqueue failed, err=-11, file=f0"}));
}

TEST_F(SysEventTest, PositiveResultOfTheQueueIsASuccess) {
    ASSERT_EQ(SsToOwnerServerImpl::SsToOwnerServerOpen(&files_[0]), 0);
    FakeVek::Get().SetResult(FakeVek::Operation::ENQUEUE, 1);
    EXPECT_EQ(server_.ReportSysEvent({2}), 0);
    EXPECT_THAT(EventsOf(0), ElementsAre("2"));
}

TEST_F(SysEventTest, FailedFreeIsOnlyLogged) {
    ASSERT_EQ(SsToOwnerServerImpl::SsToOwnerServerOpen(&files_[0]), 0);
    FakeLog::Get().Clear();
    FakeVek::Get().SetResult(FakeVek::Operation::WRITE, 34);
    FakeVek::Get().SetResult(FakeVek::Operation::FREE, 9);
    EXPECT_EQ(server_.ReportSysEvent({2}), 0xF10003);
    EXPECT_EQ(FakeLog::Get().LinesWith("ERROR"), (Lines{"ERROR ReportSysEvent: VEKShmFree failed, err=9, file=f0",
                                                        "ERROR ReportSysEvent: VEKShmWrite failed, err=34, file=f0"}));
}

TEST_F(SysEventTest, LaterSuccessDoesNotHideAnEarlierFailure) {
    VEKQueueHandle unread = nullptr;
    std::swap(files_[1].queueHandle, unread);
    OpenAll();
    EXPECT_EQ(server_.ReportSysEvent({2}), 0xF10001);
    EXPECT_THAT(EventsOf(2), ElementsAre("2"));
}
