#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/integration/group_fixture.h"

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// The program that shows how to embed the library.
class Embed : public GroupFixture {
protected:
    void Run(const std::vector<std::string>& arguments) {
        std::vector<std::string> argv = {EMBED_PATH};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        owner_ = std::make_unique<ChildProcess>(argv, environment_);
        exitCode_ = owner_->WaitForExit();
    }

    void ExpectInOrder(const std::vector<std::string>& texts) const {
        size_t from = 0;
        for (const std::string& text : texts) {
            const size_t at = owner_->Output().find(text, from);
            ASSERT_NE(at, std::string::npos) << text << "\nin\n" << owner_->Output();
            from = at;
        }
    }

    int exitCode_ = -1;
};

TEST_F(Embed, TakesChargeLooksAtAnApplicationRestartsItAndLeavesTheGroupRunning) {
    Manifests("a.yaml", R"(
- {app_name: base, bin_path: $APP, is_auto_boot: true}
- {app_name: cam, bin_path: $APP, is_auto_boot: true, depends: [base], node_type: 3, vf_id: 7}
)");
    ASSERT_NO_FATAL_FAILURE(StartManager());
    Run({Folder() + "/manifests", "cam"});
    EXPECT_EQ(exitCode_, 0) << owner_->Output();
    // Two threads print, so that only lines of the same one have an order.
    ExpectInOrder({"every auto-boot application runs\n", "cam: node type 3, device 7\n", "cam is restarted\n"});
    const std::string heard = "heard: base runs (pid ";
    ExpectInOrder({heard});
    const size_t pid = owner_->Output().find(heard) + heard.size();
    EXPECT_TRUE(IsAlive(static_cast<pid_t>(std::strtol(owner_->Output().c_str() + pid, nullptr, 10))));
}

TEST_F(Embed, SaysThatAnApplicationIsNotInTheGroup) {
    Manifests("a.yaml", "{app_name: cam, bin_path: $APP, is_auto_boot: true}");
    ASSERT_NO_FATAL_FAILURE(StartManager());
    Run({Folder() + "/manifests", "ghost"});
    EXPECT_EQ(exitCode_, 1);
    EXPECT_THAT(owner_->Output(),
                AllOf(HasSubstr("embed: ghost is not in this group"), Not(HasSubstr("is restarted"))));
}

TEST_F(Embed, SaysThatItCannotTakeChargeWhenThereAreNoManifests) {
    ASSERT_NO_FATAL_FAILURE(StartManager());
    Run({Folder() + "/nowhere", "cam"});
    EXPECT_EQ(exitCode_, 1);
    EXPECT_THAT(owner_->Output(), HasSubstr("embed: cannot take charge of the group"));
}

TEST_F(Embed, RefusesAWrongCommandLine) {
    Run({"manifests"});
    EXPECT_EQ(exitCode_, 2);
    EXPECT_THAT(owner_->Output(), HasSubstr("usage: embed MANIFESTS APPLICATION"));
}
