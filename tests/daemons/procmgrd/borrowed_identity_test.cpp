#include "daemons/procmgrd/borrowed_identity.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/fsuid.h>
#include <sys/stat.h>
#include <unistd.h>

#include <stdexcept>

#include "platform/posix/common_posix/unique_fd.h"

namespace Procmgrd {
namespace {

constexpr uid_t kUser = 12345;
constexpr gid_t kGroup = 54321;
constexpr gid_t kOtherGroup = 54322;

class BorrowedIdentityOf : public testing::Test {
protected:
    BorrowedIdentityOf() {
        const ProcMgr::UniqueFd file(mkstemp(path_.data()));
        EXPECT_TRUE(file.IsOpen());
    }
    ~BorrowedIdentityOf() override { unlink(path_.c_str()); }

    void SetUp() override {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root, to be another user";
        }
    }

    bool CanRead() const { return ProcMgr::UniqueFd(open(path_.c_str(), O_RDONLY | O_CLOEXEC)).IsOpen(); }

    static std::vector<gid_t> Groups() {
        std::vector<gid_t> groups(static_cast<size_t>(getgroups(0, nullptr)));
        EXPECT_EQ(getgroups(static_cast<int>(groups.size()), groups.data()), static_cast<int>(groups.size()));
        return groups;
    }

    static void ExpectOwn() {
        EXPECT_EQ(setfsuid(static_cast<uid_t>(-1)), 0);
        EXPECT_EQ(setfsgid(static_cast<gid_t>(-1)), static_cast<int>(getegid()));
    }

    std::string path_ = "/tmp/borrowed-identity-XXXXXX";
};

TEST_F(BorrowedIdentityOf, AUserReadsWhatThatUserMayReadOnly) {
    {
        const BorrowedIdentity borrowed({kUser, kGroup, {}});
        EXPECT_TRUE(borrowed.Holds());
        EXPECT_FALSE(CanRead());
    }
    EXPECT_TRUE(CanRead());
    ExpectOwn();
}

TEST_F(BorrowedIdentityOf, AUserReadsWhatItsSupplementaryGroupsMayRead) {
    ASSERT_EQ(chown(path_.c_str(), 0, kOtherGroup), 0);
    ASSERT_EQ(chmod(path_.c_str(), 0640), 0);
    const BorrowedIdentity borrowed({kUser, kGroup, {kOtherGroup}});
    EXPECT_TRUE(CanRead());
}

TEST_F(BorrowedIdentityOf, AUserLeavesTheDaemonsGroupsBehindAndGivesThemBack) {
    const gid_t own = kOtherGroup;
    ASSERT_EQ(setgroups(1, &own), 0);
    ASSERT_EQ(chown(path_.c_str(), 0, kOtherGroup), 0);
    ASSERT_EQ(chmod(path_.c_str(), 0640), 0);
    {
        const BorrowedIdentity borrowed({kUser, kGroup, {}});
        EXPECT_FALSE(CanRead());
    }
    EXPECT_THAT(Groups(), testing::ElementsAre(kOtherGroup));
}

TEST_F(BorrowedIdentityOf, AUserIsGivenBackWhenAnExceptionPasses) {
    try {
        const BorrowedIdentity borrowed({kUser, kGroup, {}});
        throw std::runtime_error("on the way");
    } catch (const std::runtime_error&) {
        ExpectOwn();
    }
    EXPECT_TRUE(CanRead());
}

TEST_F(BorrowedIdentityOf, RootIsTheDaemonsOwn) {
    const BorrowedIdentity borrowed({0, kGroup, {}});
    EXPECT_TRUE(borrowed.Holds());
    EXPECT_TRUE(CanRead());
    ExpectOwn();
}

TEST_F(BorrowedIdentityOf, AnotherUserIsNotForADaemonThatIsNotRoot) {
    ASSERT_EQ(setresgid(kGroup, kGroup, kGroup), 0);
    ASSERT_EQ(setresuid(kUser, kUser, kUser), 0);
    const BorrowedIdentity borrowed({kUser + 1, kGroup, {}});
    EXPECT_FALSE(borrowed.Holds());
}

}  // namespace
}  // namespace Procmgrd
