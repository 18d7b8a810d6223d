#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/daemons/launch/launch_fixture.h"

namespace {

class SoHost : public LaunchTest::LaunchFixture {
protected:
    /// Runs the host as it is started for an application; returns its exit code and keeps what it wrote.
    int Run(const std::vector<std::string>& arguments) {
        ApplicationAttributes attributes = LaunchTest::Probe(arguments);
        attributes.binPath = LAUNCH_SO_HOST;
        const ProcMgr::LaunchResult result = Start(attributes);
        EXPECT_TRUE(result.Ok());
        text_ = output_.Rest();
        return Reap(result.process);
    }

    std::string text_;
};

TEST_F(SoHost, CallsTheEntryWithThePathAndTheArgumentsAndEndsWithItsResult) {
    EXPECT_EQ(Run({LAUNCH_GOOD_OBJECT, "--map", "cellar"}), 43);
    EXPECT_EQ(text_, "--map\ncellar\n");
}

TEST_F(SoHost, IsWhatASharedObjectApplicationRunsIn) {
    ApplicationAttributes attributes;
    attributes.appName = "map";
    attributes.isSo = true;
    attributes.soPath = LAUNCH_GOOD_OBJECT;
    attributes.arguments = {"cellar"};
    ProcMgr::LaunchRequest request = LaunchTest::RequestOfThisUser();
    request.soHostPath = LAUNCH_SO_HOST;
    EXPECT_EQ(Tell(attributes, request), "cellar\n");
}

TEST_F(SoHost, SaysThatNoObjectWasGiven) {
    EXPECT_EQ(Run({}), 120);
    EXPECT_EQ(text_, "procmgr-so-host: no shared object given; usage: procmgr-so-host OBJECT [ARGUMENT]...\n");
}

TEST_F(SoHost, SaysWhichObjectCannotBeLoaded) {
    EXPECT_EQ(Run({"/nowhere/cam.so"}), 121);
    EXPECT_EQ(text_.rfind("procmgr-so-host: cannot load /nowhere/cam.so: ", 0), 0U) << text_;
}

TEST_F(SoHost, SaysThatAnObjectHasNoEntry) {
    EXPECT_EQ(Run({LAUNCH_EMPTY_OBJECT}), 122);
    EXPECT_EQ(text_, std::string("procmgr-so-host: ") + LAUNCH_EMPTY_OBJECT + " has no entry \"procmgr_app_main\"\n");
}

}  // namespace
