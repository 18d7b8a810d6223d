#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/include/parse_and_depend.h"
#include "tests/app_manager/manager_fixture.h"

namespace ProcMgr {
namespace {

/// The real clocks, and a process manager that answers at once from a thread of its own.
class ManagerConcurrency : public ManagerTest {
protected:
    // Long enough for every machine; no test here waits it out.
    static constexpr int kPatienceMs = 60000;

    void SetUp() override {
        ManagerTest::SetUp();
        manager_.UseClocks(WaitClocks::System());
        processManager_.AnswerAtOnce();
        FakeLog::Get().SetThreshold(100);
    }

    /// `count` manifests a0, a1, ... each of which depends on the one before.
    static std::vector<ApplicationManifest> Chain(int count) {
        std::vector<ApplicationManifest> manifests;
        for (int index = 0; index < count; ++index) {
            ManifestBuilder manifest("a" + std::to_string(index));
            manifest.AutoBoot();
            if (index > 0) {
                manifest.DependsOn({"a" + std::to_string(index - 1)});
            }
            manifests.emplace_back(manifest);
        }
        return manifests;
    }

    static Strings NamesOf(const std::vector<ApplicationManifest>& manifests) {
        Strings names;
        for (const ApplicationManifest& manifest : manifests) {
            names.push_back(manifest.GetAppName());
        }
        return names;
    }

    static std::string AllSucceeded(const Strings& names) {
        std::string text = "true";
        for (const std::string& name : std::set<std::string>(names.begin(), names.end())) {
            text += " " + name + "=SUCCESS";
        }
        return text;
    }
};

TEST_F(ManagerConcurrency, ReloadsDuringAChainStartLoseNoReport) {
    const auto manifests = Chain(60);
    Load(manifests);
    // A reload for each command: it meets the report that answers the command.
    std::mutex mutex;
    std::condition_variable commanded;
    int commands = 0;
    bool isBooted = false;
    processManager_.OnCommand([&](const std::string& kind) {
        const std::lock_guard<std::mutex> lock(mutex);
        commands += kind == "START" ? 1 : 0;
        commanded.notify_all();
    });
    const auto waitForCommand = [&] {
        std::unique_lock<std::mutex> lock(mutex);
        commanded.wait(lock, [&] { return isBooted || commands > 0; });
        commands = 0;
        return !isBooted;
    };
    for (int round = 0; round < 5; ++round) {
        isBooted = false;
        std::thread reloader([&] {
            while (waitForCommand()) {
                EXPECT_TRUE(manager_.ReloadCfg());
            }
        });
        EXPECT_TRUE(manager_.StartBaseApplication());
        {
            const std::lock_guard<std::mutex> lock(mutex);
            isBooted = true;
            commanded.notify_all();
        }
        reloader.join();
        for (const std::string& name : NamesOf(manifests)) {
            EXPECT_EQ(StateOf(name), AppStateType::RUNNING_STATE) << name;
        }
        EXPECT_EQ(Term(NamesOf(manifests), kPatienceMs), AllSucceeded(NamesOf(manifests)));
    }
    processManager_.OnCommand(nullptr);
}

TEST_F(ManagerConcurrency, BootAndChangeStartTheSameNames) {
    const auto manifests = Chain(20);
    const Strings names = NamesOf(manifests);
    Load(manifests);
    for (int round = 0; round < 20; ++round) {
        std::thread boot([this] { EXPECT_TRUE(manager_.StartBaseApplication()); });
        EXPECT_EQ(Start(names, kPatienceMs), AllSucceeded(names));
        boot.join();
        EXPECT_EQ(Term(names, kPatienceMs), AllSucceeded(names));
    }
}

TEST_F(ManagerConcurrency, AcceptedChangeOfTwoThreadsNamesExactlyItsOwnApplications) {
    Load({Manifest("a1"), Manifest("a2"), Manifest("b1"), Manifest("b2")});
    const auto changeLoop = [this](const Strings& names) {
        int accepted = 0;
        while (accepted < 50) {
            std::vector<AppChangeInfo> infos;
            const bool isStart = accepted % 2 == 0;
            const auto apps = Apps(names);
            const bool isSuccess = isStart ? manager_.ChangeApp({}, apps, {}, infos, kPatienceMs)
                                           : manager_.ChangeApp(apps, {}, {}, infos, kPatienceMs);
            if (!isSuccess && infos.empty()) {
                std::this_thread::yield();
                continue;
            }
            EXPECT_EQ(Text(isSuccess, infos), AllSucceeded(names));
            ++accepted;
        }
    };
    std::thread other([&changeLoop] { changeLoop({"a1", "a2"}); });
    changeLoop({"b1", "b2"});
    other.join();
}

TEST_F(ManagerConcurrency, ReportsArriveWhileTheManagerIsBeingInitialised) {
    const auto manifests = Chain(50);
    FakeManifests::Get().SetManifests(manifests);
    std::atomic<bool> isDone{false};
    std::thread reporter([this, &isDone] {
        while (!isDone) {
            processManager_.Tell("a3", Report::RUNNING_NORMAL_START, 7);
            processManager_.Tell("a4", Report::RUNNING_ABNORMAL_TERM_TIMEOUT);
            (void)FakePipe::Get().WaitUntilDelivered();
        }
    });
    EXPECT_TRUE(manager_.ApplicationMgrInit("/group"));
    EXPECT_TRUE(manager_.StartBaseApplication());
    isDone = true;
    reporter.join();
}

TEST_F(ManagerConcurrency, QueriesKeepTheirAnswersApartFromLateOnes) {
    Load({Manifest("a"), Manifest("b")});
    std::atomic<bool> isDone{false};
    std::thread lateAnswers([this, &isDone] {
        while (!isDone) {
            processManager_.TellStates({{"a", 2}});
            (void)FakePipe::Get().WaitUntilDelivered();
        }
    });
    const auto ask = [this](const std::string& name) {
        for (int round = 0; round < 50; ++round) {
            std::vector<AppStatus> statuses;
            EXPECT_TRUE(manager_.QueryAppState({name, "ghost"}, statuses, kPatienceMs));
            ASSERT_EQ(statuses.size(), 2U);
            EXPECT_EQ(statuses[0].appName, name);
            EXPECT_EQ(statuses[1].state, 1);
        }
    };
    std::thread other([&ask] { ask("b"); });
    ask("a");
    other.join();
    isDone = true;
    lateAnswers.join();
}

TEST_F(ManagerConcurrency, VerificationMeetsTheApplicationsOwnReport) {
    Strings names;
    std::vector<ApplicationManifest> manifests;
    std::map<std::string, uint32_t> states;
    for (int index = 0; index < 200; ++index) {
        const std::string name = "a" + std::to_string(index);
        manifests.emplace_back(Manifest(name).Reporting());
        names.push_back(name);
        states[name] = 0;
    }
    Load(manifests);
    std::thread reports([this, &names] {
        for (const std::string& name : names) {
            manager_.ReportRunningNormalStartFromApp(name);
        }
    });
    manager_.GrpOwnerVerifyApp(states);
    reports.join();
    for (const std::string& name : names) {
        EXPECT_EQ(StateOf(name), AppStateType::RUNNING_STATE);
    }
}

TEST_F(ManagerConcurrency, LookUpsDumpsAndPolicyRestartsMeetChangesAndReloads) {
    Load({Manifest("a").Restart("on-forever"), Manifest("b").DependsOn({"a"}), Manifest("cam").Template()});
    std::atomic<bool> isDone{false};
    std::thread reader([this, &isDone] {
        while (!isDone) {
            Strings names;
            manager_.QueryAppList(names);
            manager_.ApplicationDump();
            (void)manager_.DrivingAppNamesToStop();
            (void)manager_.FindApplication("cam@left", false);
        }
    });
    std::thread policy([this, &isDone] {
        while (!isDone) {
            manager_.CheckAndRestartApp("a");
            (void)manager_.ReloadCfg();
        }
    });
    for (int round = 0; round < 30; ++round) {
        std::vector<AppChangeInfo> infos;
        (void)manager_.ChangeApp({}, Apps({"b", "cam@left"}), Apps({"cam@right"}), infos, kPatienceMs);
        (void)manager_.ChangeApp(Apps({"cam"}), {}, {}, infos, kPatienceMs);
    }
    isDone = true;
    reader.join();
    policy.join();
}

TEST_F(ManagerConcurrency, DependencyIsReportedOverAndOverWhileItsDependantsStart) {
    std::vector<ApplicationManifest> manifests{Manifest("d")};
    Strings names;
    for (int index = 0; index < 40; ++index) {
        const std::string name = "a" + std::to_string(index);
        manifests.emplace_back(Manifest(name).DependsOn({"d"}));
        names.push_back(name);
    }
    Load(manifests);
    processManager_.Ignore("START", "d");
    std::vector<AppChangeInfo> ignored;
    EXPECT_FALSE(manager_.ChangeApp({}, Apps({"d"}), {}, ignored, 100));
    std::atomic<bool> isDone{false};
    std::thread reporter([this, &isDone] {
        while (!isDone) {
            manager_.ReportRunningNormalStartFromProcMgr("d", 9);
        }
    });
    EXPECT_EQ(Start(names, kPatienceMs), AllSucceeded(names));
    isDone = true;
    reporter.join();
}

}  // namespace
}  // namespace ProcMgr
