// Reading records, and the command.
#include "tools/ssctl/timeline/timeline_command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/tools/timeline_kit.h"
#include "tools/ssctl/timeline/record_files.h"

namespace fs = std::filesystem;
using namespace Ssctl;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

class TimelineCommand : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "ssctl-timeline.XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
        line_.command = "timeline";
        line_.runDir = folder_;
    }

    void TearDown() override { fs::remove_all(folder_); }

    void Write(const std::string& path, const std::string& text) const {
        fs::create_directories(fs::path(folder_ + "/" + path).parent_path());
        std::ofstream(folder_ + "/" + path, std::ios::binary) << text;
    }

    std::string Read(const std::string& path) const {
        std::stringstream text;
        text << std::ifstream(folder_ + "/" + path, std::ios::binary).rdbuf();
        return text.str();
    }

    /// What goes wrong, as it is told, without the folder.
    std::string Complaint() const {
        std::string text = RenderComplaint(RunTimeline(line_));
        for (size_t at = text.find(folder_); at != std::string::npos; at = text.find(folder_)) {
            text.replace(at, folder_.size(), "DIR");
        }
        return text;
    }

    std::string folder_;
    CommandLine line_;
};

constexpr const char* kNoRecordAdvice =
    "       procmgrd keeps it while an owner is connected: is this the run directory of one that runs or ran? Choose"
    " another with --run-dir or --record.\n";

}  // namespace

TEST_F(TimelineCommand, ReadsTheRecordOfTheOnlyOwner) {
    Write("timeline/robot_owner/boot", RecordText(kSmallBoot));
    const Outcome outcome = RunTimeline(line_);
    EXPECT_EQ(outcome.fault, Fault::NONE) << outcome.problem;
    EXPECT_THAT(outcome.sentence, StartsWith("Boot of robot_owner at "));
    EXPECT_EQ(outcome.table.rows.size(), 4U);
    EXPECT_EQ(TimelinePath(line_), folder_ + "/timeline");
}

TEST_F(TimelineCommand, ReadsTheNamedOneOfSeveralOwners) {
    Write("timeline/one/boot", RecordText(kSmallBoot));
    Write("timeline/t%20wo/boot", RecordText(kSmallBoot));
    Write("timeline/nothing/notes", "");
    EXPECT_EQ(Complaint(),
              "ssctl: DIR/timeline has the records of several owners.\n"
              "       Name one with --owner: one, t wo.\n");
    EXPECT_EQ(RunTimeline(line_).fault, Fault::USAGE);
    line_.owner = "t wo";
    EXPECT_EQ(Complaint(), "");
    line_.owner = "three";
    EXPECT_EQ(Complaint(),
              "ssctl: there is no record of the owner 'three' in DIR/timeline.\n"
              "       There are records of one, t wo.\n");
    EXPECT_EQ(RunTimeline(line_).fault, Fault::NO_SERVICE);
}

TEST_F(TimelineCommand, ReadsAFileAFolderOfAnOwnerAndAFolderOfFolders) {
    Write("copy/robot/boot", RecordText(kSmallBoot));
    for (const char* path : {"/copy/robot/boot", "/copy/robot", "/copy"}) {
        line_.record = folder_ + path;
        EXPECT_EQ(Complaint(), "") << path;
        EXPECT_EQ(TimelinePath(line_), line_.record);
    }
}

TEST_F(TimelineCommand, JoinsTheFilesOfASessionInTheirOrder) {
    const std::vector<std::string> boot(kSmallBoot.begin(), kSmallBoot.begin() + 12);
    const std::vector<std::string> middle(kSmallBoot.begin() + 12, kSmallBoot.begin() + 18);
    const std::vector<std::string> end(kSmallBoot.begin() + 17, kSmallBoot.end());
    Write("timeline/g/boot", RecordText(boot));
    Write("timeline/g/recent.1", RecordText(middle, 13));
    Write("timeline/g/recent", RecordText(end, 18));
    const ReadRecordResult read = ReadTimelineRecord(TimelinePath(line_), "");
    EXPECT_EQ(read.record.missing, 0U);
    EXPECT_EQ(read.record.events.size(), kSmallBoot.size()) << "one event stands in two files and counts once";
    fs::remove(folder_ + "/timeline/g/recent.1");
    EXPECT_EQ(ReadTimelineRecord(TimelinePath(line_), "").record.missing, 5U);
    EXPECT_THAT(RenderText(RunTimeline(line_), false), HasSubstr("The record lacks 5 events"));
}

TEST_F(TimelineCommand, LeavesOutATornLastLine) {
    Write("record", RecordText(kSmallBoot) + "999 1000");
    line_.record = folder_ + "/record";
    const Outcome outcome = RunTimeline(line_);
    EXPECT_EQ(outcome.fault, Fault::NONE);
    EXPECT_EQ(outcome.members["timeline"]["torn"], true);
}

TEST_F(TimelineCommand, SaysWhereARecordIsDamaged) {
    std::string text = RecordText(kSmallBoot);
    text.replace(text.find("loaded path"), 11, "loaded pat\n");
    Write("timeline/g/boot", text);
    EXPECT_EQ(Complaint(),
              "ssctl: DIR/timeline/g/boot:3: an event 'loaded' lacks a good 'path='.\n"
              "       It is no record of procmgrd, of another version, or damaged: copy it once more.\n");
    EXPECT_EQ(RunTimeline(line_).fault, Fault::BAD_ANSWER);
}

TEST_F(TimelineCommand, SaysWhenThereIsNoRecord) {
    EXPECT_EQ(Complaint(),
              std::string("ssctl: can't read DIR/timeline: No such file or directory.\n") + kNoRecordAdvice);
    fs::create_directories(folder_ + "/timeline/empty");
    EXPECT_EQ(Complaint(), std::string("ssctl: there is no record of an owner in DIR/timeline.\n") + kNoRecordAdvice);
    EXPECT_EQ(RunTimeline(line_).fault, Fault::NO_SERVICE);
}

TEST_F(TimelineCommand, ReadsNoDeviceAndNoPipe) {
    line_.record = "/dev/zero";
    EXPECT_EQ(Complaint(), "ssctl: can't read /dev/zero: Invalid argument.\n       Is it a file of a record?\n");
    line_.record = folder_ + "/pipe";
    ASSERT_EQ(mkfifo(line_.record.c_str(), 0600), 0);
    EXPECT_EQ(Complaint(), "ssctl: can't read DIR/pipe: Invalid argument.\n       Is it a file of a record?\n");
}

TEST_F(TimelineCommand, SaysWhenNothingWasStarted) {
    Write("timeline/g/boot", RecordText({"0 came owner=g pid=1 uid=0"}));
    EXPECT_EQ(Complaint(),
              "ssctl: the owner has not asked for any start yet.\n"
              "       See which starts there were with '--since last', or boot first.\n");
    EXPECT_EQ(RunTimeline(line_).fault, Fault::FAILED);
}

TEST_F(TimelineCommand, ShowsTheLastStart) {
    Write("timeline/g/boot", RecordText(kSmallBoot));
    line_.since = "last";
    EXPECT_THAT(RunTimeline(line_).sentence, StartsWith("Last start of robot_owner at "));
}

TEST_F(TimelineCommand, WritesThePictureAndTheTrace) {
    Write("timeline/g/boot", RecordText(kSmallBoot));
    line_.svgFile = folder_ + "/boot.svg";
    line_.traceFile = folder_ + "/boot.json";
    EXPECT_EQ(Complaint(), "");
    EXPECT_THAT(Read("boot.svg"), StartsWith("<svg "));
    EXPECT_TRUE(nlohmann::json::accept(Read("boot.json")));
}

TEST_F(TimelineCommand, ShowsTheTableAlsoWhenAFileCantBeWritten) {
    Write("timeline/g/boot", RecordText(kSmallBoot));
    line_.svgFile = folder_ + "/nowhere/boot.svg";
    EXPECT_EQ(Complaint(),
              "ssctl: can't write DIR/nowhere/boot.svg: No such file or directory.\n       Choose another file.\n");
    EXPECT_EQ(RunTimeline(line_).table.rows.size(), 4U);
    EXPECT_EQ(RunTimeline(line_).fault, Fault::FAILED);
    line_.svgFile = "/dev/full";
    EXPECT_EQ(Complaint(), "ssctl: can't write /dev/full: No space left on device.\n       Choose another file.\n");
}
