// ${KEY} in manifests, and the file that the data come from.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "platform/include/parse_and_depend.h"
#include "platform/posix/manifest/manifest_text.h"
#include "tests/platform/manifest_load_kit.h"
#include "tests/platform/manifest_log_recorder.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

ApplicationManifest LoadedWith(const std::string& line, const MatchData& matchData) {
    const Loaded loaded = LoadText("app_name: cam\nbin_path: /bin/cam\n" + line + "\n", matchData);
    EXPECT_THAT(loaded.errors, IsEmpty());
    EXPECT_EQ(loaded.manifests.size(), 1U);
    return loaded.manifests.empty() ? ApplicationManifest() : loaded.manifests.front();
}

std::vector<std::string> ErrorsWith(const std::string& line, const MatchData& matchData = {}) {
    return LoadText("app_name: cam\nbin_path: /bin/cam\n" + line + "\n", matchData).errors;
}

TEST(ReplaceKeys, TakesPlaceAnywhereInAValue) {
    const MatchData data = {{"A", "1"}, {"LONG NAME", "2"}};
    EXPECT_EQ(LoadedWith("res_group_name: ${A}", data).GetResGroupName(), "1");
    EXPECT_EQ(LoadedWith("res_group_name: x${A}y${LONG NAME}${A}", data).GetResGroupName(), "x1y21");
}

TEST(ReplaceKeys, TakesPlaceInEveryKindOfValue) {
    const MatchData data = {{"N", "7"}, {"T", "true"}, {"W", "word"}};
    EXPECT_EQ(LoadedWith("uid: ${N}", data).GetUid(), 7U);
    EXPECT_TRUE(LoadedWith("is_reporting: ${T}", data).GetIsReporting());
    EXPECT_THAT(LoadedWith("arguments: [\"${W}\", \"-${N}\"]", data).GetArguments(), ElementsAre("word", "-7"));
    EXPECT_THAT(LoadedWith("core_affinity:\n- ${N}", data).GetCoreAffinity(), ElementsAre(7));
    EXPECT_THAT(LoadedWith("depends: ['${W}@${N}']", data).GetDependList(), ElementsAre("word@7"));
    EXPECT_EQ(LoadedWith("env_argv:\n  ${W}: ${N}", data).GetEnvArgv(), (MatchData{{"word", "7"}}));
    EXPECT_EQ(LoadText("app_name: ${W}\nbin_path: /${W}\n", data).names, std::vector<std::string>{"word"});
}

TEST(ReplaceKeys, LeavesTheManifestsOwnKeysAlone) {
    EXPECT_THAT(
        ErrorsWith("${K}: 1", {{"K", "uid"}}),
        ElementsAre("a.yaml:3:1: key '${K}': unknown key; the nearest known key is 'uid'; correct or remove it"));
}

TEST(ReplaceKeys, MayGiveAnEmptyText) {
    EXPECT_EQ(LoadedWith("res_group_name: ${E}", {{"E", ""}}).GetResGroupName(), "");
}

TEST(ReplaceKeys, KeepsALiteralBehindTwoDollars) {
    EXPECT_EQ(LoadedWith("res_group_name: $${A}-${A}-$$${A}", {{"A", "1"}}).GetResGroupName(), "${A}-1-$${A}");
}

TEST(ReplaceKeys, LeavesALoneDollarAlone) {
    EXPECT_EQ(LoadedWith("res_group_name: $A $ $$ a}$", {}).GetResGroupName(), "$A $ $$ a}$");
}

TEST(ReplaceKeys, DoesNotLookAtWhatWasPutIn) {
    EXPECT_EQ(LoadedWith("res_group_name: ${A}", {{"A", "${B}"}, {"B", "x"}}).GetResGroupName(), "${B}");
    EXPECT_EQ(LoadedWith("res_group_name: ${A}{B}", {{"A", "$"}, {"B", "x"}}).GetResGroupName(), "${B}");
}

TEST(ReplaceKeys, NamesTheKeyThatHasNoData) {
    EXPECT_THAT(
        ErrorsWith("res_group_name: /x/${ROBOT_DIR}/y"),
        ElementsAre("a.yaml:3:17: key 'res_group_name': there is no replacement data for '${ROBOT_DIR}'; add the key "
                    "to the replacement data, or write '$${' for a literal '${'"));
    EXPECT_THAT(ErrorsWith("arguments: [\"${}\"]", {{"A", "1"}}),
                ElementsAre("a.yaml:3:13: key 'arguments': there is no replacement data for '${}'; add the key to the "
                            "replacement data, or write '$${' for a literal '${'"));
}

TEST(ReplaceKeys, NamesABraceThatIsNeverClosed) {
    EXPECT_THAT(ErrorsWith("res_group_name: a${B", {{"B", "1"}}),
                ElementsAre("a.yaml:3:17: key 'res_group_name': a '${' is never closed; add '}', or write '$${' for a "
                            "literal '${'"));
}

TEST(ReplaceKeys, ChecksTheTextThatComesOut) {
    EXPECT_THAT(
        ErrorsWith("uid: ${U}", {{"U", "root"}}),
        ElementsAre("a.yaml:3:6: key 'uid': wants a whole number from 0 to 4294967294 but found the text 'root'; "
                    "write it like 'uid: 1000'"));
    EXPECT_THAT(ErrorsWith("so_name: ${Z}", {{"Z", std::string("a\0b", 3)}}),
                ElementsAre("a.yaml:3:10: key 'so_name': the text holds a zero byte; remove it"));
}

TEST(ReplaceKeys, WritesNothingWhenItFails) {
    std::string out = "before";
    EXPECT_NE(ProcMgr::ReplaceKeys("${A}", {}, out), "");
    EXPECT_EQ(out, "before");
}

TEST(ReplaceKeys, BoundsWhatAShortFileCanGrowTo) {
    std::string line = "arguments: [";
    for (int i = 0; i < 40; ++i) {
        line += "'${A}',";
    }
    const auto errors = ErrorsWith(line + "]", {{"A", std::string(65536, 'x')}});
    ASSERT_FALSE(errors.empty());
    EXPECT_EQ(errors.front(),
              "a.yaml:3:125: key 'arguments': the replacement data make this file longer than 1 MiB; split the file or "
              "shorten the data");
}

/// Sets the environment for one test; each test runs in a process of its own.
void SetVariable(const char* name, const std::string& value) {
    EXPECT_EQ(setenv(name, value.c_str(), 1), 0);
}

int ReadData(MatchData& data) {
    return ParseAndDepend::GetInstance().ParseToReplaceData(ParamType::REPLACE_DATA, "cfgmgr_env", data);
}

class ReplacementData : public testing::Test {
protected:
    ReplacementData() {
        unsetenv("PROCMGR_REPLACE_DATA");
        unsetenv("STARTUP_ENTRY_PATH");
    }
    ManifestTestFolder folder_;
    MatchData data_ = {{"old", "data"}};
};

constexpr const char* kData = "cfgmgr_env:\n  ROBOT_DIR: /opt/robot\n  N: 5\nother: [1]\n";

TEST_F(ReplacementData, StandInsideTheFolderOfTheEntryPath) {
    folder_.Write("replace.yaml", kData);
    SetVariable("STARTUP_ENTRY_PATH", folder_.Path());
    EXPECT_EQ(ReadData(data_), 0);
    EXPECT_EQ(data_, (MatchData{{"ROBOT_DIR", "/opt/robot"}, {"N", "5"}}));
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ReplacementData, StandBesideTheFileOfTheEntryPath) {
    folder_.Write("replace.yaml", kData);
    SetVariable("STARTUP_ENTRY_PATH", folder_.Write("group.yaml", ""));
    EXPECT_EQ(ReadData(data_), 0);
    EXPECT_EQ(data_, (MatchData{{"ROBOT_DIR", "/opt/robot"}, {"N", "5"}}));
}

TEST_F(ReplacementData, StandInTheFileThatTheEnvironmentNames) {
    folder_.Write("replace.yaml", kData);
    SetVariable("STARTUP_ENTRY_PATH", folder_.Path());
    SetVariable("PROCMGR_REPLACE_DATA", folder_.Write("elsewhere/site.data", "cfgmgr_env: {A: b}"));
    EXPECT_EQ(ReadData(data_), 0);
    EXPECT_EQ(data_, (MatchData{{"A", "b"}}));
}

TEST_F(ReplacementData, AreNoneWithoutAFile) {
    EXPECT_EQ(ReadData(data_), 0);
    EXPECT_THAT(data_, IsEmpty());
    SetVariable("STARTUP_ENTRY_PATH", folder_.Path());
    EXPECT_EQ(ReadData(data_), 0);
    SetVariable("STARTUP_ENTRY_PATH", folder_.Path() + "/none/group.yaml");
    EXPECT_EQ(ReadData(data_), 0);
    SetVariable("PROCMGR_REPLACE_DATA", folder_.Path() + "/none.yaml");
    EXPECT_EQ(ReadData(data_), 0);
    EXPECT_THAT(data_, IsEmpty());
    EXPECT_THAT(RecordedLines(), IsEmpty());
}

TEST_F(ReplacementData, AreNoneWithoutTheKeyOrInAnEmptyFile) {
    SetVariable("PROCMGR_REPLACE_DATA", folder_.Write("replace.yaml", "other: {A: b}"));
    EXPECT_EQ(ReadData(data_), 0);
    EXPECT_THAT(data_, IsEmpty());
    folder_.Write("replace.yaml", "# later\n");
    EXPECT_EQ(ReadData(data_), 0);
    EXPECT_THAT(data_, IsEmpty());
}

TEST_F(ReplacementData, AreTakenAsTheyStand) {
    SetVariable("PROCMGR_REPLACE_DATA", folder_.Write("replace.yaml", "cfgmgr_env: {A: '${B}', B: '', C: \"a b\"}"));
    EXPECT_EQ(ReadData(data_), 0);
    EXPECT_EQ(data_, (MatchData{{"A", "${B}"}, {"B", ""}, {"C", "a b"}}));
}

TEST_F(ReplacementData, GiveOneErrorLineForEachBadPairAndKeepTheGoodOnes) {
    SetVariable("PROCMGR_REPLACE_DATA",
                folder_.Write("replace.yaml", "cfgmgr_env:\n  A: 1\n  A: 2\n  B: [x]\n  C:\n  d}: 1\n  E: 5\n"));
    EXPECT_NE(ReadData(data_), 0);
    EXPECT_EQ(data_, (MatchData{{"A", "1"}, {"E", "5"}}));
    const std::string place = "29 3 " + folder_.Path() + "/replace.yaml:";
    EXPECT_THAT(
        RecordedLines(),
        ElementsAre(place + "3:3: key 'cfgmgr_env': the name 'A' stands twice; remove one of them",
                    place + "4:3: key 'cfgmgr_env': wants a text for 'B' but found a list; write '' for an empty one",
                    place + "5:3: key 'cfgmgr_env': wants a text for 'C' but found nothing; write '' for an empty one",
                    place + "6:3: key 'cfgmgr_env': wants a name without '}' but found the text 'd}'; correct it"));
}

TEST_F(ReplacementData, GiveAnErrorWhenTheFileIsMalformed) {
    SetVariable("PROCMGR_REPLACE_DATA", folder_.Write("replace.yaml", "cfgmgr_env: {A\n"));
    EXPECT_NE(ReadData(data_), 0);
    EXPECT_THAT(data_, IsEmpty());
    EXPECT_THAT(RecordedLines(), ElementsAre("29 3 " + folder_.Path() +
                                             "/replace.yaml:2:1: is not YAML: end of map flow "
                                             "not found; correct the syntax here"));
}

TEST_F(ReplacementData, GiveAnErrorWhenTheShapeIsWrong) {
    const std::string file = folder_.Write("replace.yaml", "[a]");
    SetVariable("PROCMGR_REPLACE_DATA", file);
    EXPECT_NE(ReadData(data_), 0);
    folder_.Write("replace.yaml", "cfgmgr_env: text");
    EXPECT_NE(ReadData(data_), 0);
    folder_.Write("replace.yaml", "cfgmgr_env: {A: b}\ncfgmgr_env: {C: d}");
    EXPECT_NE(ReadData(data_), 0);
    EXPECT_EQ(data_, (MatchData{{"A", "b"}}));
    EXPECT_THAT(RecordedLines(),
                ElementsAre("29 3 " + file +
                                ":1:1: wants a map but found a list; write it like 'cfgmgr_env: {ROBOT_DIR: "
                                "/opt/robot}'",
                            "29 3 " + file +
                                ":1:13: key 'cfgmgr_env': wants a map of texts but found the text 'text'; "
                                "write it like 'cfgmgr_env: {ROBOT_DIR: /opt/robot}'",
                            "29 3 " + file +
                                ":2:1: key 'cfgmgr_env': the key stands twice; put all pairs under the first "
                                "one"));
}

TEST_F(ReplacementData, AreNotReadForAnotherType) {
    EXPECT_NE(ParseAndDepend::GetInstance().ParseToReplaceData(ParamType::MANIFEST, "cfgmgr_env", data_), 0);
    EXPECT_EQ(data_, (MatchData{{"old", "data"}}));
}

}  // namespace
