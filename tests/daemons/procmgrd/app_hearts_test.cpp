#include "daemons/procmgrd/app_hearts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>

#include <string>
#include <vector>

namespace Procmgrd {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

/// Hearts of a period of 1000 ms, and what they sent, as "owner/app pid gid".
class Hearts : public testing::Test {
protected:
    Hearts() { EXPECT_TRUE(deadlines_.Open()); }

    void Beat(const std::string& app, int ms) {
        hearts_.Beat({"group", app}, AppHearts::Clock::time_point() + milliseconds(ms));
    }

    std::vector<std::string> TakeSent() { return std::exchange(sent_, {}); }

    std::vector<std::string> sent_;
    Deadlines deadlines_;
    AppHearts hearts_{
        deadlines_, milliseconds(1000), [this](const AppKey& key, pid_t pid, gid_t gid) {
            sent_.push_back(key.owner + "/" + key.app + " " + std::to_string(pid) + " " + std::to_string(gid));
        }};
};

TEST_F(Hearts, PassABeatOnWithTheProcessAndTheGroupOfTheApplication) {
    hearts_.Came({"group", "cam"}, 17, 10);
    TakeSent();
    Beat("cam", 5000);
    EXPECT_THAT(TakeSent(), ElementsAre("group/cam 17 10"));
}

TEST_F(Hearts, OfApplicationsThatAreNotThereAreNothing) {
    Beat("cam", 5000);
    hearts_.Came({"group", "cam"}, 17, 10);
    hearts_.Gone({"group", "cam"});
    TakeSent();
    Beat("cam", 5000);
    EXPECT_THAT(TakeSent(), IsEmpty());
}

TEST_F(Hearts, ThatBeatWithoutAPauseSendFourTimesInAPeriod) {
    hearts_.Came({"group", "cam"}, 17, 10);
    TakeSent();
    for (int ms = 5000; ms < 6000; ++ms) {
        Beat("cam", ms);
    }
    EXPECT_EQ(TakeSent().size(), 4U);
}

TEST_F(Hearts, OfTheRightPeriodLoseNoBeatThoughTheyAreNotQuiteEven) {
    hearts_.Came({"group", "cam"}, 17, 10);
    TakeSent();
    int sent = 0;
    for (int beat = 0; beat < 100; ++beat) {
        Beat("cam", 5000 + 1000 * beat + (beat % 2 == 0 ? 300 : -300));
        ++sent;
    }
    EXPECT_EQ(TakeSent().size(), static_cast<size_t>(sent));
}

TEST_F(Hearts, LetEachOwnerKnowThatTheProcessManagerIsThere) {
    hearts_.Came({"a", "x"}, 1, 0);
    EXPECT_THAT(TakeSent(), ElementsAre("a/ 0 0")) << "at once";
    hearts_.Came({"a", "y"}, 2, 0);
    hearts_.Came({"b", "x"}, 3, 0);
    EXPECT_THAT(TakeSent(), IsEmpty());
    hearts_.Pulse();
    EXPECT_THAT(TakeSent(), ElementsAre("a/ 0 0", "b/ 0 0"));
    hearts_.Gone({"a", "x"});
    hearts_.Gone({"a", "y"});
    hearts_.Pulse();
    EXPECT_THAT(TakeSent(), ElementsAre("b/ 0 0"));
}

TEST_F(Hearts, KeepTheTimerOnlyAsLongAsThereAreSome) {
    pollfd timer{deadlines_.Fd(), POLLIN, 0};
    hearts_.Came({"a", "x"}, 1, 0);
    EXPECT_EQ(poll(&timer, 1, 60000), 1);
    EXPECT_THAT(deadlines_.TakeDue(), ElementsAre(DeadlineKey(DeadlineKind::PULSE, AppKey())));
    hearts_.Pulse();
    hearts_.Gone({"a", "x"});
    EXPECT_THAT(deadlines_.TakeDue(), IsEmpty());
    deadlines_.Arm(DeadlineKind::STOP, {}, 1);
    EXPECT_EQ(poll(&timer, 1, 60000), 1);
    EXPECT_THAT(deadlines_.TakeDue(), ElementsAre(DeadlineKey(DeadlineKind::STOP, AppKey())));
}

}  // namespace
}  // namespace Procmgrd
