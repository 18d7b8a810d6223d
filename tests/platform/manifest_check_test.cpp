// What a check of manifests finds, word for word.
#include "platform/posix/manifest_check/manifest_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "application/application.h"
#include "platform/posix/manifest_check/check_report.h"
#include "platform/posix/manifest_check/program_files.h"
#include "tests/platform/manifest_load_kit.h"

namespace {

using ProcMgr::CheckManifests;
using ProcMgr::CheckRequest;
using ProcMgr::CheckResult;
using testing::ElementsAre;
using testing::IsEmpty;

class ManifestCheck : public testing::Test {
protected:
    ManifestCheck() { unsetenv("PROCMGR_REPLACE_DATA"); }

    CheckResult Check() const { return CheckManifests({folder_.Path(), std::nullopt}); }

    /// What is found in the text as the file a.yaml, a line each.
    std::vector<std::string> Find(const std::string& text) const {
        folder_.Write("a.yaml", text);
        return Lines(Check().found, folder_.Path());
    }

    ManifestTestFolder folder_;
};

TEST_F(ManifestCheck, FindsNothingInGoodManifests) {
    folder_.Write("replace.yaml", "cfgmgr_env: {DIR: /opt}\n");
    EXPECT_THAT(Find(R"(
- {app_name: clock, bin_path: "${DIR}/clock", is_auto_boot: true, restart: on-forever}
- {app_name: cam, bin_path: "${DIR}/cam", is_dynamic_para: true, depends: [clock], restart: never}
- {app_name: nav, bin_path: "${DIR}/nav", depends: [clock, cam@front], restart: on-failure}
- {app_name: lib, is_so: true, so_name: lib.so, set_rt_type: FIFO, set_rt_prio: 50, must_hold: [set_rt_type, uid]}
)"),
                IsEmpty());
    EXPECT_EQ(Check().goodManifests, 4U);
}

TEST_F(ManifestCheck, FindsEverythingInOneRunAlsoInWhatIsBadForAnotherReason) {
    EXPECT_THAT(
        Find(R"(
- {app_name: a, bin_path: /a, colour: red, depends: [b, ghost], restart: on-until-succeed}
- {app_name: b, bin_path: /b, uid: root, depends: [a]}
- {app_name: a, bin_path: /c}
- {bin_path: /d}
)"),
        ElementsAre("a.yaml:2:31: key 'colour': unknown key; the nearest known key is 'uid'; correct or "
                    "remove it",
                    "a.yaml:2:54: key 'depends': the dependency cycle a -> b -> a lets none of them start; remove one "
                    "of these dependencies",
                    "a.yaml:2:57: key 'depends': 'a' cannot start: its dependency 'ghost' has no good manifest; it "
                    "will never be running; correct the name or add the manifest",
                    "a.yaml:2:74: key 'restart': the group owner restarts nothing with 'on-until-succeed'; write "
                    "'on-failure' or 'on-forever', or 'never' if that is meant",
                    "a.yaml:3:36: key 'uid': wants a whole number from 0 to 4294967294 but found the text 'root'; "
                    "write it like 'uid: 1000'",
                    "a.yaml:4:14: key 'app_name': the manifest of 'a' is left out, because an earlier one has the "
                    "same name: a.yaml:2",
                    "a.yaml:5:3: key 'app_name': the key is missing; add a line like 'app_name: camera'"));
    EXPECT_EQ(Check().goodManifests, 1U) << "the second 'a', which the daemons take because the first one is bad";
}

TEST_F(ManifestCheck, ReadsFilesOneByOneAndSortsByPlace) {
    folder_.Write("b.yaml", "{");
    folder_.Write("c.yaml", "# nothing\n");
    folder_.Write("replace.yaml", "- x\n");
    EXPECT_THAT(Find("app_name: a\n"),
                ElementsAre("a.yaml:1:1: key 'bin_path': the key is missing; add a line like 'bin_path: "
                            "/opt/robot/bin/camera'",
                            "b.yaml:1:1: is not YAML: end of map flow not found; correct the syntax here",
                            "c.yaml: holds no manifest",
                            "replace.yaml:1:1: wants a map but found a list; write it like 'cfgmgr_env: {ROBOT_DIR: "
                            "/opt/robot}'"));
}

TEST_F(ManifestCheck, NamesCyclesOnceEachAndWhole) {
    std::string text;
    std::string names;
    for (int i = 10; i < 30; ++i) {
        text += "- {app_name: n" + std::to_string(i) + ", bin_path: /n, depends: [n" +
                std::to_string(i == 29 ? 10 : i + 1) + "]}\n";
        names += "n" + std::to_string(i) + " -> ";
    }
    EXPECT_THAT(Find(text), ElementsAre("a.yaml:1:43: key 'depends': the dependency cycle " + names +
                                        "n10 lets none of them start; remove one of these dependencies"));
}

TEST_F(ManifestCheck, AsksWhetherANearNameWasMeant) {
    const std::string rest = " has no good manifest; it will never be running";
    EXPECT_THAT(Find(R"(
- {app_name: lidar, bin_path: /l}
- {app_name: camera, bin_path: /c, is_dynamic_para: true}
- app_name: nav
  bin_path: /n
  depends:
  - ladar
  - camra@front
  - lidar@1
  - xy
  - nav2
)"),
                ElementsAre("a.yaml:7:5: key 'depends': 'nav' cannot start: its dependency 'ladar'" + rest +
                                "; did you mean 'lidar'?",
                            "a.yaml:8:5: key 'depends': 'nav' cannot start: its dependency 'camra@front'" + rest +
                                "; did you mean 'camera@front'?",
                            "a.yaml:9:5: key 'depends': 'nav' cannot start: its dependency 'lidar@1'" + rest +
                                "; did you mean 'lidar'?",
                            "a.yaml:10:5: key 'depends': 'nav' cannot start: its dependency 'xy'" + rest +
                                "; correct the name or add the manifest",
                            "a.yaml:11:5: key 'depends': 'nav' cannot start: its dependency 'nav2'" + rest +
                                "; correct the name or add the manifest"));
}

TEST_F(ManifestCheck, FindsDependenciesThatAreNotStartedAtBoot) {
    EXPECT_THAT(
        Find(R"(
- {app_name: base, bin_path: /b, is_auto_boot: true, depends: [other, cam@1, twice, bad]}
- {app_name: other, bin_path: /o}
- {app_name: cam, bin_path: /c, is_dynamic_para: true}
- {app_name: twice, bin_path: /t, is_auto_boot: true}
- {app_name: driving, bin_path: /d, depends: [other]}
- {app_name: bad, bin_path: /b, colour: red}
)"),
        ElementsAre("a.yaml:2:64: key 'depends': 'base' is started at boot, but its dependency 'other' is not; write "
                    "'is_auto_boot: true' there, or take it away here",
                    "a.yaml:2:71: key 'depends': 'base' is started at boot, but its dependency 'cam@1' is an instance, "
                    "which is started on request only; take 'is_auto_boot: true' away here",
                    testing::StartsWith("a.yaml:7:33: key 'colour': unknown key")));
}

TEST_F(ManifestCheck, FindsPoliciesThatNeverRestart) {
    EXPECT_THAT(Find(R"(
- {app_name: a, bin_path: /a, restart: on-until-succeed}
- {app_name: t, bin_path: /t, restart: on-failure, is_dynamic_para: true}
- {app_name: u, bin_path: /u, restart: on-until-succeed, is_dynamic_para: true}
- {app_name: v, bin_path: /v, restart: on-failure, is_dynamic_para: true, is_auto_boot: true}
)"),
                ElementsAre("a.yaml:2:40: key 'restart': the group owner restarts nothing with 'on-until-succeed'; "
                            "write 'on-failure' or 'on-forever', or 'never' if that is meant",
                            "a.yaml:3:40: key 'restart': an instance of a template is forgotten when it ends, so that "
                            "'on-failure' never restarts it; remove the key, or start instances again by a request",
                            testing::StartsWith("a.yaml:4:40: key 'restart': the group owner restarts nothing"),
                            "a.yaml:5:69: key 'is_dynamic_para': 'v' is started at boot under its own name, so that no "
                            "instances are made of it"));
}

TEST_F(ManifestCheck, KnowsAsTheGroupOwnerDoesWhichPoliciesRestart) {
    for (const std::string policy : {"on-failure", "on-forever", "on-until-succeed", "never"}) {
        ApplicationAttributes attributes;
        attributes.appName = "a";
        attributes.restart = policy;
        ProcMgr::Application application(ApplicationManifest(attributes), "");
        const bool isSilent = Find("{app_name: a, bin_path: /a, restart: " + policy + "}").empty();
        EXPECT_EQ(isSilent, application.CanRestart() || policy == "never") << policy;
    }
}

TEST_F(ManifestCheck, FindsKeysWithoutEffect) {
    EXPECT_THAT(
        Find(R"(
- {app_name: a, bin_path: /a, so_name: x.so, so_path: /lib, process_bind_path: /host, set_rt_prio: 5}
- {app_name: b, bin_path: /b, is_so: true, so_name: b.so, set_rt_type: RR, set_rt_prio: 0}
- {app_name: c, bin_path: /c, set_rt_type: idle, set_rt_prio: 5, must_hold: [uid, core_affinity]}
)"),
        ElementsAre("a.yaml:2:40: key 'so_name': has no effect without 'is_so: true'; add that or remove the key",
                    "a.yaml:2:55: key 'so_path': has no effect without 'is_so: true'; add that or remove the key",
                    "a.yaml:2:80: key 'process_bind_path': has no effect without 'is_so: true'; add that or "
                    "remove the key",
                    "a.yaml:2:100: key 'set_rt_prio': has no effect without 'set_rt_type'; add that or remove "
                    "the key",
                    "a.yaml:3:27: key 'bin_path': is not used with 'is_so: true'; remove one of the two",
                    "a.yaml:3:89: key 'set_rt_prio': does not go with the class 'rr', so that neither is "
                    "applied; write 1 to 99",
                    "a.yaml:4:63: key 'set_rt_prio': does not go with the class 'idle', so that neither is "
                    "applied; write 0 or remove the key",
                    "a.yaml:4:77: key 'must_hold': 'core_affinity' is to hold but is not given; add it or "
                    "remove it from the list"));
}

class ProgramFiles : public ManifestCheck {
protected:
    std::vector<std::string> FindPrograms(const std::string& text) const {
        folder_.Write("group/a.yaml", text);
        return Lines(CheckManifests({folder_.Path() + "/group", root_}).found, folder_.Path());
    }

    void WriteProgram(const std::string& name) const {
        std::filesystem::permissions(folder_.Write("root/" + name, ""), std::filesystem::perms::owner_all);
    }

    std::string root_ = folder_.Path() + "/root";
};

TEST_F(ProgramFiles, AreLookedForUnderTheRootOnly) {
    WriteProgram("opt/good");
    folder_.Write("root/opt/data", "");
    folder_.Write("root/lib/good.so", "");
    EXPECT_THAT(
        FindPrograms(R"(
- {app_name: a, bin_path: /opt/good}
- {app_name: b, bin_path: /opt/data}
- {app_name: c, bin_path: /bin/sh}
- {app_name: d, bin_path: opt}
- {app_name: e, is_so: true, so_path: /lib/good.so}
- {app_name: f, is_so: true, so_path: /lib, so_name: bad.so, process_bind_path: /opt/host}
- {app_name: g, is_so: true, so_name: searched.so}
)"),
        ElementsAre("group/a.yaml:3:27: key 'bin_path': '/opt/data' may not be executed by anybody; correct the "
                    "path or install the file in 'root'",
                    "group/a.yaml:4:27: key 'bin_path': '/bin/sh' is not there: No such file or directory; "
                    "correct the path or install the file in 'root'",
                    "group/a.yaml:5:27: key 'bin_path': 'opt' is no regular file; correct the path or install "
                    "the file in 'root'",
                    "group/a.yaml:7:54: key 'so_name': '/lib/bad.so' is not there: No such file or directory; "
                    "correct the path or install the file in 'root'",
                    "group/a.yaml:7:81: key 'process_bind_path': '/opt/host' is not there: No such file or "
                    "directory; correct the path or install the file in 'root'"));
}

TEST_F(ProgramFiles, AreFollowedThroughLinksWithinTheRoot) {
    namespace fs = std::filesystem;
    WriteProgram("usr/bin/tool");
    fs::create_symlink("usr/bin", root_ + "/bin");
    fs::create_symlink("/bin/tool", root_ + "/usr/absolute");
    fs::create_symlink("../../../../../usr/bin/./tool", root_ + "/usr/climbing");
    fs::create_symlink("endless", root_ + "/endless");
    using ProcMgr::ResolveUnder;
    EXPECT_EQ(ResolveUnder(root_, "/bin/tool"), root_ + "/usr/bin/tool");
    EXPECT_EQ(ResolveUnder(root_, "/usr/absolute"), root_ + "/usr/bin/tool");
    EXPECT_EQ(ResolveUnder(root_, "usr//climbing"), root_ + "/usr/bin/tool");
    EXPECT_EQ(ResolveUnder(root_, "/../etc/passwd"), root_ + "/etc/passwd");
    EXPECT_EQ(ResolveUnder(root_, "/"), root_);
    EXPECT_EQ(ResolveUnder(root_, "/endless"), std::nullopt);
    EXPECT_THAT(FindPrograms("{app_name: a, bin_path: /usr/absolute}"), IsEmpty());
    EXPECT_THAT(FindPrograms("{app_name: a, bin_path: /endless}"),
                ElementsAre(testing::HasSubstr("'/endless' is not there: Too many levels of symbolic links")));
}

TEST_F(ManifestCheck, TellsPeopleALineForEachAndHowMany) {
    folder_.Write("replace.yaml", "");
    EXPECT_EQ(ProcMgr::TellPeople({1, {}}).text, "1 good manifest, 0 errors, 0 warnings\n");
    EXPECT_EQ(ProcMgr::TellPeople({1, {}}).exitCode, 0);
    folder_.Write("a.yaml", "{app_name: a, bin_path: /a, restart: on-until-succeed, so_name: x}");
    const ProcMgr::CheckReport report = ProcMgr::RunCheck({folder_.Path(), std::nullopt}, false);
    EXPECT_EQ(report.text, "error: " + folder_.Path() +
                               "/a.yaml:1:38: key 'restart': the group owner restarts nothing with 'on-until-succeed'; "
                               "write 'on-failure' or 'on-forever', or 'never' if that is meant\n"
                               "warning: " +
                               folder_.Path() +
                               "/a.yaml:1:65: key 'so_name': has no effect without 'is_so: true'; add that or remove "
                               "the key\n"
                               "1 good manifest, 1 error, 1 warning\n");
    EXPECT_EQ(report.exitCode, 1);
}

TEST_F(ManifestCheck, IsGoodWithWarningsOnly) {
    EXPECT_THAT(Find("{app_name: a, bin_path: /a, so_name: x}"), testing::SizeIs(1));
    EXPECT_EQ(ProcMgr::TellPeople(Check()).exitCode, 0);
    EXPECT_EQ(ProcMgr::TellScripts({"x", std::nullopt}, Check()).exitCode, 0);
}

TEST_F(ManifestCheck, TellsScriptsADocument) {
    folder_.Write("a.yaml", R"(
- {app_name: a, bin_path: /a, depends: [b]}
- {app_name: b, bin_path: /b, depends: [a]}
)");
    folder_.Write("b.yaml", "");
    const std::string path = folder_.Path();
    const ProcMgr::CheckReport report = ProcMgr::RunCheck({path, std::nullopt}, true);
    EXPECT_EQ(report.text,
              R"({"schema":1,"command":"check","path":")" + path +
                  R"(","ok":false,"exit_code":1,"good_manifests":0,"errors":1,"warnings":1,"findings":[)"
                  R"({"severity":"error","kind":"cycle","file":")" +
                  path +
                  R"(/a.yaml","line":2,"column":41,"key":"depends","application":"a","related":["a","b"],)"
                  R"("message":"the dependency cycle a -> b -> a lets none of them start; remove one of these )"
                  R"(dependencies"},)"
                  R"({"severity":"warning","kind":"no_manifest","file":")" +
                  path +
                  R"(/b.yaml","line":null,"column":null,"key":null,"application":null,"related":[],)"
                  R"("message":"holds no manifest"}],)"
                  R"("error":{"kind":"bad_manifests","message":"1 error in the manifests","advice":"See 'findings'."}})"
                  "\n");
    EXPECT_EQ(report.exitCode, 1);
}

}  // namespace
