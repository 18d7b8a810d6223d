#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/platform/vek_test_kit.h"

using VekTest::Ask;
using VekTest::BusFixture;
using VekTest::File;
using VekTest::InChild;
using VekTest::OpenFile;

namespace {

constexpr uid_t kUser = 54321;

/// What each of the commands 0 to 10 comes to.
std::string AskAll() {
    const File file = OpenFile();
    std::string answers;
    for (uint32_t cmd = 0; cmd <= 10; ++cmd) {
        answers += Ask(file, cmd, "x") + ",";
    }
    return answers;
}

std::string OpenError(bool isQueue = false) {
    ProcmgrSsFile* file = nullptr;
    ProcmgrSsQueue* queue = nullptr;
    const int error = isQueue ? ProcmgrSsOpenQueue(nullptr, "events", VekTest::kPatience, &queue)
                              : ProcmgrSsOpen(nullptr, "grpowner", VekTest::kPatience, &file);
    ProcmgrSsClose(file);
    ProcmgrSsCloseQueue(queue);
    return std::to_string(error);
}

class BusAccess : public BusFixture {
protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root, to become another user";
        }
    }

    void Serve(const std::string& rules) {
        ::setenv("PROCMGR_SS_RULES", folder.Write("ss.rules", rules).c_str(), 1);
        ASSERT_EQ(Register(), 0);
        ASSERT_EQ(RegisterQueue(), 0);
    }
};

TEST_F(BusAccess, WithoutRulesAnotherUserMayNotEvenLook) {
    ASSERT_EQ(Register(), 0);
    EXPECT_EQ(InChild(kUser, [] { return OpenError(); }), std::to_string(-EACCES));
    EXPECT_TRUE(TunorTest::WaitForLog("2 BusService : refused uid 54321 (process "));
    EXPECT_TRUE(TunorTest::WaitForLog(") to open grpowner: no rule allows it"));
    EXPECT_TRUE(service.Told().empty());
}

TEST_F(BusAccess, RootMayDoEverything) {
    Serve("allow uid 54321 look\n");
    EXPECT_EQ(InChild(0, AskAll), "0 x,1 x,2 x,3 x,4 x,5 x,6 x,7 x,8 x,9 x,10 x,");
}

TEST_F(BusAccess, AUserWhoMayLookCanNeitherChangeNorStop) {
    Serve("allow uid 54321 look\n");
    EXPECT_EQ(InChild(kUser, AskAll), "EACCES,EACCES,EACCES,EACCES,4 x,EACCES,6 x,EACCES,EACCES,9 x,EACCES,");
    EXPECT_TRUE(TunorTest::WaitForLog("2 BusService : refused uid 54321 (process "));
    EXPECT_TRUE(TunorTest::WaitForLog(") the command 5 of grpowner: no rule allows it"));
    const std::vector<std::string> told = service.Told();
    for (const char* denied :
         {"ioctl 0", "ioctl 1", "ioctl 2", "ioctl 3", "ioctl 5", "ioctl 7", "ioctl 8", "ioctl 10"}) {
        EXPECT_EQ(std::count(told.begin(), told.end(), denied), 0) << denied;
    }
}

TEST_F(BusAccess, AUserWhoMayChangeCanNotStopOrLook) {
    Serve("allow uid 54321 change\n");
    EXPECT_EQ(InChild(kUser, AskAll), "0 x,1 x,2 x,3 x,EACCES,EACCES,EACCES,7 x,8 x,EACCES,10 x,");
}

TEST_F(BusAccess, AUserWhoMayStopCanDoJustThat) {
    Serve("allow uid 54321 stop\n");
    EXPECT_EQ(InChild(kUser, AskAll), "EACCES,EACCES,EACCES,EACCES,EACCES,5 x,EACCES,EACCES,EACCES,EACCES,EACCES,");
}

TEST_F(BusAccess, EventsAreForThoseWhoMayLook) {
    Serve("allow uid 54321 look\nallow uid 54322 change stop\n");
    EXPECT_EQ(InChild(kUser, [] { return OpenError(true); }), "0");
    EXPECT_EQ(InChild(kUser + 1, [] { return OpenError(true); }), std::to_string(-EACCES));
    EXPECT_EQ(InChild(kUser + 1, [] { return OpenError(false); }), "0");
}

TEST_F(BusAccess, RulesWithAnErrorLetNobodyElseIn) {
    Serve("allow uid 54321 look\nallow uid 54322 anything\n");
    EXPECT_TRUE(TunorTest::WaitForLog("3 BusService : the rules are not used, only root and uid 0 may use grpowner: " +
                                      folder.Path() + "/ss.rules:2: it grants something unknown"));
    EXPECT_EQ(InChild(kUser, [] { return OpenError(); }), std::to_string(-EACCES));
    EXPECT_EQ(InChild(0, [] { return OpenError(); }), "0");
}

TEST_F(BusAccess, ARefusedUserDoesNotFillTheLog) {
    Serve("allow uid 54321 look\n");
    EXPECT_EQ(InChild(kUser,
                      [] {
                          const File file = OpenFile();
                          int refused = 0;
                          for (int i = 0; i < 500; ++i) {
                              refused += Ask(file, 5, "x") == "EACCES" ? 1 : 0;
                          }
                          return std::to_string(refused) + " " + Ask(file, 6, "x");
                      }),
              "500 6 x");
    const std::vector<std::string> lines = TunorTest::LogLines();
    const auto refusals = std::count_if(lines.begin(), lines.end(),
                                        [](const auto& line) { return line.find("refused uid") != line.npos; });
    EXPECT_GE(refusals, 1);
    EXPECT_LT(refusals, 250);
}

}  // namespace
