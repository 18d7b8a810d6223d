#include "tools/ssctl/command_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

using namespace Ssctl;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class SsctlCommandLine : public testing::Test {
protected:
    void SetUp() override {
        for (const char* const key : {"PROCMGR_RESOURCE", "PROCMGR_RUN_DIR", "PROCMGR_EVENTS"}) {
            unsetenv(key);
        }
    }

    /// What is printed is kept.
    ParsedCommandLine Parse(std::vector<const char*> words) {
        words.insert(words.begin(), "ssctl");
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        ParsedCommandLine parsed = ParseCommandLine(static_cast<int>(words.size()), words.data());
        output_ = testing::internal::GetCapturedStdout();
        complaint_ = testing::internal::GetCapturedStderr();
        return parsed;
    }

    CommandLine Good(const std::vector<const char*>& words) {
        const ParsedCommandLine parsed = Parse(words);
        EXPECT_TRUE(parsed.run) << complaint_;
        EXPECT_EQ(complaint_, "");
        return parsed.line;
    }

    std::string output_;
    std::string complaint_;
};

}  // namespace

TEST_F(SsctlCommandLine, HasTheUsualValues) {
    const CommandLine line = Good({"list"});
    EXPECT_EQ(line.command, "list");
    EXPECT_EQ(line.resource, "grp_owner");
    EXPECT_EQ(line.runDir, "");
    EXPECT_FALSE(line.json);
    EXPECT_FALSE(line.namesOnly);
    EXPECT_EQ(line.timeoutMs, 5000U);
    EXPECT_EQ(WaitMs(line), 6000U);
}

TEST_F(SsctlCommandLine, TakesGlobalOptionsBeforeAndBehindTheCommand) {
    const CommandLine before = Good({"--resource", "r", "--run-dir", "/d", "--json", "--wait", "9", "list", "--names"});
    const CommandLine behind = Good({"list", "--names", "--resource=r", "--run-dir=/d", "--json", "--wait=9"});
    for (const CommandLine& line : {before, behind}) {
        EXPECT_EQ(line.resource, "r");
        EXPECT_EQ(line.runDir, "/d");
        EXPECT_TRUE(line.json);
        EXPECT_TRUE(line.namesOnly);
        EXPECT_EQ(WaitMs(line), 9U);
    }
}

TEST_F(SsctlCommandLine, TakesTheEnvironmentWhenThereIsNoOption) {
    setenv("PROCMGR_RESOURCE", "env_owner", 1);
    setenv("PROCMGR_RUN_DIR", "/env", 1);
    setenv("PROCMGR_EVENTS", "env_queue", 1);
    EXPECT_EQ(Good({"list"}).resource, "env_owner");
    EXPECT_EQ(Good({"list"}).runDir, "/env");
    EXPECT_EQ(QueueName(Good({"events"})), "env_queue");
    EXPECT_EQ(Good({"--resource", "r", "list"}).resource, "r");
    EXPECT_EQ(QueueName(Good({"events", "--queue", "q"})), "q");
}

TEST_F(SsctlCommandLine, TakesNamesAndRepeatedArguments) {
    const CommandLine line =
        Good({"start", "--args", "a=x,y", "a", "b", "--args", "a=--z", "--para", "b:-1=q", "--timeout", "100"});
    EXPECT_THAT(line.change.start, ElementsAre("a", "b"));
    EXPECT_THAT(line.change.args, ElementsAre("a=x,y", "a=--z"));
    EXPECT_THAT(line.change.paras, ElementsAre("b:-1=q"));
    EXPECT_EQ(line.timeoutMs, 100U);
    EXPECT_EQ(WaitMs(line), 1100U);
}

TEST_F(SsctlCommandLine, TakesNamesAsTheyAreAndListsBetweenCommas) {
    EXPECT_THAT(Good({"stop", "a,b"}).change.stop, ElementsAre("a,b"));
    const CommandLine line = Good({"change", "--stop", "a", "--start", "b,c", "--start", R"(d\,e)", "--restart", "f"});
    EXPECT_THAT(line.change.stop, ElementsAre("a"));
    EXPECT_THAT(line.change.start, ElementsAre("b", "c", "d,e"));
    EXPECT_THAT(line.change.restart, ElementsAre("f"));
}

TEST_F(SsctlCommandLine, TakesTheOtherCommands) {
    EXPECT_THAT(Good({"state"}).names, IsEmpty());
    EXPECT_THAT(Good({"state", "a", "b"}).names, ElementsAre("a", "b"));
    EXPECT_THAT(Good({"restart", "a"}).change.restart, ElementsAre("a"));
    EXPECT_THAT(Good({"verify", "a=1", "b=running"}).verified, ElementsAre("a=1", "b=running"));
    EXPECT_EQ(Good({"set-state", "WORKING"}).systemState, "WORKING");
    EXPECT_EQ(Good({"set-state", "--", "-1"}).systemState, "-1");
    EXPECT_EQ(Good({"reload"}).command, "reload");
    EXPECT_EQ(Good({"dump"}).command, "dump");
    EXPECT_EQ(WaitMs(Good({"stop-all"})), 40000U);
}

TEST_F(SsctlCommandLine, FollowsEventsForEverUnlessItIsTold) {
    EXPECT_FALSE(Good({"events"}).eventCount);
    EXPECT_FALSE(Good({"events"}).eventTimeoutMs);
    const CommandLine line = Good({"events", "--count", "3", "--timeout", "7"});
    EXPECT_EQ(line.eventCount, 3U);
    EXPECT_EQ(line.eventTimeoutMs, 7U);
}

TEST_F(SsctlCommandLine, TakesWhatIsToBeChecked) {
    EXPECT_EQ(Good({"check", "/etc/robot"}).path, "/etc/robot");
    EXPECT_EQ(Good({"check", "/etc/robot"}).root, std::nullopt);
    EXPECT_EQ(Good({"check", "/etc/robot", "--root", "/"}).root, "/");
}

TEST_F(SsctlCommandLine, RefusesMistakesWithExitCode2) {
    const std::vector<std::vector<const char*>> mistakes = {{},
                                                            {"fly"},
                                                            {"start"},
                                                            {"list", "a"},
                                                            {"stop", "a", "--args", "a=x"},
                                                            {"start", "a", "--timeout", "99"},
                                                            {"start", "a", "--timeout", "2147482648"},
                                                            {"start", "a", "--timeout", "-1"},
                                                            {"start", "a", "--timeout", "5s"},
                                                            {"list", "--wait", "0"},
                                                            {"events", "--count", "0"},
                                                            {"events", "--timeout", "0"},
                                                            {"set-state"},
                                                            {"verify"},
                                                            {"list", "state"},
                                                            {"check"},
                                                            {"check", "a", "b"},
                                                            {"check", ""},
                                                            {"graph", ""},
                                                            {"check", "a", "--root", "/none"},
                                                            {"state", "--root", "/"},
                                                            {"change", "--start", "a\\"}};
    for (const std::vector<const char*>& words : mistakes) {
        const ParsedCommandLine parsed = Parse(words);
        EXPECT_FALSE(parsed.run) << testing::PrintToString(words);
        EXPECT_EQ(parsed.exitCode, 2) << testing::PrintToString(words);
        EXPECT_THAT(complaint_, testing::StartsWith("ssctl: ")) << testing::PrintToString(words);
        EXPECT_THAT(complaint_, HasSubstr("--help")) << testing::PrintToString(words);
        EXPECT_EQ(output_, "");
    }
}

TEST_F(SsctlCommandLine, ShowsHelpAndVersion) {
    for (const std::vector<const char*>& words :
         std::vector<std::vector<const char*>>{{"--help"}, {"--version"}, {"start", "--help"}}) {
        const ParsedCommandLine parsed = Parse(words);
        EXPECT_FALSE(parsed.run);
        EXPECT_EQ(parsed.exitCode, 0);
        EXPECT_THAT(output_, HasSubstr(words.size() == 2 ? "--para" : "ssctl"));
        EXPECT_EQ(complaint_, "");
    }
}
