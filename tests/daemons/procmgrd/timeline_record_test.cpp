// The record of starts that a running daemon keeps.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "platform/posix/timeline/timeline_event.h"
#include "tests/daemons/procmgrd/daemon_fixture.h"

namespace ProcmgrdTest {
namespace {

using ProcMgr::Timeline::Event;
using ProcMgr::Timeline::EventKind;
using testing::ElementsAre;

constexpr const char* kApps = R"(
- {app_name: cam, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, is_reporting: true, is_auto_boot: true,
   arguments: [ready], depends: [clock, missing]}
- {app_name: clock, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}}
- {app_name: brief, bin_path: "${APP}", env_argv: {TEST_NOTES: "${DIR}/notes"}, arguments: [exit=3]}
- {app_name: missing, bin_path: "${DIR}/no-such-program"}
)";

/// "asked clock 1 0", "exited clock 0 9": the event, its application, and its numbers but the pid.
std::string Summary(const Event& event) {
    std::string text = std::string(EventName(event.kind)) + " " + event.app;
    switch (event.kind) {
        case EventKind::MANIFEST:
            text += " " + std::to_string(event.boot) + std::to_string(event.reports);
            for (const std::string& name : event.depends) {
                text += " " + name;
            }
            return text;
        case EventKind::ASKED:
            return text + " " + std::to_string(event.request) + " " + std::to_string(event.restart);
        case EventKind::FAILED:
            return text + " " + std::to_string(event.reason) + " " + std::to_string(event.detail);
        case EventKind::EXITED:
            return text + " " + std::to_string(event.code) + " " + std::to_string(event.signal);
        case EventKind::CAME:
            return text + event.owner;
        case EventKind::LOADED:
            return text + std::to_string(event.good);
        default:
            return text;
    }
}

class TimelineRecords : public DaemonTest {
protected:
    TimelineRecords() { Manifests(kApps); }

    /// What a file of the owner's record holds; the daemon has written it all when it has ended.
    std::vector<Event> Events(const std::string& file) const {
        std::stringstream text;
        text << std::ifstream(RunDir() + "/timeline/" + file).rdbuf();
        ProcMgr::Timeline::RecordPart part;
        ProcMgr::Timeline::RecordFault fault;
        EXPECT_TRUE(ReadPart(text.str(), part, fault)) << file << ": " << fault.line << ": " << fault.text;
        EXPECT_FALSE(part.isTorn);
        return part.events;
    }

    std::vector<std::string> Summaries(const std::string& file) const {
        std::vector<std::string> lines;
        for (const Event& event : Events(file)) {
            lines.push_back(Summary(event));
        }
        return lines;
    }
};

TEST_F(TimelineRecords, TellWhatBecameOfEachStart) {
    StartDaemon();
    const auto owner = Owner();
    const pid_t clock = StartAndWait(*owner, "clock");
    owner->Start({"missing", "ghost"});
    owner->WaitReport("missing");
    owner->WaitReport("ghost");
    const pid_t cam = StartAndWait(*owner, "cam");
    OwnerClient::WaitSelfReport();
    owner->Start({"clock"});
    owner->WaitReport("clock");
    owner->Start({"brief"});
    owner->WaitReport("brief");
    owner->WaitReport("brief");
    owner->Restart({"clock"});
    const auto clockAgain = static_cast<uint64_t>(owner->WaitReport("clock").pid);
    owner->Term({"clock"});
    owner->WaitReport("clock");
    owner->Close();
    ASSERT_NE(daemon_->WaitForLine("is gone"), "");
    StopDaemon();
    EXPECT_THAT(Summaries("group/boot"),
                ElementsAre("came group", "loaded 1", "manifest brief 00", "manifest cam 11 clock missing",
                            "manifest clock 00", "manifest missing 00",                                    //
                            "asked clock 1 0", "forked clock", "running clock",                            //
                            "asked ghost 2 0", "failed ghost 7 0", "asked missing 2 0", "forked missing",  //
                            "failed missing 2 2",                                                          //
                            "asked cam 3 0", "forked cam", "running cam", "ready cam",                     //
                            "asked clock 4 0", "running clock",                                            //
                            "asked brief 5 0", "forked brief", "running brief", "exited brief 3 0",        //
                            "asked clock 6 1", "exited clock 0 15", "forked clock", "running clock",       //
                            "ending clock", "exited clock 0 15", "left ", "ending cam", "exited cam 0 15"));
    for (const Event& event : Events("group/boot")) {
        const bool isSecond = event.kind == EventKind::FORKED && event.pid == clockAgain;
        if (event.app == "clock" && event.pid != 0 && event.serial < 26) {
            EXPECT_EQ(event.pid, static_cast<uint64_t>(clock));
        }
        if (event.app == "cam" && event.pid != 0) {
            EXPECT_EQ(event.pid, static_cast<uint64_t>(cam));
        }
        EXPECT_TRUE(!isSecond || event.serial > 26U);
    }
}

TEST_F(TimelineRecords, HaveTimesThatDoNotGoBack) {
    StartDaemon();
    const auto owner = Owner();
    StartAndWait(*owner, "clock");
    StopDaemon();
    int64_t last = 0;
    uint64_t serial = 0;
    for (const Event& event : Events("group/boot")) {
        EXPECT_GE(event.monotonicUs, last);
        EXPECT_EQ(event.serial, ++serial);
        last = event.monotonicUs;
    }
    EXPECT_GT(serial, 6U);
}

TEST_F(TimelineRecords, OfAnOwnerThatReturnsBeginWithTheManifestsThatItHas) {
    StartDaemon();
    auto owner = Owner();
    const pid_t pid = StartAndWait(*owner, "clock");
    owner->Close();
    ASSERT_NE(daemon_->WaitForLine("is gone"), "");
    OwnerClient again("group");
    ASSERT_EQ(again.Error(), 0);
    again.Start({"clock"});
    EXPECT_EQ(static_cast<pid_t>(again.WaitReport("clock").pid), pid);
    StopDaemon();
    EXPECT_EQ(Summaries("group/before").back(), "left ");
    const std::vector<std::string> lines = Summaries("group/boot");
    ASSERT_GE(lines.size(), 7U);
    EXPECT_THAT(std::vector<std::string>(lines.begin(), lines.begin() + 7),
                ElementsAre("came group", "manifest brief 00", "manifest cam 11 clock missing", "manifest clock 00",
                            "manifest missing 00", "asked clock 1 0", "running clock"));
}

TEST_F(TimelineRecords, LieWhereNobodyElseCanWrite) {
    StartDaemon();
    const auto owner = Owner();
    for (const char* path : {"/timeline", "/timeline/group"}) {
        struct stat info {};
        ASSERT_EQ(stat((RunDir() + path).c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777U, 0755U);
    }
    struct stat info {};
    ASSERT_EQ(stat((RunDir() + "/timeline/group/boot").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0640U);
}

TEST_F(TimelineRecords, AreNotKeptInAFolderOfSomebodyElse) {
    mkdir(RunDir().c_str(), 0755);
    mkdir((RunDir() + "/timeline").c_str(), 0777);
    chmod((RunDir() + "/timeline").c_str(), 0777);
    daemon_ =
        std::make_unique<ChildProcess>(std::vector<std::string>{PROCMGRD_PATH, "--run-dir", RunDir()}, environment_);
    EXPECT_EQ(daemon_->WaitForExit(), 1);
    EXPECT_THAT(daemon_->Output(), testing::HasSubstr("can't use the folder " + RunDir() + "/timeline: "));
    daemon_.reset();
}

}  // namespace
}  // namespace ProcmgrdTest
