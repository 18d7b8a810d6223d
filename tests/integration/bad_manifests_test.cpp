#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/integration/group_fixture.h"

using testing::HasSubstr;

/// Ten kinds of bad manifests beside two good ones.
class BadManifests : public GroupFixture {};

TEST_F(BadManifests, AreNamedByFileAndLineAndTheGoodOnesOfTheFolderStillBoot) {
    Manifests("00_good.yaml", "{app_name: first, bin_path: $APP, is_auto_boot: true}");
    Manifests("01_unknown_key.yaml", "{app_name: b1, bin_path: $APP, is_autoboot: true}");
    Manifests("02_wrong_type.yaml", "{app_name: b2, bin_path: $APP, is_auto_boot: maybe}");
    Manifests("03_duplicate_key.yaml", "{app_name: b3, bin_path: $APP, uid: 1, uid: 2}");
    Manifests("04_no_name.yaml", "{bin_path: $APP}");
    Manifests("05_self_dependency.yaml", "{app_name: b5, bin_path: $APP, depends: [b5]}");
    Manifests("06_cycle.yaml",
              "- {app_name: b6, bin_path: $APP, depends: [b6b]}\n- {app_name: b6b, bin_path: $APP, depends: [b6]}\n");
    Manifests("07_no_data.yaml", "{app_name: b7, bin_path: \"${NOWHERE}/x\"}");
    Manifests("08_not_yaml.yaml", "{app_name: b8, bin_path: [");
    Manifests("09_no_program.yaml", "{app_name: b9}");
    Manifests("10_scalar.yaml", "just a text");
    Manifests("99_good.yaml", "{app_name: last, bin_path: $APP, is_auto_boot: true, depends: [first]}");
    ASSERT_NO_FATAL_FAILURE(GroupFixture::Boot());
    EXPECT_TRUE(IsAlive(PidOf("first")));
    EXPECT_TRUE(IsAlive(PidOf("last")));
    const std::string& log = owner_->Output();
    for (const char* file : {"01_unknown_key", "02_wrong_type", "03_duplicate_key", "04_no_name", "05_self_dependency",
                             "06_cycle", "07_no_data", "08_not_yaml", "09_no_program", "10_scalar"}) {
        EXPECT_THAT(log, HasSubstr(std::string(file) + ".yaml:1:")) << "file and line of the error";
    }
    EXPECT_THAT(log, HasSubstr("is_auto_boot")) << "the nearest known key";
    EXPECT_THAT(log, HasSubstr("NOWHERE"));
    EXPECT_THAT(log, HasSubstr("ApplicationManager init: parse application manifest error !!!"));
}
