// What good manifests give, key by key.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "tests/platform/manifest_load_kit.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

ApplicationManifest OnlyOne(const std::string& text) {
    const Loaded loaded = LoadText(text);
    EXPECT_THAT(loaded.errors, IsEmpty());
    EXPECT_EQ(loaded.manifests.size(), 1U);
    return loaded.manifests.empty() ? ApplicationManifest() : loaded.manifests.front();
}

ApplicationManifest With(const std::string& line) {
    return OnlyOne("app_name: cam\nbin_path: /bin/cam\n" + line + "\n");
}

TEST(ManifestSchema, NeedsNothingButNameAndPathAndGivesDefaults) {
    const ApplicationManifest manifest = OnlyOne("app_name: cam\nbin_path: /bin/cam\n");
    EXPECT_EQ(manifest.GetAppName(), "cam");
    EXPECT_EQ(manifest.GetBinPath(), "/bin/cam");
    EXPECT_EQ(manifest.GetUid(), 0U);
    EXPECT_EQ(manifest.GetGid(), 0U);
    EXPECT_THAT(manifest.GetArguments(), IsEmpty());
    EXPECT_EQ(manifest.GetRestart(), "");
    EXPECT_FALSE(manifest.GetIsSo());
    EXPECT_EQ(manifest.GetSoName(), "");
    EXPECT_EQ(manifest.GetSoPath(), "");
    EXPECT_EQ(manifest.GetProcessBindPath(), "");
    EXPECT_EQ(manifest.GetTermTimeOut(), 5000U);
    EXPECT_TRUE(manifest.GetIsForceTerm());
    EXPECT_FALSE(manifest.GetIsRosNode());
    EXPECT_FALSE(manifest.GetIsReporting());
    EXPECT_THAT(manifest.GetCoreAffinity(), IsEmpty());
    EXPECT_EQ(manifest.GetResGroupName(), "");
    EXPECT_THAT(manifest.GetDependList(), IsEmpty());
    EXPECT_FALSE(manifest.GetIsAutoBoot());
    EXPECT_THAT(manifest.GetEnvArgv(), IsEmpty());
    EXPECT_EQ(manifest.GetSetRtPrio(), "");
    EXPECT_EQ(manifest.GetSetRtType(), "");
    EXPECT_FALSE(manifest.GetHeartBeatSwitch());
    EXPECT_EQ(manifest.GetNodeType(), 0);
    EXPECT_FALSE(manifest.GetIsDynamicPara());
    EXPECT_EQ(manifest.GetVfId(), 0U);
    EXPECT_THAT(manifest.GetMustHold(), IsEmpty());
}

TEST(ManifestSchema, ReadsEveryKey) {
    const ApplicationManifest manifest = OnlyOne(R"(
app_name: cam
bin_path: /bin/cam
uid: 1000
gid: 1001
arguments: [--rate, "30", ""]
restart: on-failure
is_so: true
so_name: libcam.so
so_path: /lib/cam
process_bind_path: /bin/host
term_time_out: 250
is_force_term: false
is_ros_node: true
is_reporting: true
core_affinity: [0, 3]
res_group_name: vision
depends: [clock, imu@left]
is_auto_boot: true
env_argv: {LEVEL: info, EMPTY: "", 7: 8}
set_rt_prio: 50
set_rt_type: fifo
heart_beat_switch: true
node_type: -2
is_dynamic_para: true
vf_id: 4294967295
must_hold: [uid, set_rt_type]
)");
    EXPECT_EQ(manifest.GetUid(), 1000U);
    EXPECT_EQ(manifest.GetGid(), 1001U);
    EXPECT_THAT(manifest.GetArguments(), ElementsAre("--rate", "30", ""));
    EXPECT_EQ(manifest.GetRestart(), "on-failure");
    EXPECT_TRUE(manifest.GetIsSo());
    EXPECT_EQ(manifest.GetSoName(), "libcam.so");
    EXPECT_EQ(manifest.GetSoPath(), "/lib/cam");
    EXPECT_EQ(manifest.GetProcessBindPath(), "/bin/host");
    EXPECT_EQ(manifest.GetTermTimeOut(), 250U);
    EXPECT_FALSE(manifest.GetIsForceTerm());
    EXPECT_TRUE(manifest.GetIsRosNode());
    EXPECT_TRUE(manifest.GetIsReporting());
    EXPECT_THAT(manifest.GetCoreAffinity(), ElementsAre(0, 3));
    EXPECT_EQ(manifest.GetResGroupName(), "vision");
    EXPECT_THAT(manifest.GetDependList(), ElementsAre("clock", "imu@left"));
    EXPECT_TRUE(manifest.GetIsAutoBoot());
    EXPECT_EQ(manifest.GetEnvArgv(), (MatchData{{"LEVEL", "info"}, {"EMPTY", ""}, {"7", "8"}}));
    EXPECT_EQ(manifest.GetSetRtPrio(), "50");
    EXPECT_EQ(manifest.GetSetRtType(), "fifo");
    EXPECT_TRUE(manifest.GetHeartBeatSwitch());
    EXPECT_EQ(manifest.GetNodeType(), -2);
    EXPECT_TRUE(manifest.GetIsDynamicPara());
    EXPECT_EQ(manifest.GetVfId(), 4294967295U);
    EXPECT_THAT(manifest.GetMustHold(), ElementsAre("set_rt_type", "uid"));
}

TEST(ManifestSchema, TakesTheFourRestartPolicies) {
    for (const std::string policy : {"on-failure", "on-forever", "on-until-succeed", "never"}) {
        EXPECT_EQ(With("restart: " + policy).GetRestart(), policy);
    }
}

TEST(ManifestSchema, TakesTheFiveSchedulingClassesInAnyCase) {
    for (const std::string name : {"fifo", "rr", "other", "batch", "idle", "FIFO"}) {
        EXPECT_EQ(With("set_rt_type: " + name).GetSetRtType(), name);
    }
}

TEST(ManifestSchema, TakesTheSixAttributesThatMustHold) {
    EXPECT_THAT(With("must_hold: [uid, gid, core_affinity, res_group_name, set_rt_type, set_rt_prio]").GetMustHold(),
                ElementsAre("core_affinity", "gid", "res_group_name", "set_rt_prio", "set_rt_type", "uid"));
}

TEST(ManifestSchema, TakesNumbersUpToTheirBounds) {
    EXPECT_EQ(With("uid: 4294967294").GetUid(), 4294967294U);
    EXPECT_EQ(With("gid: 0").GetGid(), 0U);
    EXPECT_EQ(With("term_time_out: 0").GetTermTimeOut(), 0U);
    EXPECT_EQ(With("term_time_out: 4294967295").GetTermTimeOut(), 4294967295U);
    EXPECT_EQ(With("node_type: -2147483648").GetNodeType(), -2147483647 - 1);
    EXPECT_EQ(With("node_type: 2147483647").GetNodeType(), 2147483647);
    EXPECT_THAT(With("core_affinity: [1023]").GetCoreAffinity(), ElementsAre(1023));
    EXPECT_EQ(With("set_rt_prio: 99").GetSetRtPrio(), "99");
    EXPECT_EQ(With("set_rt_prio: 0").GetSetRtPrio(), "0");
}

TEST(ManifestSchema, TakesQuotedNumbersAndTruthValuesAndPlainTextThatLooksLikeANumber) {
    EXPECT_EQ(With("uid: '12'").GetUid(), 12U);
    EXPECT_TRUE(With("is_reporting: \"true\"").GetIsReporting());
    EXPECT_THAT(With("arguments: [12, true, 1.5]").GetArguments(), ElementsAre("12", "true", "1.5"));
}

TEST(ManifestSchema, CollapsesADependencyThatIsNamedTwice) {
    EXPECT_THAT(With("depends: [b, b]").GetDependList(), ElementsAre("b"));
}

TEST(ManifestSchema, TakesEmptyListsAndMaps) {
    const ApplicationManifest manifest = With("arguments: []\ndepends: []\nenv_argv: {}\ncore_affinity: []");
    EXPECT_THAT(manifest.GetArguments(), IsEmpty());
    EXPECT_THAT(manifest.GetEnvArgv(), IsEmpty());
}

TEST(ManifestSchema, NeedsNoBinPathForASharedObject) {
    EXPECT_EQ(OnlyOne("app_name: so\nis_so: true\nso_name: libcam.so\n").GetBinPath(), "");
    EXPECT_EQ(OnlyOne("app_name: so\nis_so: true\nso_path: /lib/libcam.so\n").GetProcessBindPath(), "");
}

TEST(ManifestSchema, ReadsOneMapOrAListOfMaps) {
    EXPECT_THAT(LoadText("app_name: a\nbin_path: /a\n").names, ElementsAre("a"));
    EXPECT_THAT(LoadText("- {app_name: b, bin_path: /b}\n- {app_name: a, bin_path: /a}\n").names,
                ElementsAre("b", "a"));
    EXPECT_THAT(LoadText("[]").names, IsEmpty());
}

TEST(ManifestSchema, TakesWindowsLineEndsAndAByteOrderMark) {
    EXPECT_THAT(LoadText("\xef\xbb\xbf"
                         "app_name: a\r\nbin_path: /a\r\n")
                    .names,
                ElementsAre("a"));
}

TEST(ManifestSchema, TakesNamesInAnyLanguageUpTo255Bytes) {
    EXPECT_THAT(LoadText("app_name: кам\nbin_path: /a\n").names, ElementsAre("кам"));
    const std::string longest(255, 'n');
    EXPECT_THAT(LoadText("app_name: " + longest + "\nbin_path: /a\n").names, ElementsAre(longest));
}

TEST(SharedObjectFile, JoinsPathAndNameOrTakesTheOneThatIsGiven) {
    const auto fileOf = [](const std::string& path, const std::string& name) {
        ApplicationAttributes attributes;
        attributes.soPath = path;
        attributes.soName = name;
        return ProcMgr::SharedObjectFile(ApplicationManifest(attributes));
    };
    EXPECT_EQ(fileOf("/lib", "libcam.so"), "/lib/libcam.so");
    EXPECT_EQ(fileOf("/lib/", "libcam.so"), "/lib/libcam.so");
    EXPECT_EQ(fileOf("", "libcam.so"), "libcam.so");
    EXPECT_EQ(fileOf("/lib/libcam.so", ""), "/lib/libcam.so");
}

TEST(TemplateOf, IsThePartBeforeTheFirstAt) {
    EXPECT_EQ(ProcMgr::TemplateOf("cam@front"), "cam");
    EXPECT_EQ(ProcMgr::TemplateOf("cam@a@b"), "cam");
}

TEST(TemplateOf, IsEmptyForWhatCannotBeAnInstance) {
    for (const std::string name : {"", "cam", "cam@", "@front", "@", "cam@a#b", "cam@a/b", "cam@../x", "cam@a\nb"}) {
        EXPECT_EQ(ProcMgr::TemplateOf(name), "") << name;
    }
    EXPECT_EQ(ProcMgr::TemplateOf(std::string("cam@a\0b", 7)), "");
    EXPECT_EQ(ProcMgr::TemplateOf("cam@" + std::string(251, 'x')), "cam");
    EXPECT_EQ(ProcMgr::TemplateOf("cam@" + std::string(252, 'x')), "");
}

TEST(IsInstanceOf, NeedsTheWholeTemplateName) {
    EXPECT_TRUE(ProcMgr::IsInstanceOf("cam", "cam@front"));
    EXPECT_FALSE(ProcMgr::IsInstanceOf("ca", "cam@front"));
    EXPECT_FALSE(ProcMgr::IsInstanceOf("cam", "cam"));
    EXPECT_FALSE(ProcMgr::IsInstanceOf("cam", "cam@"));
    EXPECT_FALSE(ProcMgr::IsInstanceOf("", "@front"));
    EXPECT_FALSE(ProcMgr::IsInstanceOf("", "cam"));
}

}  // namespace
