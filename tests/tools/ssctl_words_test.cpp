#include "tools/ssctl/words.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

using namespace Ssctl;
using ProcMgr::AppInfo;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

namespace {

using Texts = std::vector<std::string>;

/// Names and option types, in order.
std::vector<std::pair<std::string, uint32_t>> Orders(const std::vector<AppInfo>& apps) {
    std::vector<std::pair<std::string, uint32_t>> orders;
    for (const AppInfo& app : apps) {
        orders.emplace_back(app.name, app.optionType);
    }
    return orders;
}

ChangeWords Start(Texts names, Texts args = {}, Texts paras = {}) {
    ChangeWords words;
    words.start = std::move(names);
    words.args = std::move(args);
    words.paras = std::move(paras);
    return words;
}

}  // namespace

TEST(SplitList, TakesValuesBetweenCommas) {
    EXPECT_THAT(*SplitList("x,y,z"), ElementsAre("x", "y", "z"));
    EXPECT_THAT(*SplitList("x"), ElementsAre("x"));
}

TEST(SplitList, KeepsEmptyValues) {
    EXPECT_THAT(*SplitList(""), ElementsAre(""));
    EXPECT_THAT(*SplitList(",x,"), ElementsAre("", "x", ""));
}

TEST(SplitList, TakesTheCharacterBehindABackslashAsItIs) {
    EXPECT_THAT(*SplitList(R"(640\,480,a\\b,\c)"), ElementsAre("640,480", R"(a\b)", "c"));
}

TEST(SplitList, RefusesABackslashAtTheEnd) {
    EXPECT_EQ(SplitList("x\\").What(), "'x\\' ends with a backslash that has nothing to take");
}

TEST(SplitList, RefusesAHashBecauseItEndsAField) {
    EXPECT_EQ(SplitList("a,b#c").What(), "'a,b#c' holds a '#', which ends a field of a request");
}

TEST(SplitNames, JoinsSeveralLists) {
    EXPECT_THAT(*SplitNames({"a,b", "c"}), ElementsAre("a", "b", "c"));
}

TEST(CheckNames, RefusesAnEmptyNameAndAHash) {
    EXPECT_EQ(CheckNames({"a", ""}).What(), "an application's name is empty");
    EXPECT_EQ(CheckNames({"a#b"}).What(), "'a#b' holds a '#', which ends a field of a request");
}

TEST(AssembleChange, PutsStopsBeforeStartsBeforeRestarts) {
    ChangeWords words;
    words.restart = {"d"};
    words.start = {"b", "c"};
    words.stop = {"a"};
    EXPECT_THAT(Orders(*AssembleChange(words)), ElementsAre(Pair("a", 1), Pair("b", 0), Pair("c", 0), Pair("d", 2)));
}

TEST(AssembleChange, RefusesAChangeOfNothing) {
    EXPECT_EQ(AssembleChange({}).What(), "no application is named; say which to stop, start or restart");
}

TEST(AssembleChange, RefusesTheSameOperationTwiceForAnApplication) {
    EXPECT_EQ(AssembleChange(Start({"a", "b", "a"})).What(), "'a' is named twice for the same operation");
}

TEST(AssembleChange, LetsAnApplicationBeStoppedAndStarted) {
    ChangeWords words = Start({"a"});
    words.stop = {"a"};
    EXPECT_THAT(Orders(*AssembleChange(words)), ElementsAre(Pair("a", 1), Pair("a", 0)));
}

TEST(AssembleChange, AddsUpTheArgumentsOfAnApplication) {
    const auto apps = AssembleChange(Start({"a", "b"}, {"b=x,y", "b=--size=3"}));
    EXPECT_THAT((*apps)[0].argv, IsEmpty());
    EXPECT_THAT((*apps)[1].argv, ElementsAre("x", "y", "--size=3"));
}

TEST(AssembleChange, GivesArgumentsToAStartAndARestartButNotToAStop) {
    ChangeWords words = Start({"a"}, {"a=x"});
    words.stop = {"a"};
    words.restart = {"a"};
    const auto apps = AssembleChange(words);
    EXPECT_THAT((*apps)[0].argv, IsEmpty());
    EXPECT_THAT((*apps)[1].argv, ElementsAre("x"));
    EXPECT_THAT((*apps)[2].argv, ElementsAre("x"));
}

TEST(AssembleChange, TakesDynamicParametersByIndex) {
    const auto apps = AssembleChange(Start({"v@l"}, {}, {"v@l:0=x,y", "v@l:2=z", "v@l:0=w", "v@l:-1=n"}));
    EXPECT_THAT((*apps)[0].dynamicPara, ElementsAre(Pair(-1, ElementsAre("n")), Pair(0, ElementsAre("x", "y", "w")),
                                                    Pair(2, ElementsAre("z"))));
}

TEST(AssembleChange, TakesAParameterWithoutValues) {
    const auto apps = AssembleChange(Start({"v"}, {}, {"v:1"}));
    EXPECT_THAT((*apps)[0].dynamicPara, ElementsAre(Pair(1, IsEmpty())));
}

TEST(AssembleChange, TakesTheLastColonOfAParameterAsTheOneBeforeItsIndex) {
    const auto apps = AssembleChange(Start({"a:b"}, {}, {"a:b:1=c:d=e"}));
    EXPECT_THAT((*apps)[0].dynamicPara, ElementsAre(Pair(1, ElementsAre("c:d=e"))));
}

TEST(AssembleChange, RefusesArgumentsAndParametersOfAnApplicationThatItNeitherStartsNorRestarts) {
    ChangeWords words = Start({"a"}, {"b=x"});
    words.stop = {"b"};
    EXPECT_EQ(AssembleChange(words).What(), "'b=x' is for 'b', which this request neither starts nor restarts");
    EXPECT_EQ(AssembleChange(Start({"a"}, {}, {"c:0=x"})).What(),
              "'c:0=x' is for 'c', which this request neither starts nor restarts");
}

TEST(AssembleChange, SaysTheFormOfArgumentsAndParametersThatHaveAnother) {
    EXPECT_EQ(AssembleChange(Start({"a"}, {"a"})).What(), "'a' is not of the form NAME=VALUE,VALUE");
    for (const std::string word : {"a=x", "a:=x", "a:one=x", "a:0x=y", "a:99999999999=x", "a: 1=x", "a:+1=x"}) {
        EXPECT_EQ(AssembleChange(Start({"a"}, {}, {word})).What(),
                  "'" + word + "' is not of the form NAME:INDEX=VALUE,VALUE");
    }
}

TEST(AssembleVerification, TakesNamesOfConditionsAndNumbers) {
    EXPECT_THAT(*AssembleVerification({"b=running", "a=TERMINATED", "c=4294967295", "d=0"}),
                ElementsAre(Pair("a", 1), Pair("b", 0), Pair("c", 4294967295U), Pair("d", 0)));
}

TEST(AssembleVerification, RefusesOtherValues) {
    for (const std::string word : {"a", "a=", "a=-1", "a=4294967296", "a=up", "a= 1", "a=1=2"}) {
        EXPECT_EQ(AssembleVerification({word}).What(),
                  "'" + word + "' is not of the form NAME=VALUE with running, terminated or a number below 2^32");
    }
}

TEST(AssembleVerification, RefusesANameThatIsEmptyOrComesTwice) {
    EXPECT_EQ(AssembleVerification({"=1"}).What(), "an application's name is empty");
    EXPECT_EQ(AssembleVerification({"a=1", "a=0"}).What(), "'a' is named twice");
}

TEST(ParseSystemState, TakesNamesInAnyCaseAndNumbers) {
    EXPECT_EQ(*ParseSystemState("OFF"), 0);
    EXPECT_EQ(*ParseSystemState("working"), 1);
    EXPECT_EQ(*ParseSystemState("Suspend"), 2);
    EXPECT_EQ(*ParseSystemState("UPGRADE"), 3);
    EXPECT_EQ(*ParseSystemState("CALIBRATION"), 4);
    EXPECT_EQ(*ParseSystemState("77"), 77);
    EXPECT_EQ(*ParseSystemState("-2147483648"), std::numeric_limits<int>::min());
}

TEST(ParseSystemState, NamesTheKnownStatesWhenItKnowsNoOther) {
    for (const std::string word : {"", "WORK", "1x", "2147483648", " 1"}) {
        EXPECT_EQ(ParseSystemState(word).What(), "'" + word +
                                                     "' is no system state; say OFF, WORKING, SUSPEND, UPGRADE, "
                                                     "CALIBRATION, or a number");
    }
}
