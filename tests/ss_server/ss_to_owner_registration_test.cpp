#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "common/app_records.h"
#include "include/ss_to_owner_server.h"
#include "ss_server/ss_to_owner_server_impl.h"
#include "tests/fake_platform/fake_platform.h"
#include "tests/fake_platform/fake_vek.h"

using ProcMgr::SsToOwnerServerImpl;
using testing::ElementsAre;

namespace {

using Lines = std::vector<std::string>;

struct Registration {
    const char* message;
    int (*reg)(SsToOwnerServer& server);
};

const std::string kFile = "res";

const Registration kRegistrations[] = {
    {"ERROR RegSsChangeAppCallBackImpl failed, resFileName=res",
     [](SsToOwnerServer& server) { return server.RegSsChangeAppCallBackImpl({}, kFile); }},
    {"ERROR RegSsChangeAppCallBackImpl(with timeout) failed, resFileName=res",
     [](SsToOwnerServer& server) { return server.RegSsChangeAppTimeoutCallBackImpl({}, kFile); }},
    {"ERROR RegReloadCallBackImpl failed, resFileName=res",
     [](SsToOwnerServer& server) { return server.RegReloadCallBackImpl({}, kFile); }},
    {"ERROR RegDumpCallBackImpl failed, resFileName=res",
     [](SsToOwnerServer& server) { return server.RegDumpCallBackImpl({}, kFile); }},
    {"ERROR RegQueryAppListCallBackImpl failed, resFileName=res",
     [](SsToOwnerServer& server) { return server.RegQueryAppListCallBackImpl({}, kFile); }},
    {"ERROR RegStopAllAppCallBackImpl failed, resFileName=res",
     [](SsToOwnerServer& server) { return server.RegStopAllAppCallBackImpl({}, kFile); }},
    {"ERROR RegSetSystemStateCallBackImpl failed, resFileName=res",
     [](SsToOwnerServer& server) { return server.RegSetSystemStateCallBackImpl({}, kFile); }},
    {"ERROR RegSetSystemStateCallBackImpl(with timeout) failed, resFileName=res",
     [](SsToOwnerServer& server) { return server.RegSetSystemStateTimeoutCallBackImpl({}, kFile); }},
    {"ERROR RegSsVerifyAppCallBackImpl failed, resFileName=res",
     [](SsToOwnerServer& server) { return server.RegSsVerifyAppCallBackImpl({}, kFile); }},
    {"ERROR RegSsQueryAppStateCallBackImpl failed, resFileName=res",
     [](SsToOwnerServer& server) { return server.RegSsQueryAppStateCallBackImpl({}, kFile); }},
};

}  // namespace

TEST(RegisterResService, EveryRegistrationOffersTheServiceAndAFailureIsLoggedUnderItsOwnName) {
    FakeVek::Get().SetResult(FakeVek::Operation::REGISTER_SERVICE, 13);
    size_t registered = 0;
    for (const Registration& registration : kRegistrations) {
        FakeLog::Get().Clear();
        EXPECT_EQ(registration.reg(SsToOwnerServer::GetInstance()), 13);
        EXPECT_EQ(FakeLog::Get().Lines(),
                  (Lines{"INFO RegisterVfsService begin. serviceName=res",
                         "ERROR RegisterVfsService failed. ret=13 serviceName=res", registration.message}));
        EXPECT_EQ(FakeVek::Get().Services().size(), ++registered);
    }
    EXPECT_EQ(FakeLog::Get().Records()[0].file, "ss_to_owner_server_impl.cpp");
}

TEST(RegisterResService, SuccessReturns0AndLogsTheBeginOnly) {
    for (const Registration& registration : kRegistrations) {
        FakeLog::Get().Clear();
        EXPECT_EQ(registration.reg(SsToOwnerServer::GetInstance()), 0);
        EXPECT_EQ(FakeLog::Get().Lines(), Lines{"INFO RegisterVfsService begin. serviceName=res"});
    }
}

TEST(RegisterResService, GivesNameEntryPointsAndTimeout) {
    ASSERT_EQ(unsetenv("DATAMASTER_RUN_MODE"), 0);
    EXPECT_EQ(SsToOwnerServer::GetInstance().RegReloadCallBackImpl({}, "res"), 0);
    const FakeVek::Service service = FakeVek::Get().Services().at(0);
    EXPECT_EQ(service.name, "res");
    EXPECT_EQ(service.timeoutMs, 5000U);
    EXPECT_TRUE(service.ops.open == SsToOwnerServerImpl::MyOpen);
    EXPECT_TRUE(service.ops.read == SsToOwnerServerImpl::MyRead);
    EXPECT_TRUE(service.ops.close == SsToOwnerServerImpl::MyClose);
    EXPECT_TRUE(service.ops.ioctl == SsToOwnerServerImpl::MyIoctl);
}

TEST(GetVfsServiceTimeout, RunModeOneStretchesAndEveryOtherValueDoesNot) {
    for (const auto& [mode, timeout] :
         std::map<std::string, uint32_t>{{"1", 1800000}, {"0", 5000}, {"", 5000}, {"11", 5000}}) {
        ASSERT_EQ(setenv("DATAMASTER_RUN_MODE", mode.c_str(), 1), 0);
        FakeLog::Get().Clear();
        EXPECT_EQ(SsToOwnerServer::GetInstance().RegReloadCallBackImpl({}, "res"), 0);
        EXPECT_EQ(FakeVek::Get().Services().back().timeoutMs, timeout) << mode;
        EXPECT_EQ(FakeLog::Get().Lines(),
                  (Lines{"INFO RegisterVfsService begin. serviceName=res", "INFO DATAMASTER_RUN_MODE=" + mode}));
    }
}

TEST(SsToOwnerServer, EntryPointsOfTheServiceFileReportSuccess) {
    EXPECT_EQ(SsToOwnerServer::GetInstance().RegReloadCallBackImpl({}, "res"), 0);
    FakeLog::Get().Clear();
    VEKMgrFile file{"client", nullptr};
    EXPECT_EQ(SsToOwnerServerImpl::MyOpen(&file), 0);
    EXPECT_EQ(SsToOwnerServerImpl::MyRead(&file, nullptr, 0, nullptr), 0);
    EXPECT_EQ(SsToOwnerServerImpl::MyClose(&file), 0);
    EXPECT_EQ(FakeLog::Get().Lines(), Lines{"INFO SsToOwnerServerClose is called file=client"});
    EXPECT_THAT(FakeVek::Get().Calls(), ElementsAre(FakeVek::Operation::REGISTER_SERVICE));
}

TEST(SsToOwnerServer, EntryPointsReachTheOnlyInstance) {
    EXPECT_EQ(static_cast<SsToOwnerServer*>(SsToOwnerServerImpl::GetThis()), nullptr);
    SsToOwnerServer& server = SsToOwnerServer::GetInstance();
    EXPECT_EQ(&server, &SsToOwnerServer::GetInstance());
    EXPECT_EQ(static_cast<SsToOwnerServer*>(SsToOwnerServerImpl::GetThis()), &server);
}
