#include "daemons/procmgrd/safe_folder.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

namespace Procmgrd {
namespace {

class SafeFolder : public testing::Test {
protected:
    SafeFolder() { EXPECT_NE(mkdtemp(parent_.data()), nullptr); }
    ~SafeFolder() override { std::filesystem::remove_all(parent_); }

    std::string Path(const std::string& name) const { return parent_ + "/" + name; }

    static mode_t ModeOf(const std::string& path) {
        struct stat info {};
        EXPECT_EQ(stat(path.c_str(), &info), 0);
        return info.st_mode & 07777;
    }

private:
    std::string parent_ = "/tmp/safe-folder-XXXXXX";
};

TEST_F(SafeFolder, IsMadeWithItsModeWhateverTheUmaskIs) {
    const mode_t before = umask(077);
    EXPECT_TRUE(MakeSafeFolder(Path("new"), 0711));
    umask(before);
    EXPECT_EQ(ModeOf(Path("new")), 0711U);
}

TEST_F(SafeFolder, ThatIsThereAlreadyKeepsItsMode) {
    ASSERT_EQ(mkdir(Path("old").c_str(), 0700), 0);
    EXPECT_TRUE(MakeSafeFolder(Path("old"), 0755));
    EXPECT_EQ(ModeOf(Path("old")), 0700U);
}

TEST_F(SafeFolder, IsNoLinkEvenToAGoodFolder) {
    ASSERT_EQ(mkdir(Path("good").c_str(), 0700), 0);
    std::filesystem::create_directory_symlink(Path("good"), Path("link"));
    EXPECT_FALSE(MakeSafeFolder(Path("link"), 0755));
    EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(SafeFolder, IsNoFile) {
    std::ofstream(Path("file")) << "text";
    EXPECT_FALSE(MakeSafeFolder(Path("file"), 0755));
    EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(SafeFolder, IsNoneThatOthersMayWriteStickyOrNot) {
    for (const mode_t mode : {0775U, 0757U, 01777U}) {
        ASSERT_EQ(mkdir(Path("open").c_str(), 0700), 0);
        ASSERT_EQ(chmod(Path("open").c_str(), mode), 0);
        EXPECT_FALSE(MakeSafeFolder(Path("open"), 0755));
        EXPECT_EQ(errno, EPERM);
        ASSERT_EQ(rmdir(Path("open").c_str()), 0);
    }
}

TEST_F(SafeFolder, IsNoneOfAnotherUser) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root, to give a folder away";
    }
    ASSERT_EQ(mkdir(Path("foreign").c_str(), 0755), 0);
    ASSERT_EQ(chown(Path("foreign").c_str(), 12345, 12345), 0);
    EXPECT_FALSE(MakeSafeFolder(Path("foreign"), 0755));
    EXPECT_EQ(errno, EPERM);
}

TEST_F(SafeFolder, NeedsItsParent) {
    EXPECT_FALSE(MakeSafeFolder(Path("none/new"), 0755));
    EXPECT_EQ(errno, ENOENT);
}

}  // namespace
}  // namespace Procmgrd
