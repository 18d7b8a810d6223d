#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "platform/posix/common_posix/access_rules.h"
#include "tests/platform/tunor_test_kit.h"

using ProcMgr::AccessRules;
using TunorTest::TempFolder;

namespace {

std::string ErrorOf(const std::string& text) {
    AccessRules rules;
    std::string error;
    EXPECT_FALSE(rules.Parse(text, "rules", error));
    return error;
}

}  // namespace

TEST(AccessRules, RootAndTheOwnUserAlwaysMay) {
    const AccessRules rules;
    EXPECT_TRUE(rules.Allowed(0));
    EXPECT_TRUE(rules.Allowed(::geteuid()));
}

TEST(AccessRules, WithoutARuleNobodyElseMay) {
    const AccessRules rules;
    EXPECT_FALSE(rules.Allowed(54321));
    EXPECT_FALSE(rules.Allowed(static_cast<uid_t>(-1)));
}

TEST(AccessRules, RulesAllowSingleUsersRangesAndNames) {
    AccessRules rules;
    std::string error;
    ASSERT_TRUE(
        rules.Parse("# who may come in\n"
                    "\n"
                    "allow uid 54000\n"
                    "  allow\tuid 55000-55010   # the test rigs\r\n"
                    "allow user daemon",
                    "rules", error))
        << error;
    EXPECT_TRUE(rules.Allowed(54000));
    EXPECT_FALSE(rules.Allowed(54001));
    EXPECT_FALSE(rules.Allowed(54999));
    EXPECT_TRUE(rules.Allowed(55000));
    EXPECT_TRUE(rules.Allowed(55010));
    EXPECT_FALSE(rules.Allowed(55011));
    EXPECT_TRUE(rules.Allowed(1));
}

TEST(AccessRules, ErrorsNameFileAndLine) {
    EXPECT_EQ(ErrorOf("# one\n\ndeny uid 1\n"), "rules:3: a rule begins with 'allow'");
    EXPECT_EQ(ErrorOf("allow uid"),
              "rules:1: a rule is 'allow uid <number>', 'allow uid <first>-<last>' or 'allow user <name>'");
    EXPECT_EQ(ErrorOf("allow uid 1 2"),
              "rules:1: a rule is 'allow uid <number>', 'allow uid <first>-<last>' or 'allow user <name>'");
    EXPECT_EQ(ErrorOf("allow gid 1"), "rules:1: a rule is about 'uid' or 'user'");
    EXPECT_EQ(ErrorOf("allow uid 20-10"), "rules:1: the range ends before it begins");
    EXPECT_EQ(ErrorOf("allow user no-such-user-here"), "rules:1: there is no such user");
    EXPECT_EQ(ErrorOf(std::string("allow user root\0x", 17)), "rules:1: there is no such user");
}

TEST(AccessRules, UserIdsThatAreNoNumbersAreRefused) {
    for (const char* id : {"x", "1x", "-1", "+1", "1-", "-", "1-2-3", "4294967295", "99999999999", "0x10", "*"}) {
        EXPECT_EQ(ErrorOf(std::string("allow uid ") + id), "rules:1: a user id is a number from 0 to 4294967294") << id;
    }
}

TEST(AccessRules, ABadFileLeavesTheRulesAsTheyWere) {
    AccessRules rules;
    std::string error;
    ASSERT_TRUE(rules.Parse("allow uid 54000", "rules", error));
    EXPECT_FALSE(rules.Parse("allow uid 55000\nnonsense", "rules", error));
    EXPECT_TRUE(rules.Allowed(54000));
    EXPECT_FALSE(rules.Allowed(55000));
}

TEST(AccessRules, AFileIsReadWithItsPathInTheErrors) {
    const TempFolder folder;
    AccessRules rules;
    std::string error;
    ASSERT_TRUE(rules.Load(folder.Write("good", "allow uid 54000\n"), error)) << error;
    EXPECT_TRUE(rules.Allowed(54000));
    const std::string bad = folder.Write("bad", "allow uid 1\nallow uid y\n");
    EXPECT_FALSE(rules.Load(bad, error));
    EXPECT_EQ(error, bad + ":2: a user id is a number from 0 to 4294967294");
}

TEST(AccessRules, AFileThatOthersMayWriteIsRefused) {
    const TempFolder folder;
    AccessRules rules;
    std::string error;
    const std::string path = folder.Write("rules", "allow uid 54000\n", 0620);
    EXPECT_FALSE(rules.Load(path, error));
    EXPECT_EQ(error, path + ": is writable by others than its owner");
    EXPECT_FALSE(rules.Allowed(54000));
}

TEST(AccessRules, AFileOfAStrangerIsRefused) {
    const TempFolder folder;
    AccessRules rules;
    std::string error;
    const std::string path = folder.Write("rules", "allow uid 54000\n");
    if (::chown(path.c_str(), 54000, 0) != 0) {
        GTEST_SKIP() << "needs the right to give a file away";
    }
    EXPECT_FALSE(rules.Load(path, error));
    EXPECT_EQ(error, path + ": belongs to neither root nor this process's user");
}

TEST(AccessRules, AMissingFileAFolderAndAPipeAreRefused) {
    const TempFolder folder;
    AccessRules rules;
    std::string error;
    EXPECT_FALSE(rules.Load(folder.Path() + "/none", error));
    EXPECT_EQ(error, folder.Path() + "/none: cannot be read: No such file or directory");
    EXPECT_FALSE(rules.Load(folder.Path(), error));
    EXPECT_EQ(error, folder.Path() + ": is not a regular file");
    const std::string pipe = folder.Path() + "/pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_FALSE(rules.Load(pipe, error));
    EXPECT_EQ(error, pipe + ": is not a regular file");
}
