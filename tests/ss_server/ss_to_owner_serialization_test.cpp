#include "ss_server/ss_to_owner_serialization.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <locale>

#include "tests/fake_platform/fake_platform.h"
#include "tests/ss_server/ss_requests.h"

using namespace ProcMgr;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

using Lines = std::vector<std::string>;

std::string Repeat(const std::string& text, size_t count) {
    std::string repeated;
    for (size_t i = 0; i < count; ++i) {
        repeated += text;
    }
    return repeated;
}

bool ReadsChange(const std::string& payload, std::vector<AppInfo>& apps) {
    return SS::UnPackChangeAppInfoRequestMsg(MakeRequest(payload), apps);
}

bool RefusesChange(const std::string& payload) {
    std::vector<AppInfo> apps;
    return !ReadsChange(payload, apps);
}

std::string PayloadOf(const SsToOwnerResponseMsg& response) {
    return std::string(response.payload, response.len);
}

}  // namespace

TEST(UnPackChangeAppInfoRequestMsg, RequestOfNoApplicationYieldsAnEmptyListAndSuccess) {
    std::vector<AppInfo> apps(3);
    EXPECT_TRUE(ReadsChange("0#", apps));
    EXPECT_THAT(apps, IsEmpty());
    EXPECT_THAT(FakeLog::Get().Lines(), IsEmpty());
}

TEST(UnPackChangeAppInfoRequestMsg, OneApplicationWithoutArgumentsAndDynamicParameters) {
    std::vector<AppInfo> apps;
    ASSERT_TRUE(ReadsChange("1#a#0#0#0#", apps));
    ASSERT_EQ(apps.size(), 1U);
    EXPECT_EQ(apps[0].timeout, 0U);
    EXPECT_EQ(apps[0].name, "a");
    EXPECT_EQ(apps[0].optionType, 0U);
    EXPECT_THAT(apps[0].argv, IsEmpty());
    EXPECT_THAT(apps[0].dynamicPara, IsEmpty());
    EXPECT_EQ(FakeLog::Get().Lines(),
              Lines{"INFO ChangeAppState owner unpack request name=a, optionType=0(START), argvSize=0"});
    EXPECT_EQ(FakeLog::Get().Records()[0].file, "ss_to_owner_serialization.cpp");
}

TEST(UnPackChangeAppInfoRequestMsg, ReadsArgumentsAndDynamicParametersInOrder) {
    std::vector<AppInfo> apps;
    ASSERT_TRUE(ReadsChange("2#nav#1#2#x##0#cam#2#0#3#0#2#v1#v2#2#1#w#-7#0#", apps));
    ASSERT_EQ(apps.size(), 2U);
    EXPECT_EQ(apps[0].name, "nav");
    EXPECT_EQ(apps[0].optionType, 1U);
    EXPECT_THAT(apps[0].argv, ElementsAre("x", ""));
    EXPECT_EQ(apps[1].name, "cam");
    EXPECT_EQ(apps[1].optionType, 2U);
    EXPECT_THAT(apps[1].dynamicPara,
                ElementsAre(Pair(-7, IsEmpty()), Pair(0, ElementsAre("v1", "v2")), Pair(2, ElementsAre("w"))));
    EXPECT_EQ(FakeLog::Get().Lines(),
              (Lines{"INFO ChangeAppState owner unpack request name=nav, optionType=1(TERM), argvSize=2",
                     "INFO ChangeAppState owner unpack request name=cam, optionType=2(RESTART), argvSize=0"}));
}

TEST(UnPackChangeAppInfoRequestMsg, OptionOutsideTheListIsKeptAndHasNoName) {
    std::vector<AppInfo> apps;
    ASSERT_TRUE(ReadsChange("1#a#7#0#0#", apps));
    EXPECT_EQ(apps[0].optionType, 7U);
    EXPECT_EQ(FakeLog::Get().Lines(),
              Lines{"INFO ChangeAppState owner unpack request name=a, optionType=7(), argvSize=0"});
}

TEST(UnPackChangeAppInfoRequestMsg, BytesBehindTheLastFieldAreIgnored) {
    std::vector<AppInfo> apps;
    EXPECT_TRUE(ReadsChange("1#a#0#0#0#rubbish", apps));
    EXPECT_EQ(apps.size(), 1U);
}

TEST(UnPackChangeAppInfoRequestMsg, MoreThan1024ApplicationsFailWithTheLimitInTheMessage) {
    EXPECT_TRUE(RefusesChange("1025#"));
    EXPECT_EQ(FakeLog::Get().Lines(), Lines{"ERROR ChangeAppState owner unpack request appSize=1025 > 1024"});
}

TEST(UnPackChangeAppInfoRequestMsg, MoreThan1024ArgumentsFailWithTheLimitInTheMessage) {
    EXPECT_TRUE(RefusesChange("1#a#0#1025#"));
    EXPECT_EQ(FakeLog::Get().Lines(), Lines{"ERROR ChangeAppState owner unpack request argvSize=1025 > 1024"});
}

TEST(UnPackChangeAppInfoRequestMsg, As1024ArgumentsAreAccepted) {
    std::vector<AppInfo> apps;
    ASSERT_TRUE(ReadsChange("1#a#0#1024#" + Repeat("x#", 1024) + "0#", apps));
    EXPECT_EQ(apps[0].argv.size(), 1024U);
}

TEST(UnPackChangeAppInfoRequestMsg, PayloadSizeAbove3888IsRefusedBeforeAnyParsing) {
    std::vector<AppInfo> apps(1);
    EXPECT_FALSE(SS::UnPackChangeAppInfoRequestMsg(MakeRequest("1025#", 3889, 0), apps));
    EXPECT_FALSE(SS::UnPackChangeAppInfoRequestMsg(MakeRequest("0#", std::numeric_limits<uint64_t>::max(), 0), apps));
    EXPECT_THAT(apps, IsEmpty());
    EXPECT_THAT(FakeLog::Get().Lines(), IsEmpty());
}

TEST(UnPackChangeAppInfoRequestMsg, PayloadThatFillsTheRecordNeedsNoTerminator) {
    const std::string head = "1#";
    const std::string tail = "#0#0#0#";
    const std::string name(3888 - head.size() - tail.size(), 'n');
    std::vector<AppInfo> apps;
    ASSERT_TRUE(ReadsChange(head + name + tail, apps));
    EXPECT_EQ(apps[0].name, name);
}

TEST(UnPackChangeAppInfoRequestMsg, MalformedTextIsRefusedWithoutAMessageOfItsOwn) {
    const char* const malformed[] = {
        "",
        "#",
        "1",
        "x#",
        "-1#",
        " 1#",
        "+1#",
        "1#",
        "1#a",
        "1#a#",
        "1#a#0",
        "1#a#x#0#0#",
        "1#a#-1#0#0#",
        "1#a#0#1#",
        "1#a#0#1#x",
        "1#a#0#0#",
        "1#a#0#0#0",
        "1#a#4294967296#0#0#",
        "1#a#0#0x#0#",
        "2#a#0#0#0#",
        "99999999999999999999999#",
        "1#a#0#99999999999999999999999#",
    };
    for (const char* text : malformed) {
        EXPECT_TRUE(RefusesChange(text)) << text;
    }
    // Only the one complete application of a list of two was logged.
    EXPECT_EQ(FakeLog::Get().Lines(),
              Lines{"INFO ChangeAppState owner unpack request name=a, optionType=0(START), argvSize=0"});
}

TEST(UnPackChangeAppInfoRequestMsg, LargeCountsWithNothingBehindThemCostNothing) {
    EXPECT_TRUE(RefusesChange("1024#a#0#1024#"));
}

TEST(UnPackDynamicPara, IndexAbove2Fails) {
    EXPECT_TRUE(RefusesChange("1#cam#0#0#1#3#1#x#"));
    EXPECT_EQ(FakeLog::Get().Lines(),
              Lines{"ERROR ChangeAppState unpack request failed, cam dynamicPara index=3 invalid"});
}

TEST(UnPackDynamicPara, FourGroupsFail) {
    EXPECT_TRUE(RefusesChange("1#cam#0#0#4#"));
    EXPECT_EQ(FakeLog::Get().Lines(),
              Lines{"ERROR ChangeAppState unpack request failed, cam dynamicParaSize=4 invalid"});
}

TEST(UnPackDynamicPara, MoreThan1024ValuesFail) {
    EXPECT_TRUE(RefusesChange("1#cam#0#0#1#-1#1025#"));
    EXPECT_EQ(FakeLog::Get().Lines(),
              Lines{"ERROR ChangeAppState unpack dynamicPara fail, cam index=-1 valueNum=1025 invalid"});
}

TEST(UnPackDynamicPara, NegativeIndexIsNotRefused) {
    std::vector<AppInfo> apps;
    ASSERT_TRUE(ReadsChange("1#cam#0#0#1#-2147483648#1#x#", apps));
    EXPECT_THAT(apps[0].dynamicPara, ElementsAre(Pair(std::numeric_limits<int32_t>::min(), ElementsAre("x"))));
}

TEST(UnPackDynamicPara, ValuesOfAnIndexThatComesTwiceAreJoined) {
    AppInfo app;
    FieldReader reader("3#1#1#x#1#2#y#z#1#0#");
    ASSERT_TRUE(SS::UnPackDynamicPara(reader, app));
    EXPECT_THAT(app.dynamicPara, ElementsAre(Pair(1, ElementsAre("x", "y", "z"))));
}

TEST(UnPackDynamicPara, GroupWithoutValuesKeepsItsIndex) {
    AppInfo app;
    FieldReader reader("1#2#0#");
    ASSERT_TRUE(SS::UnPackDynamicPara(reader, app));
    EXPECT_THAT(app.dynamicPara, ElementsAre(Pair(2, IsEmpty())));
}

TEST(UnPackDynamicPara, MalformedGroupsAreRefusedWithoutAMessage) {
    for (const char* text : {"", "x#", "1#", "1#1#", "1#1#1#", "1#1#1#x", "1#2147483648#0#", "1#1.0#0#", "-1#"}) {
        AppInfo app;
        FieldReader reader(text);
        EXPECT_FALSE(SS::UnPackDynamicPara(reader, app)) << text;
    }
    EXPECT_THAT(FakeLog::Get().Lines(), IsEmpty());
}

TEST(UnPackDynamicPara, StopsAtTheFirstMissingValueOfALargeCount) {
    AppInfo app;
    FieldReader reader("1#1#1024#x#");
    EXPECT_FALSE(SS::UnPackDynamicPara(reader, app));
    EXPECT_THAT(app.dynamicPara, ElementsAre(Pair(1, ElementsAre("x", ""))));
}

TEST(UnPackVerifyRequest, ReadsNamesAndValuesAndTheLastOfADuplicateCounts) {
    std::map<std::string, unsigned int> apps{{"old", 1}};
    ASSERT_TRUE(SS::UnPackVerifyRequest(MakeRequest("3#nav#1#cam#4294967295#nav#0#"), apps));
    EXPECT_THAT(apps, ElementsAre(Pair("cam", 4294967295U), Pair("nav", 0U)));
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"INFO UnPackVerifyRequest ssMsgStr=<3#nav#1#cam#4294967295#nav#0#,29>",
                                             "INFO UnPackVerifyRequest appInfo size=2"}));
}

TEST(UnPackVerifyRequest, RequestOf1025NamesFailsWithTheLimitInTheMessage) {
    std::map<std::string, unsigned int> apps;
    EXPECT_FALSE(SS::UnPackVerifyRequest(MakeRequest("1025#"), apps));
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"INFO UnPackVerifyRequest ssMsgStr=<1025#,5>",
                                             "ERROR UnPackVerifyRequest appInfo size=1025 > 1024"}));
}

TEST(UnPackVerifyRequest, PayloadSizeAbove3888IsRefusedBeforeTheMessage) {
    std::map<std::string, unsigned int> apps;
    EXPECT_FALSE(SS::UnPackVerifyRequest(MakeRequest("0#", 3889, 0), apps));
    EXPECT_THAT(FakeLog::Get().Lines(), IsEmpty());
}

TEST(UnPackVerifyRequest, StopsAtTheFirstMissingNameOfALargeCount) {
    std::map<std::string, unsigned int> apps;
    EXPECT_FALSE(SS::UnPackVerifyRequest(MakeRequest("1024#a#7#"), apps));
    EXPECT_THAT(apps, ElementsAre(Pair("", 0U), Pair("a", 7U)));
}

TEST(UnPackVerifyRequest, MalformedTextIsRefused) {
    for (const char* text : {"", "1#", "1#a#", "1#a#1", "1#a#-1#", "1#a#4294967296#", "2#a#1#"}) {
        std::map<std::string, unsigned int> apps;
        EXPECT_FALSE(SS::UnPackVerifyRequest(MakeRequest(text), apps)) << text;
    }
    EXPECT_THAT(FakeLog::Get().LinesWith("appInfo size"), IsEmpty());
}

TEST(UnPackSetSystemStateRequest, ReadsTheNumberWithAndWithoutSeparator) {
    int state = 9;
    ASSERT_TRUE(SS::UnPackSetSystemStateRequest(MakeRequest("1"), state));
    EXPECT_EQ(state, 1);
    ASSERT_TRUE(SS::UnPackSetSystemStateRequest(MakeRequest("-1#rest"), state));
    EXPECT_EQ(state, -1);
    EXPECT_EQ(FakeLog::Get().Lines(), (Lines{"INFO UnPackSetSystemStateRequest ssMsgStr=1, state=1(WORKING)",
                                             "INFO UnPackSetSystemStateRequest ssMsgStr=-1#rest, state=-1()"}));
}

TEST(UnPackSetSystemStateRequest, RubbishIsNeverTakenForState0) {
    for (const char* text : {"", "#", "abc", "1x", "1 ", "+1", "2147483648", "--1", "-"}) {
        int state = 9;
        EXPECT_FALSE(SS::UnPackSetSystemStateRequest(MakeRequest(text), state)) << text;
        EXPECT_EQ(state, 0) << text;
    }
    int state = 9;
    EXPECT_FALSE(SS::UnPackSetSystemStateRequest(MakeRequest("1", 3889, 0), state));
    EXPECT_EQ(state, 0);
    EXPECT_THAT(FakeLog::Get().Lines(), IsEmpty());
}

TEST(PackSetSystemStateResponse, WritesOneDigitAndItsSeparator) {
    SsToOwnerResponseMsg response;
    ASSERT_TRUE(SS::PackSetSystemStateResponse(true, response));
    EXPECT_EQ(PayloadOf(response), "1#");
    ASSERT_TRUE(SS::PackSetSystemStateResponse(false, response));
    EXPECT_EQ(PayloadOf(response), "0#");
}

TEST(PackSetSystemStateResponse, FailedCopyIsLoggedAndLeavesTheLengthAlone) {
    SsToOwnerResponseMsg response;
    FakeCopies::Get().FailCall(1, 34);
    EXPECT_FALSE(SS::PackSetSystemStateResponse(true, response));
    EXPECT_EQ(response.len, 0U);
    EXPECT_EQ(FakeLog::Get().Lines(), Lines{"ERROR PackSetSystemStateResponse failed respStr=1# respStrSize=2"});
}

TEST(PackChangeAppInfoResponse, OneApplicationThatFailedToStart) {
    SsToOwnerResponseMsg response;
    ASSERT_TRUE(SS::PackChangeAppInfoResponse(true, {{"nav", AppChangeState::START_FAILED}}, response));
    EXPECT_EQ(PayloadOf(response), "2#1#nav#2#");
    EXPECT_EQ(FakeLog::Get().Lines(), Lines{"INFO ChangeAppState owner pack response "
                                            "appSize+1#cb_ret#app#(SU-0,TERM_F,START_F,RESTART_F,INIT)#:2#1#nav#2#"});
}

TEST(PackChangeAppInfoResponse, FailureWithoutApplications) {
    SsToOwnerResponseMsg response;
    ASSERT_TRUE(SS::PackChangeAppInfoResponse(false, {}, response));
    EXPECT_EQ(PayloadOf(response), "1#0#");
}

TEST(PackChangeAppInfoResponse, EveryStateIsPrintedAsItsNumber) {
    SsToOwnerResponseMsg response;
    ASSERT_TRUE(SS::PackChangeAppInfoResponse(
        false,
        {{"a", AppChangeState::INIT}, {"b", AppChangeState::PROCESSING}, {"c", AppChangeState::START_FAILED_BY_EIO}},
        response));
    EXPECT_EQ(PayloadOf(response), "4#0#a#4#b#5#c#6#");
}

TEST(PackChangeAppInfoResponse, TextOf3887BytesFitsAndOneMoreFails) {
    const std::string frame = "2#1##0#";
    SsToOwnerResponseMsg response;
    const std::string fitting(3887 - frame.size(), 'n');
    ASSERT_TRUE(SS::PackChangeAppInfoResponse(true, {{fitting, AppChangeState::SUCCESS}}, response));
    EXPECT_EQ(response.len, 3887U);

    SsToOwnerResponseMsg refused;
    FakeLog::Get().Clear();
    EXPECT_FALSE(SS::PackChangeAppInfoResponse(true, {{fitting + "n", AppChangeState::SUCCESS}}, refused));
    EXPECT_EQ(refused.len, 0U);
    EXPECT_EQ(FakeLog::Get().Lines(), Lines{"ERROR ChangeAppState owner pack response failed size=3888 beyond 3888!!"});
}

TEST(PackChangeAppInfoResponse, FailedCopyIsLoggedAndLeavesTheLengthAlone) {
    SsToOwnerResponseMsg response;
    FakeCopies::Get().FailCall(1, 34);
    EXPECT_FALSE(SS::PackChangeAppInfoResponse(true, {}, response));
    EXPECT_EQ(response.len, 0U);
    EXPECT_EQ(FakeLog::Get().Lines().back(), "ERROR memcpy_s failed, copy respStr=1#1# respStrSize=4 failed");
}

TEST(PackChangeAppInfoResponse, NumbersAreNotGroupedByTheProcessLocale) {
    struct Grouping : std::numpunct<char> {
        char do_thousands_sep() const override { return ','; }
        std::string do_grouping() const override { return "\1"; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Grouping));
    SsToOwnerResponseMsg response;
    const std::vector<AppChangeInfo> apps(12, {"a", AppChangeState::SUCCESS});
    EXPECT_TRUE(SS::PackChangeAppInfoResponse(true, apps, response));
    EXPECT_EQ(PayloadOf(response).substr(0, 5), "13#1#");
    std::locale::global(before);
}
