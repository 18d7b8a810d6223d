/// What happens between two steps of a start run, and what never arrives.
#include <pthread.h>

#include <algorithm>

#include "tests/app_manager/manager_fixture.h"

namespace ProcMgr {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class StartRace : public ManagerTest {
protected:
    /// Runs `action` when the manager logs this.
    static void OnText(const std::string& text, std::function<void()> action) {
        FakeLog::Get().OnLine([text, action = std::move(action)](const FakeLog::Record& record) {
            if (record.text == text) {
                action();
            }
        });
    }
};

/// While it lives, no thread can be made: none gets the memory for a stack of this size.
class NoMoreThreads {
public:
    NoMoreThreads() {
        pthread_attr_t attributes;
        EXPECT_EQ(pthread_getattr_default_np(&attributes), 0);
        EXPECT_EQ(pthread_attr_getstacksize(&attributes, &stackSize_), 0);
        pthread_attr_destroy(&attributes);
        SetStackSize(size_t{1} << 50);
    }
    ~NoMoreThreads() { SetStackSize(stackSize_); }

    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;

private:
    static void SetStackSize(size_t size) {
        pthread_attr_t attributes;
        EXPECT_EQ(pthread_attr_init(&attributes), 0);
        EXPECT_EQ(pthread_attr_setstacksize(&attributes, size), 0);
        EXPECT_EQ(pthread_setattr_default_np(&attributes), 0);
        pthread_attr_destroy(&attributes);
    }

    size_t stackSize_ = 0;
};

TEST_F(StartRace, InstanceRemovedBetweenItsLookUpAndItsCommandIsMadeAnew) {
    Load({Manifest("cam").Template()});
    ASSERT_TRUE(manager_.FindApplication("cam@front", true)
                    ->CompareAndSetAppState(AppStateType::INIT_STATE, AppStateType::TERMINATED_STATE));
    OnText("noDependsList in startAppMap appName=cam@front",
           [this] { manager_.RemoveDynamicApplication("cam@front"); });
    EXPECT_EQ(Start({"cam@front"}), "true cam@front=SUCCESS");
    EXPECT_EQ(StateOf("cam@front"), AppStateType::RUNNING_STATE);
}

TEST_F(StartRace, DependencyThatExitsBetweenTheLookAndTheWaveCostsTheRestOfTheTime) {
    Load({Manifest("a").DependsOn({"d0"}), Manifest("b").DependsOn({"d1"}), Manifest("d1")});
    BringUp({"d1"});
    // The wave meets d0 first, which nobody knows.
    OnText("ChangeApp failed. because StartGraph's elem=d0 not in baseApplication and drivingApplication!",
           [this] { manager_.ReportTerminatedNormalFromProcMgr("d1"); });
    EXPECT_EQ(Start({"a", "b"}), "false a=START_FAILED b=START_FAILED");
    EXPECT_EQ(clocks_.Elapsed().count(), 4500);
    EXPECT_THAT(processManager_.Requests(), IsEmpty());
    EXPECT_THAT(ManagerLines(), Contains("ERROR StartApp failed. timeout=4500(ms)"));
}

TEST_F(StartRace, DependencyThatIsRestartedWhileAnotherIsAwaitedIsAwaitedToo) {
    Load({Manifest("a").DependsOn({"d1"}), Manifest("b").DependsOn({"d2"}), Manifest("d1").Restart("on-forever"),
          Manifest("d2")});
    BringUp({"d1"});
    ASSERT_EQ(Term({"d1"}), "true d1=SUCCESS");
    processManager_.Ignore("START", "d2");
    ASSERT_EQ(Start({"d2"}), "false d2=PROCESSING");
    processManager_.Ignore("RESTART", "d1");
    processManager_.Then([this] {
        manager_.CheckAndRestartApp("d1");
        processManager_.Tell("d2", Report::TERMINATED_NORMAL_EXIT);
    });
    processManager_.Then([this] { processManager_.Tell("d1", Report::RUNNING_NORMAL_RESTART, 9); });
    EXPECT_EQ(Start({"a", "b"}), "false a=SUCCESS b=INIT");
}

TEST_F(StartRace, SuccessForWhichThereIsNoThreadIsReportedAllTheSame) {
    Load({Manifest("a").DependsOn({"d"}), Manifest("b"), Manifest("d")});
    processManager_.OnCommand([this](const std::string&) { manager_.GrpOwnerVerifyApp({{"d", 0}}); });
    const NoMoreThreads noMoreThreads;
    EXPECT_EQ(Start({"a", "b"}), "true a=SUCCESS b=SUCCESS");
    EXPECT_EQ(clocks_.Elapsed().count(), 0);
    const Strings lines = ManagerLines();
    const auto popped = std::find(lines.begin(), lines.end(),
                                  "INFO App d in noDependsList popped success, need to report success again.");
    ASSERT_GT(lines.end() - popped, 1);
    EXPECT_EQ(popped[1], "INFO ApplicationManager: ReportStartAppResult: appName=d,status=SUCCESS.");
}

// Entries that fit into no message.

constexpr size_t kUnsentSizes[] = {3956, 3957, 3958, 3959};

/// The name whose start entry, without arguments and parameters, has this many bytes.
std::string NameForEntry(size_t bytes) {
    return std::string(bytes - std::string("#0#0#").size(), 'x');
}

TEST_F(StartRace, EntryThatIsNotSentBehindOneThatIsCountsAsSentAndWaitsOutTheTime) {
    for (const size_t bytes : kUnsentSizes) {
        const std::string first = "a" + std::to_string(bytes);
        const std::string second = NameForEntry(bytes);
        Load({Manifest(first), Manifest(second)});
        const auto before = clocks_.Elapsed();
        EXPECT_EQ(Start({first, second}), "false " + first + "=SUCCESS " + second + "=PROCESSING");
        EXPECT_EQ((clocks_.Elapsed() - before).count(), 4500);
        EXPECT_THAT(processManager_.Requests(), ElementsAre("START 1#" + first + "#0#0#"));
        EXPECT_EQ(StateOf(second), AppStateType::WAIT_READY_STATE);
    }
}

TEST_F(StartRace, EntryThatIsNotSentAndIsTheOnlyOneFailsAtOnce) {
    for (const size_t bytes : kUnsentSizes) {
        const std::string name = NameForEntry(bytes);
        Load({Manifest(name)});
        EXPECT_EQ(Start({name}), "false " + name + "=START_FAILED");
        EXPECT_EQ(clocks_.Elapsed().count(), 0);
        EXPECT_THAT(processManager_.Requests(), IsEmpty());
    }
}

}  // namespace
}  // namespace ProcMgr
