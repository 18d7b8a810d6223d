#include <gtest/gtest.h>

#include <locale>

#include "tests/application/application_test_support.h"

namespace ProcMgr {
namespace {

class GroupingFacet : public std::numpunct<char> {
protected:
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
};

ApplicationManifest FullManifest() {
    ManifestBuilder manifest = Manifest("cam");
    ApplicationAttributes& attributes = manifest.Attributes();
    attributes.binPath = "/opt/robot/bin/cam";
    attributes.uid = 4294967295;
    attributes.gid = 1002;
    attributes.restart = "on-failure";
    attributes.isSo = true;
    attributes.termTimeOut = 3000;
    attributes.isForceTerm = false;
    attributes.isRosNode = true;
    attributes.isReporting = true;
    attributes.resGroupName = "sensors";
    attributes.isAutoBoot = true;
    attributes.arguments = {"-v", "%n%s", "two words"};
    attributes.depends = {"driver", "base"};
    attributes.coreAffinity = {0, 3, -1};
    return manifest;
}

constexpr const char* kFullDump =
    " appName:cam\n"
    " binPath:/opt/robot/bin/cam\n"
    " uid:4294967295\n"
    " gid:1002\n"
    " restart:on-failure\n"
    " isSo:1\n"
    " pid:4711\n"
    " termTimeOut:3000\n"
    " isForceTerm:0\n"
    " isRosNode:1\n"
    " isReporting:1\n"
    " resGroupName:sensors\n"
    " isAutoBoot:1\n"
    " argument: -v %n%s two words\n"
    " depends: base driver\n"
    " coreAffinity: 0 3 -1\n";

TEST(AppInfoToString, NamesEveryFieldOnALineOfItsOwn) {
    Application application(FullManifest(), "");
    application.SetPid(4711);
    EXPECT_EQ(application.AppInfoToString(), kFullDump);
}

TEST(AppInfoToString, LeavesTheLabelOfAnEmptyListAlone) {
    EXPECT_EQ(Application(Manifest("cam"), "").AppInfoToString(),
              " appName:cam\n binPath:\n uid:0\n gid:0\n restart:\n isSo:0\n pid:-1\n termTimeOut:5000\n"
              " isForceTerm:1\n isRosNode:0\n isReporting:0\n resGroupName:\n isAutoBoot:0\n argument:\n depends:\n"
              " coreAffinity:\n");
}

TEST(AppInfoToString, IsNotBentByTheLocaleOfTheProcess) {
    std::locale::global(std::locale(std::locale::classic(), new GroupingFacet));
    Application application(FullManifest(), "");
    application.SetPid(4711);
    EXPECT_EQ(application.AppInfoToString(), kFullDump);
}

TEST(AppInfoToString, ShowsTheArgumentsInForce) {
    Application application(FullManifest(), "");
    application.SetArguments({"other"});
    EXPECT_NE(application.AppInfoToString().find("\n argument: other\n"), std::string::npos);
}

}  // namespace
}  // namespace ProcMgr
