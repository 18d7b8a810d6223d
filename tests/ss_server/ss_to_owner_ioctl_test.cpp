#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "common/app_records.h"
#include "include/ss_to_owner_server.h"
#include "ss_server/ss_to_owner_server_impl.h"
#include "tests/fake_platform/fake_platform.h"
#include "tests/ss_server/ss_requests.h"

using ProcMgr::SsToOwnerRequestMsg;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

namespace {

using Lines = std::vector<std::string>;
using Apps = std::vector<AppInfoForServer>;

constexpr unsigned int kChange = 0;
constexpr unsigned int kSetState = 2;
constexpr unsigned int kReload = 3;
constexpr unsigned int kDump = 4;
constexpr unsigned int kStopAll = 5;
constexpr unsigned int kList = 6;
constexpr unsigned int kVerify = 8;
constexpr unsigned int kQuery = 9;

constexpr int kBadArgument = static_cast<int>(0xff0f0000U);

const std::string kStamp = "[BOOT_TRACE]";

/// Lines with the time of a boot trace taken out.
Lines LinesWithoutTimes() {
    Lines lines = FakeLog::Get().Lines();
    for (std::string& line : lines) {
        const size_t stamp = line.find(kStamp);
        if (stamp != std::string::npos) {
            const size_t from = line.find('[');
            line.erase(from, stamp - from);
        }
    }
    return lines;
}

/// A service with some callbacks; the lines of their registration are forgotten.
class Ioctl : public testing::Test {
protected:
    SsToOwnerServer& server_ = SsToOwnerServer::GetInstance();

    void SetUp() override { Register(server_.RegReloadCallBackImpl({}, "res")); }

    static void Register(int result) {
        ASSERT_EQ(result, 0);
        FakeLog::Get().Clear();
    }

    /// Sends the request and expects this payload as the whole answer, everything else in the buffer untouched.
    static void ExpectAnswer(unsigned int cmd, const SsToOwnerRequestMsg& request, const std::string& payload) {
        IoctlBuffer buffer(request);
        EXPECT_EQ(buffer.Send(cmd), static_cast<int>(payload.size() + 8));
        EXPECT_EQ(buffer.All(), buffer.Expected(payload));
    }

    static void ExpectAnswer(unsigned int cmd, const std::string& request, const std::string& payload) {
        ExpectAnswer(cmd, MakeRequest(request), payload);
    }
};

}  // namespace

TEST_F(Ioctl, BufferOf3903Or3905BytesIsRefused) {
    std::string bytes(3905, 'x');
    for (const size_t size : {3903U, 3905U, 0U}) {
        FakeLog::Get().Clear();
        EXPECT_EQ(FakeVek::Get().Ioctl(kReload, bytes.data(), size), kBadArgument);
        EXPECT_EQ(FakeLog::Get().Lines(),
                  Lines{"ERROR SsToOwnerRequestMsg ioBuf invalid. (expectSize=3904bytes,realSize=" +
                        std::to_string(size) + "bytes)"});
    }
    EXPECT_EQ(bytes, std::string(3905, 'x'));
}

TEST_F(Ioctl, NullFileArgumentOrBufferIsRefused) {
    std::string bytes(3904, 'x');
    VEKMgrFile file{"client", nullptr};
    VEKIoctlArg arg{bytes.size(), bytes.data()};
    VEKIoctlArg noBuffer{bytes.size(), nullptr};
    const VEKServiceOps ops = FakeVek::Get().Services().back().ops;
    EXPECT_EQ(ops.ioctl(nullptr, kReload, &arg), kBadArgument);
    EXPECT_EQ(ops.ioctl(&file, kReload, nullptr), kBadArgument);
    EXPECT_EQ(ops.ioctl(&file, kReload, &noBuffer), kBadArgument);
    EXPECT_EQ(FakeLog::Get().Lines(),
              (Lines{"ERROR MyIoctl failed. VEKMgrFile or VEKIoctlArg is NULL",
                     "ERROR MyIoctl failed. VEKMgrFile or VEKIoctlArg is NULL",
                     "ERROR SsToOwnerRequestMsg ioBuf invalid. (expectSize=3904bytes,realSize=3904bytes)"}));
}

TEST_F(Ioctl, Commands1And7And10AreAnsweredWithAnEmptyResponse) {
    for (const unsigned int cmd : {1U, 7U, 10U, 0xffffffffU}) {
        ExpectAnswer(cmd, "x", "");
    }
    EXPECT_THAT(FakeLog::Get().Lines(), IsEmpty());
}

TEST_F(Ioctl, TimeoutWordOfTheResponseNeverReachesTheBuffer) {
    IoctlBuffer buffer(MakeRequest("", 0, 0x11223344));
    EXPECT_EQ(buffer.Send(kReload), 9);
    EXPECT_EQ(buffer.Bytes(8, 4), U32(0x11223344));
}

TEST_F(Ioctl, LengthReadsAsOne64BitNumberToo) {
    IoctlBuffer buffer("");
    EXPECT_EQ(buffer.Send(kReload), 9);
    uint64_t length = 0;
    std::memcpy(&length, buffer.bytes.data(), sizeof(length));
    EXPECT_EQ(length, 1U);
}

TEST_F(Ioctl, UnalignedBufferIsServed) {
    std::string bytes(3905, 'x');
    EXPECT_EQ(FakeVek::Get().Ioctl(kReload, bytes.data() + 1, 3904), 9);
    EXPECT_EQ(bytes.substr(1, 8), U32(1) + U32(0));
}

TEST_F(Ioctl, FailedCopyOfTheHeadIsAnsweredWithItsCode) {
    IoctlBuffer buffer("");
    FakeCopies::Get().FailCall(1, 22);
    EXPECT_EQ(buffer.Send(1), -0xf10003);
    EXPECT_EQ(FakeLog::Get().Lines(),
              Lines{"ERROR SsToOwnerRequestMsg memcpy_s failed, errno=22,(size=3904 bytes,8 bytes)"});
}

TEST_F(Ioctl, FailedCopyOfThePayloadIsAnsweredWithItsCode) {
    Register(server_.RegDumpCallBackImpl([] { return true; }, "res"));
    IoctlBuffer buffer("");
    FakeCopies::Get().FailCall(3, 34);  // after the handler's and the head's
    EXPECT_EQ(buffer.Send(kDump), -0xf10003);
    EXPECT_EQ(FakeLog::Get().Lines().back(),
              "ERROR SsToOwnerRequestMsg memcpy_s failed! errno=34,(size:3888 bytes,1 bytes)");
}

TEST_F(Ioctl, RequestKindsWithoutCallbackAnswerFailureAndSayThatTheCallbackIsNull) {
    ExpectAnswer(kChange, "0#", "1#0#");
    ExpectAnswer(kSetState, "1", "0#");
    ExpectAnswer(kReload, "", "0");
    ExpectAnswer(kDump, "", "0");
    ExpectAnswer(kStopAll, "", "0");
    ExpectAnswer(kList, "", "0#");
    ExpectAnswer(kVerify, "0#", "0");
    ExpectAnswer(kQuery, U32(0), std::string(5, '\0'));
    EXPECT_EQ(
        FakeLog::Get().LinesWith("callback is nullptr"),
        (Lines{"ERROR ChangeAppState failed, callback is nullptr",
               "ERROR SetSystemStateHandle failed, callback is nullptr", "ERROR Reload cfg failed, callback is nullptr",
               "ERROR DumpHandle failed, callback is nullptr", "ERROR StopAllApp failed, callback is nullptr",
               "ERROR QueryAppList failed, callback is nullptr", "ERROR VerifyApp failed, callback is nullptr",
               "ERROR QueryAppState failed, callback is nullptr"}));
}

TEST_F(Ioctl, CallbacksThatThrowCountAsFailedAndTheirOutputIsDropped) {
    const auto fail = [] { throw std::runtime_error("callback"); };
    Register(server_.RegSsChangeAppTimeoutCallBackImpl(
        [&](const Apps&, const Apps&, const Apps&, std::vector<AppChangeInfo>& result, int) {
            result.push_back({"a", AppChangeState::SUCCESS});
            fail();
            return true;
        },
        "res"));
    Register(server_.RegSetSystemStateTimeoutCallBackImpl([&](int, int) { return fail(), true; }, "res"));
    Register(server_.RegReloadCallBackImpl([&] { return fail(), true; }, "res"));
    Register(server_.RegQueryAppListCallBackImpl([&](std::vector<std::string>&) { return fail(), true; }, "res"));
    Register(server_.RegSsVerifyAppCallBackImpl([&](const auto&) { return fail(), true; }, "res"));
    Register(server_.RegSsQueryAppStateCallBackImpl(
        [&](const auto&, std::vector<AppStatus>& states, int) {
            states.push_back({"a", 1, 0});
            fail();
            return true;
        },
        "res"));
    ExpectAnswer(kChange, "0#", "1#0#");
    ExpectAnswer(kSetState, "1", "0#");
    ExpectAnswer(kReload, "", "0");
    ExpectAnswer(kList, "", "0#");
    ExpectAnswer(kVerify, "0#", "0");
    ExpectAnswer(kQuery, U32(0), std::string(5, '\0'));
}

TEST_F(Ioctl, ChangeSortsTheApplicationsByOptionAndAnswersTheResults) {
    Register(server_.RegSsChangeAppTimeoutCallBackImpl(
        [](const Apps& term, const Apps& start, const Apps& restart, std::vector<AppChangeInfo>& result, int timeout) {
            EXPECT_EQ(timeout, 3000);
            EXPECT_THAT(term, SizeIs(1));
            EXPECT_THAT(start, SizeIs(2));
            EXPECT_THAT(restart, SizeIs(1));
            EXPECT_EQ(term.at(0).appName, "t");
            EXPECT_EQ(start.at(0).appName, "s1");
            EXPECT_THAT(start.at(0).args, ElementsAre("x", "y"));
            EXPECT_EQ(start.at(1).appName, "s2");
            EXPECT_THAT(start.at(1).dynamicPara, ElementsAre(Pair(1, ElementsAre("v"))));
            EXPECT_EQ(restart.at(0).appName, "r");
            result = {{"s1", AppChangeState::SUCCESS}, {"t", AppChangeState::TERM_FAILED}};
            return false;
        },
        "res"));
    ExpectAnswer(kChange, "5#s1#0#2#x#y#0#t#1#0#0#r#2#0#0#ghost#3#0#0#s2#0#0#1#1#1#v#", "3#0#s1#0#t#1#");
    EXPECT_EQ(LinesWithoutTimes(),
              (Lines{"INFO ChangeAppState owner unpack request name=s1, optionType=0(START), argvSize=2",
                     "INFO ChangeAppState owner unpack request name=t, optionType=1(TERM), argvSize=0",
                     "INFO ChangeAppState owner unpack request name=r, optionType=2(RESTART), argvSize=0",
                     "INFO ChangeAppState owner unpack request name=ghost, optionType=3(), argvSize=0",
                     "INFO ChangeAppState owner unpack request name=s2, optionType=0(START), argvSize=0",
                     "INFO [BOOT_TRACE][SS_SERVER] ChangeAppState receive app list name=s1 optionType=0(START)",
                     "INFO [BOOT_TRACE][SS_SERVER] ChangeAppState receive app list name=t optionType=1(TERM)",
                     "INFO [BOOT_TRACE][SS_SERVER] ChangeAppState receive app list name=r optionType=2(RESTART)",
                     "INFO [BOOT_TRACE][SS_SERVER] ChangeAppState receive app list name=ghost optionType=3()",
                     "INFO [BOOT_TRACE][SS_SERVER] ChangeAppState receive app list name=s2 optionType=0(START)",
                     "INFO ChangeAppState with timeout callback end. ret=0(false)",
                     "INFO ChangeAppState owner pack response "
                     "appSize+1#cb_ret#app#(SU-0,TERM_F,START_F,RESTART_F,INIT)#:3#0#s1#0#t#1#",
                     "INFO [BOOT_TRACE][SS_SERVER] ChangeApp finish"}));
}

TEST_F(Ioctl, ChangeCallbackWithTimeoutIsPreferred) {
    Register(
        server_.RegSsChangeAppCallBackImpl([](const auto&, const auto&, const auto&, auto&) { return true; }, "res"));
    ExpectAnswer(kChange, "0#", "1#1#");
    EXPECT_EQ(FakeLog::Get().LinesWith("callback end"), Lines{"INFO ChangeAppState callback end. ret=1(true)"});

    Register(server_.RegSsChangeAppTimeoutCallBackImpl(
        [](const auto&, const auto&, const auto&, auto&, int) { return false; }, "res"));
    ExpectAnswer(kChange, "0#", "1#0#");
    EXPECT_EQ(FakeLog::Get().LinesWith("callback end"),
              Lines{"INFO ChangeAppState with timeout callback end. ret=0(false)"});
}

TEST_F(Ioctl, TimeoutBeyondTheRangeOfIntArrivesNegative) {
    int seen = 0;
    Register(server_.RegSetSystemStateTimeoutCallBackImpl(
        [&](int, int timeoutMs) {
            seen = timeoutMs;
            return true;
        },
        "res"));
    ExpectAnswer(kSetState, MakeRequest("1", 1, 0x80000000U), "1#");
    EXPECT_EQ(seen, -2147483647 - 1);
}

TEST_F(Ioctl, UnreadableChangeIsAnsweredWithFailure) {
    Register(server_.RegSsChangeAppTimeoutCallBackImpl(
        [](const auto&, const auto&, const auto&, auto&, int) {
            ADD_FAILURE();
            return true;
        },
        "res"));
    ExpectAnswer(kChange, "2#a#0#0#0#", "1#0#");
    ExpectAnswer(kChange, MakeRequest("0#", 3889, 0), "1#0#");
    EXPECT_EQ(FakeLog::Get().LinesWith("UnPackChangeAppInfoRequestMsg"),
              (Lines{"ERROR UnPackChangeAppInfoRequestMsg failed, appChangeList size=2",
                     "ERROR UnPackChangeAppInfoRequestMsg failed, appChangeList size=0"}));
}

TEST_F(Ioctl, ChangeAnswerThatDoesNotFitIsLeftEmpty) {
    Register(server_.RegSsChangeAppTimeoutCallBackImpl(
        [](const auto&, const auto&, const auto&, auto& result, int) {
            result.push_back({std::string(3888, 'n'), AppChangeState::SUCCESS});
            return true;
        },
        "res"));
    ExpectAnswer(kChange, "0#", "");
    EXPECT_EQ(FakeLog::Get().LinesWith("PackChangeAppInfoResponse"),
              Lines{"ERROR PackChangeAppInfoResponse failed, ret=0"});
    EXPECT_EQ(LinesWithoutTimes().back(), "INFO [BOOT_TRACE][SS_SERVER] ChangeApp finish");
}

TEST_F(Ioctl, SetStateCallsTheCallbackWithTimeoutFirst) {
    Register(server_.RegSetSystemStateCallBackImpl([](int state) { return state == 2; }, "res"));
    ExpectAnswer(kSetState, "2#", "1#");
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"INFO UnPackSetSystemStateRequest ssMsgStr=2#, state=2(SUSPEND)",
                                             "INFO SetSystemStateHandle callback begin. state=2(SUSPEND)",
                                             "INFO SetSystemStateHandle callback end. ret=1"}));

    Register(server_.RegSetSystemStateTimeoutCallBackImpl(
        [](int state, int timeoutMs) { return state == -1 && timeoutMs == 250; }, "res"));
    ExpectAnswer(kSetState, MakeRequest("-1", 2, 250), "1#");
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"INFO UnPackSetSystemStateRequest ssMsgStr=-1, state=-1()",
                                             "INFO SetSystemStateHandle with timeout callback begin. state=-1()",
                                             "INFO SetSystemStateHandle with timeout callback end. ret=1"}));
}

TEST_F(Ioctl, UnreadableStateIsAnsweredWithFailure) {
    Register(server_.RegSetSystemStateTimeoutCallBackImpl(
        [](int, int) {
            ADD_FAILURE();
            return true;
        },
        "res"));
    ExpectAnswer(kSetState, "abc", "0#");
    EXPECT_EQ(FakeLog::Get().Lines(),
              Lines{"ERROR SetSystemStateHandle: UnPackSetSystemStateRequest fail, state=0(OFF)"});
}

TEST_F(Ioctl, StateAnswerThatCannotBeCopiedIsLeftEmpty) {
    Register(server_.RegSetSystemStateTimeoutCallBackImpl([](int, int) { return true; }, "res"));
    FakeCopies::Get().FailCall(1, 34);
    ExpectAnswer(kSetState, "1", "");
}

TEST_F(Ioctl, ReloadDumpAndStopAllAnswerABareDigit) {
    Register(server_.RegReloadCallBackImpl([] { return true; }, "res"));
    Register(server_.RegDumpCallBackImpl([] { return true; }, "res"));
    Register(server_.RegStopAllAppCallBackImpl([] { return false; }, "res"));
    ExpectAnswer(kReload, "", "1");
    ExpectAnswer(kDump, "", "1");
    ExpectAnswer(kStopAll, "", "0");
    EXPECT_EQ(FakeLog::Get().Lines(),
              (Lines{"INFO Reload cfg callback end. ret=1", "INFO Reload respStr=1 respStrSize=1.",
                     "INFO DumpHandle callback end. ret=1", "INFO StopAllApp callback end. ret=0"}));
}

TEST_F(Ioctl, FailedCopiesOfTheBareAnswersAreLoggedAndLeaveTheResponseEmpty) {
    Register(server_.RegQueryAppListCallBackImpl([](auto&) { return true; }, "res"));
    Register(server_.RegSsVerifyAppCallBackImpl([](const auto&) { return true; }, "res"));
    const std::map<unsigned int, std::string> messages = {
        {kReload, "ERROR Reload memcpy_s failed, err=34"},      {kDump, "ERROR DumpHandle memcpy_s failed, err=34"},
        {kStopAll, "ERROR stopAllApp memcpy_s failed, err=34"}, {kList, "ERROR QueryAppList memcpy_s failed, err=34"},
        {kVerify, "ERROR VerifyApp memcpy_s failed, err=34"},
    };
    for (const auto& [cmd, message] : messages) {
        FakeCopies::Get().FailCall(1, 34);
        ExpectAnswer(cmd, "0#", "");
        EXPECT_EQ(FakeLog::Get().Lines().back(), message);
    }
}

TEST_F(Ioctl, ListAnswersTheNamesInTheOrderOfTheCallbackOnlyOnSuccess) {
    bool ok = true;
    Register(server_.RegQueryAppListCallBackImpl(
        [&](std::vector<std::string>& names) {
            names = {"nav", "cam"};
            return ok;
        },
        "res"));
    ExpectAnswer(kList, "", "1#nav#cam#");
    ok = false;
    ExpectAnswer(kList, "", "0#");
    EXPECT_EQ(FakeLog::Get().Lines(),
              (Lines{"INFO QueryAppList callback end. ret=1", "INFO QueryAppList callback end. ret=0"}));
}

TEST_F(Ioctl, ListMayFillThePayloadAndALongerOneIsLeftEmpty) {
    size_t size = 3885;  // with the result, both separators and the name: 3888 bytes
    Register(server_.RegQueryAppListCallBackImpl(
        [&](std::vector<std::string>& names) {
            names = {std::string(size, 'n')};
            return true;
        },
        "res"));
    ExpectAnswer(kList, "", "1#" + std::string(3885, 'n') + "#");
    ++size;
    ExpectAnswer(kList, "", "");
    EXPECT_EQ(FakeLog::Get().Lines().back(), "ERROR QueryAppList memcpy_s failed, err=34");
}

TEST_F(Ioctl, VerifyPassesTheRecordsOnAndAnswersABareDigit) {
    Register(server_.RegSsVerifyAppCallBackImpl(
        [](const std::map<std::string, unsigned int>& apps) {
            EXPECT_THAT(apps, ElementsAre(Pair("cam", 1U), Pair("nav", 9U)));
            return true;
        },
        "res"));
    ExpectAnswer(kVerify, "2#nav#9#cam#1#", "1");
    EXPECT_EQ(FakeLog::Get().Lines(),
              (Lines{"INFO UnPackVerifyRequest ssMsgStr=<2#nav#9#cam#1#,14>", "INFO UnPackVerifyRequest appInfo size=2",
                     "INFO VerifyApp receive changeRecord name=cam opt=TERM",
                     "INFO VerifyApp receive changeRecord name=nav opt=", "INFO VerifyApp callback end. ret=1"}));
}

TEST_F(Ioctl, UnreadableVerifyIsAnsweredWithFailure) {
    Register(server_.RegSsVerifyAppCallBackImpl(
        [](const auto&) {
            ADD_FAILURE();
            return true;
        },
        "res"));
    ExpectAnswer(kVerify, "1025#", "0");
    EXPECT_EQ(FakeLog::Get().Lines().back(), "ERROR VerifyApp UnPackVerifyRequest failed, change record size=0");
}

TEST_F(Ioctl, QueryAnswersEachApplicationInBinary) {
    Register(server_.RegSsQueryAppStateCallBackImpl(
        [](const std::vector<std::string>& names, std::vector<AppStatus>& states, int timeoutMs) {
            EXPECT_THAT(names, ElementsAre("nav", "ghost"));
            EXPECT_EQ(timeoutMs, 3000);
            states = {{"nav", 4711, 0}, {"ghost", -1, 1}};
            return true;
        },
        "res"));
    ExpectAnswer(
        kQuery, U32(2) + Sized("nav") + Sized("ghost"),
        std::string("\1") + U32(2) + Sized("nav") + U32(4711) + U32(0) + Sized("ghost") + U32(0xffffffffU) + U32(1));
    EXPECT_EQ(LinesWithoutTimes(),
              (Lines{"INFO [BOOT_TRACE][SS_SERVER] QueryAppState begin", "INFO QueryAppState callback end. ret=1",
                     "INFO [BOOT_TRACE][SS_SERVER] QueryAppState finish"}));
}

TEST_F(Ioctl, QueryThatFailedStillAnswersTheEntriesThatCameBack) {
    Register(server_.RegSsQueryAppStateCallBackImpl(
        [](const auto&, std::vector<AppStatus>& states, int) {
            states = {{"nav", 7, 2}};
            return false;
        },
        "res"));
    ExpectAnswer(kQuery, U32(0), std::string(1, '\0') + U32(1) + Sized("nav") + U32(7) + U32(2));
}

TEST_F(Ioctl, UnreadableQueryIsAnsweredWithFailure) {
    Register(server_.RegSsQueryAppStateCallBackImpl(
        [](const auto&, auto&, int) {
            ADD_FAILURE();
            return true;
        },
        "res"));
    ExpectAnswer(kQuery, U32(1), std::string(5, '\0'));
    EXPECT_EQ(LinesWithoutTimes(), (Lines{"INFO [BOOT_TRACE][SS_SERVER] QueryAppState begin",
                                          "ERROR QueryAppState DeserializeMessage failed",
                                          "INFO [BOOT_TRACE][SS_SERVER] QueryAppState finish"}));
}

TEST_F(Ioctl, QueryAnswerThatDoesNotFitHoldsTheEntriesBefore) {
    Register(server_.RegSsQueryAppStateCallBackImpl(
        [](const auto&, std::vector<AppStatus>& states, int) {
            states = {{"nav", 7, 0}, {std::string(3860, 'n'), 8, 0}, {"cam", 9, 0}};
            return true;
        },
        "res"));
    IoctlBuffer buffer(U32(0));
    EXPECT_EQ(buffer.Send(kQuery), 5 + 15 + 8);
    EXPECT_EQ(buffer.All(), buffer.Expected(std::string("\1") + U32(1) + Sized("nav") + U32(7) + U32(0)));
    EXPECT_EQ(FakeLog::Get().LinesWith("SerializeMessage"), Lines{"ERROR QueryAppState SerializeMessage failed"});
}
