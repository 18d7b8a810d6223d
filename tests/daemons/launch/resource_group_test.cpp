#include "daemons/procmgrd/launch/resource_group.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "tests/daemons/launch/launch_fixture.h"

namespace {

using ProcMgr::FindResourceGroup;
using ProcMgr::ResourceGroupRoots;

class ResourceGroup : public testing::Test {
protected:
    /// One controller of version 1 with these groups.
    void Version1(const std::string& controller, const std::vector<std::string>& groups) const {
        folder_.Write("v1/" + controller + "/cgroup.procs", "");
        for (const std::string& group : groups) {
            folder_.Write("v1/" + controller + "/" + group + "/cgroup.procs", "");
        }
    }

    void Version2(const std::string& controllers, const std::vector<std::string>& groups) const {
        folder_.Write("v2/cgroup.controllers", controllers);
        for (const std::string& group : groups) {
            folder_.Write("v2/" + group + "/cgroup.procs", "");
        }
    }

    std::vector<std::string> Files(const std::vector<std::string>& names) const {
        std::vector<std::string> files;
        files.reserve(names.size());
        for (const std::string& name : names) {
            files.push_back(folder_.File(name));
        }
        return files;
    }

    LaunchTest::TemporaryFolder folder_;
    const ResourceGroupRoots roots_{folder_.File("v1"), {folder_.File("nowhere"), folder_.File("v2")}};
};

TEST_F(ResourceGroup, IsFoundInEachControllerOfVersionOneThatHasIt) {
    Version1("cpu", {"vision"});
    Version1("memory", {"vision"});
    Version1("cpuset", {});
    Version1("blkio", {"vision"});
    const auto plan = FindResourceGroup("vision", roots_);
    EXPECT_EQ(plan.procsFiles,
              Files({"v1/cpu/vision/cgroup.procs", "v1/memory/vision/cgroup.procs", "v1/blkio/vision/cgroup.procs"}));
    EXPECT_EQ(plan.error, 0);
}

TEST_F(ResourceGroup, IsNamedOnceForAllControllersOfVersionTwo) {
    Version2("cpuset cpu io memory\n", {"vision"});
    const auto plan = FindResourceGroup("vision", roots_);
    EXPECT_EQ(plan.procsFiles, Files({"v2/vision/cgroup.procs"}));
}

TEST_F(ResourceGroup, TakesEachControllerFromWhereItIsMounted) {
    Version1("memory", {"vision"});
    Version2("cpu\n", {"vision"});
    const auto plan = FindResourceGroup("vision", roots_);
    EXPECT_EQ(plan.procsFiles, Files({"v2/vision/cgroup.procs", "v1/memory/vision/cgroup.procs"}));
}

TEST_F(ResourceGroup, IsNotLookedForInAVersionTwoWithoutItsControllers) {
    Version2("pids\n", {"vision"});
    EXPECT_EQ(FindResourceGroup("vision", roots_).error, ENOENT);
}

TEST_F(ResourceGroup, MayHaveSeveralLevels) {
    Version1("cpu", {"base/vision"});
    EXPECT_EQ(FindResourceGroup("base/vision", roots_).procsFiles, Files({"v1/cpu/base/vision/cgroup.procs"}));
}

TEST_F(ResourceGroup, ThatNobodyMadeIsAnError) {
    Version1("cpu", {});
    const auto plan = FindResourceGroup("vision", roots_);
    EXPECT_TRUE(plan.procsFiles.empty());
    EXPECT_EQ(plan.error, ENOENT);
}

TEST_F(ResourceGroup, NeverLeavesItsHierarchy) {
    Version1("cpu", {"vision"});
    for (const char* name : {"..", "../cpu/vision", "/vision", "vision/", "a//b", "./vision", "vision/.."}) {
        EXPECT_EQ(FindResourceGroup(name, roots_).error, EINVAL) << name;
    }
}

TEST_F(ResourceGroup, WithoutANameIsNoGroupAndNoError) {
    Version1("cpu", {});
    const auto plan = FindResourceGroup("", roots_);
    EXPECT_TRUE(plan.procsFiles.empty());
    EXPECT_EQ(plan.error, 0);
}

}  // namespace
