// What the daemon writes down about starts: the files of a session and the records of several owners.
#include "daemons/procmgrd/timelines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace Procmgrd {
namespace {

using ProcMgr::Timeline::EventKind;
using ProcMgr::Timeline::EventOf;
using testing::HasSubstr;
using testing::StartsWith;
using testing::UnorderedElementsAre;

constexpr const char* kHeader = "head\n";

std::string TextOf(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

class TimelineFiles : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "procmgrd-timeline.XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
        ASSERT_EQ(setenv("PROCMGR_LOG_FILE", (folder_ + ".log").c_str(), 1), 0);
    }

    void TearDown() override {
        fs::remove_all(folder_);
        fs::remove(folder_ + ".log");
    }

    TimelineFile File(size_t bootBytes = 1000, size_t recentBytes = 1000) const {
        return TimelineFile(folder_, kHeader, getgid(), {bootBytes, recentBytes, std::chrono::milliseconds(60000)});
    }

    void Write(TimelineFile& file, const std::string& lines) {
        std::string error;
        EXPECT_TRUE(file.Write(lines, error)) << error;
    }

    void Begin(TimelineFile& file) {
        std::string error;
        ASSERT_TRUE(file.Begin(error)) << error;
    }

    std::string Text(const std::string& name) const { return TextOf(folder_ + "/" + name); }

    std::vector<std::string> Names() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(folder_)) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    std::string folder_;
};

TEST_F(TimelineFiles, HoldTheBootFirst) {
    TimelineFile file = File();
    Begin(file);
    Write(file, "one\ntwo\n");
    Write(file, "three\n");
    EXPECT_EQ(Text("boot"), "head\none\ntwo\nthree\n");
    EXPECT_THAT(Names(), UnorderedElementsAre("boot"));
}

TEST_F(TimelineFiles, MayBeReadByTheGroupAndByNobodyElse) {
    umask(0);
    TimelineFile file = File();
    Begin(file);
    struct stat info {};
    ASSERT_EQ(stat((folder_ + "/boot").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0640U);
    EXPECT_EQ(info.st_gid, getgid());
}

TEST_F(TimelineFiles, KeepTheBootAndTheLastEventsHoweverManyCome) {
    TimelineFile file = File(15, 15);
    Begin(file);
    for (int i = 1; i <= 9; ++i) {
        Write(file, "line" + std::to_string(i) + "\n");
    }
    // Each holds the header and one line.
    EXPECT_EQ(Text("boot"), "head\nline1\n");
    EXPECT_EQ(Text("recent.1"), "head\nline8\n");
    EXPECT_EQ(Text("recent"), "head\nline9\n");
}

TEST_F(TimelineFiles, CutAtTheEndsOfLinesWhenMuchIsWrittenAtOnce) {
    TimelineFile file = File(17, 14);
    Begin(file);
    Write(file, "aa\nbb\ncc\ndd\nee\nff\ngg\nhh\nii\n");
    EXPECT_EQ(Text("boot"), "head\naa\nbb\ncc\ndd\n");
    EXPECT_EQ(Text("recent.1"), "head\nee\nff\ngg\n");
    EXPECT_EQ(Text("recent"), "head\nhh\nii\n");
}

TEST_F(TimelineFiles, LeaveOutALineThatFitsNowhere) {
    TimelineFile file = File(14, 14);
    Begin(file);
    Write(file, "much-too-long-for-it\nend\n");
    EXPECT_EQ(Text("boot"), "head\n");
    EXPECT_EQ(Text("recent"), "head\nend\n");
    EXPECT_THAT(Names(), UnorderedElementsAre("boot", "recent"));
}

TEST_F(TimelineFiles, KeepTheBootOfTheSessionBefore) {
    for (const char* session : {"first\n", "second\n", "third\n"}) {
        TimelineFile file = File(12, 12);
        Begin(file);
        Write(file, session);
        Write(file, "later\n");
        Write(file, "latest\n");
    }
    TimelineFile file = File();
    Begin(file);
    EXPECT_THAT(Names(), UnorderedElementsAre("boot", "before"));
    EXPECT_EQ(Text("boot"), "head\n");
    EXPECT_EQ(Text("before"), "head\nthird\n");
}

TEST_F(TimelineFiles, AreNotWrittenThroughALink) {
    fs::create_symlink(folder_ + ".log", folder_ + "/boot");
    TimelineFile file = File();
    Begin(file);
    Write(file, "one\n");
    EXPECT_FALSE(fs::is_symlink(folder_ + "/boot"));
    EXPECT_FALSE(fs::exists(folder_ + ".log"));
}

TEST_F(TimelineFiles, EndWhenTheyCantBeMade) {
    fs::remove_all(folder_);
    TimelineFile file = File();
    std::string error;
    EXPECT_FALSE(file.Begin(error));
    EXPECT_EQ(error, "can't make " + folder_ + "/boot: No such file or directory");
    EXPECT_FALSE(file.IsOpen());
}

TEST_F(TimelineFiles, EndWithTheFirstWriteThatFails) {
    TimelineFile file = File();
    Begin(file);
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{10, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    std::string error;
    EXPECT_FALSE(file.Write("too much\n", error));
    EXPECT_EQ(error, "can't write to a file in " + folder_ + ": No space left on device");
    EXPECT_FALSE(file.Write("x\n", error));
    EXPECT_EQ(Text("boot"), "head\ntoo m");
}

TEST_F(TimelineFiles, EndWithTheFirstWriteThatIsSlow) {
    TimelineFile file(folder_, kHeader, getgid(), {1000, 1000, std::chrono::milliseconds(-1)});
    std::string error;
    EXPECT_FALSE(file.Begin(error));
    EXPECT_THAT(error, StartsWith("writing to a file in " + folder_ + " took "));
    EXPECT_FALSE(file.IsOpen());
}

class TimelinesOfOwners : public TimelineFiles {
protected:
    TimelineSettings Settings() {
        TimelineSettings settings;
        settings.folder = folder_;
        settings.bootId = "boot-id";
        settings.now = [this] { return TimelineStamp{++time_, 1000 + time_}; };
        return settings;
    }

private:
    int64_t time_ = 0;
};

TEST_F(TimelinesOfOwners, HoldWhatWasNotedInItsOrder) {
    Timelines timelines(Settings());
    timelines.Come({"group", 12, 34, getgid()});
    timelines.Note("group", EventOf(EventKind::FORKED, "cam", 56));
    EXPECT_EQ(Text("group/boot"), "procmgr-timeline 1 boot-id\n") << "written when the turn ends";
    timelines.Flush();
    timelines.Note("group", EventOf(EventKind::LEFT));
    timelines.Forget("group");
    timelines.Note("group", EventOf(EventKind::LEFT));
    timelines.Flush();
    EXPECT_EQ(Text("group/boot"),
              "procmgr-timeline 1 boot-id\n"
              "1 1 1001 came owner=group pid=12 uid=34\n"
              "2 2 1002 forked app=cam pid=56\n"
              "3 3 1003 left\n");
}

TEST_F(TimelinesOfOwners, AreApartForEachAndBeginAnewWithEachSession) {
    Timelines timelines(Settings());
    timelines.Come({"one", 1, 0, getgid()});
    timelines.Come({"../two", 2, 0, getgid()});
    timelines.Note("nobody", EventOf(EventKind::LEFT));
    timelines.Flush();
    timelines.Come({"one", 3, 0, getgid()});
    timelines.Flush();
    EXPECT_THAT(Names(), UnorderedElementsAre("one", "%2E.%2Ftwo"));
    EXPECT_EQ(Text("one/before"), "procmgr-timeline 1 boot-id\n1 1 1001 came owner=one pid=1 uid=0\n");
    EXPECT_EQ(Text("one/boot"), "procmgr-timeline 1 boot-id\n1 3 1003 came owner=one pid=3 uid=0\n");
    EXPECT_EQ(Text("%2E.%2Ftwo/boot"), "procmgr-timeline 1 boot-id\n1 2 1002 came owner=../two pid=2 uid=0\n");
}

TEST_F(TimelinesOfOwners, AreWrittenBeforeTheTurnEndsWhenTheyAreMany) {
    Timelines timelines(Settings());
    timelines.Come({"group", 1, 0, getgid()});
    for (int i = 0; i < 4000; ++i) {
        timelines.Note("group", EventOf(EventKind::ENDING, "application"));
    }
    EXPECT_GT(Text("group/boot").size(), 65536U) << "written before the turn ends";
}

TEST_F(TimelinesOfOwners, AreRefusedToOneTooMany) {
    TimelineSettings settings = Settings();
    settings.owners = 2;
    Timelines timelines(std::move(settings));
    for (const char* owner : {"one", "two", "three", "one"}) {
        timelines.Come({owner, 1, 0, getgid()});
    }
    timelines.Note("three", EventOf(EventKind::LEFT));
    timelines.Flush();
    EXPECT_THAT(Names(), UnorderedElementsAre("one", "two"));
    EXPECT_THAT(TextOf(folder_ + ".log"),
                HasSubstr("owner three: no timeline is recorded until it connects anew: there are the records of 2 "
                          "owners already; remove some from " +
                          folder_));
    EXPECT_THAT(Text("one/boot"), HasSubstr(" came owner=one "));
}

TEST_F(TimelinesOfOwners, SayOnceThatTheyEnd) {
    Timelines timelines(Settings());
    timelines.Come({"group", 1, 0, getgid()});
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{4000, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    for (int turn = 0; turn < 3; ++turn) {
        timelines.Note("group", EventOf(EventKind::ENDING, std::string(5000, 'a')));
        timelines.Flush();
    }
    const std::string log = TextOf(folder_ + ".log");
    const std::string line = "owner group: no timeline is recorded until it connects anew: can't write to a file in " +
                             folder_ + "/group: No space left on device";
    EXPECT_THAT(log, HasSubstr(line));
    EXPECT_EQ(log.find("owner group", log.find(line) + 1), std::string::npos);
}

TEST(TimelineClocks, TellMicroseconds) {
    const TimelineStamp first = ReadTimelineClocks();
    const TimelineStamp second = ReadTimelineClocks();
    EXPECT_LE(first.monotonicUs, second.monotonicUs);
    timespec now{};
    ASSERT_EQ(clock_gettime(CLOCK_MONOTONIC, &now), 0);
    EXPECT_NEAR(static_cast<double>(second.monotonicUs), static_cast<double>(now.tv_sec) * 1e6, 60e6);
    EXPECT_GT(second.wallUs, 1500000000000000);
}

}  // namespace
}  // namespace Procmgrd
