#include "daemons/procmgrd/launch/output_log.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "tests/daemons/launch/launch_fixture.h"

namespace {

using ProcMgr::FileSafeName;
using ProcMgr::OutputLog;
using ProcMgr::OutputLogOptions;
using ProcMgr::OutputPipe;
using std::chrono::milliseconds;

TEST(FileName, KeepsOrdinaryNames) {
    EXPECT_EQ(FileSafeName("cam_2.front-left@A"), "cam_2.front-left@A");
}

TEST(FileName, NeverLeavesTheFolder) {
    EXPECT_EQ(FileSafeName("../a b"), "%2E.%2Fa%20b");
    EXPECT_EQ(FileSafeName(std::string("a\0b", 3)), "a%00b");
    EXPECT_EQ(FileSafeName("%2F"), "%252F");
    EXPECT_EQ(FileSafeName("\xC3\xA4"), "%C3%A4");
}

TEST(FileName, OfVeryLongNamesIsShortAndStillDifferent) {
    const std::string name(300, 'a');
    EXPECT_EQ(FileSafeName(name).size(), 200U);
    EXPECT_NE(FileSafeName(name), FileSafeName(name + "b"));
}

class Log : public testing::Test {
protected:
    Log() {
        options_.directory = folder_.Path();
        options_.now = [this] { return now_; };
    }

    LaunchTest::TemporaryFolder folder_;
    std::chrono::steady_clock::time_point now_{};
    OutputLogOptions options_;
};

TEST_F(Log, WritesLinesToTheFileOfTheApplication) {
    OutputLog log("cam@front", options_);
    log.Write("one\ntwo\n");
    log.Write("three\n");
    EXPECT_EQ(log.Path(), folder_.File("cam@front.log"));
    EXPECT_EQ(folder_.Read("cam@front.log"), "one\ntwo\nthree\n");
}

TEST_F(Log, GoesOnWhereAnEarlierDaemonEnded) {
    OutputLog("cam", options_).Write("one\n");
    OutputLog("cam", options_).Write("two\n");
    EXPECT_EQ(folder_.Read("cam.log"), "one\ntwo\n");
}

TEST_F(Log, RotatesBeforeAFileGrowsBeyondItsSizeAndKeepsLinesWhole) {
    options_.maxFileBytes = 10;
    options_.rotatedFiles = 2;
    OutputLog log("cam", options_);
    log.Write("aaaa\nbbbb\ncccc\ndddd\neeee\nffff\ngggg\n");
    EXPECT_EQ(folder_.Read("cam.log"), "gggg\n");
    EXPECT_EQ(folder_.Read("cam.log.1"), "eeee\nffff\n");
    EXPECT_EQ(folder_.Read("cam.log.2"), "cccc\ndddd\n");
    EXPECT_EQ(folder_.Read("cam.log.3"), "");
    EXPECT_EQ(log.DroppedLines(), 0U);
}

TEST_F(Log, GivesALineThatIsLongerThanAFileAFileOfItsOwn) {
    options_.maxFileBytes = 4;
    OutputLog log("cam", options_);
    log.Write("a\nlonger\nb\n");
    EXPECT_EQ(folder_.Read("cam.log"), "b\n");
    EXPECT_EQ(folder_.Read("cam.log.1"), "longer\n");
    EXPECT_EQ(folder_.Read("cam.log.2"), "a\n");
}

TEST_F(Log, KeepsNoOldFilesWhenToldSo) {
    options_.maxFileBytes = 4;
    options_.rotatedFiles = 0;
    OutputLog log("cam", options_);
    log.Write("one\ntwo\n");
    EXPECT_EQ(folder_.Read("cam.log"), "two\n");
    EXPECT_FALSE(std::filesystem::exists(folder_.File("cam.log.1")));
}

TEST_F(Log, CountsTheLinesOfAFullDiskAndTellsTheNumberLater) {
    options_.directory = folder_.File("later");
    OutputLog log("cam", options_);
    log.Write("one\ntwo\n");
    EXPECT_EQ(log.DroppedLines(), 2U);
    std::filesystem::create_directory(options_.directory);
    log.Write("three\n");
    log.Write("four\n");
    EXPECT_EQ(folder_.Read("later/cam.log"), "[procmgrd: 2 lines dropped]\nthree\nfour\n");
    EXPECT_EQ(log.DroppedLines(), 2U);
}

TEST_F(Log, DropsLinesForAWhileAfterASlowWrite) {
    int calls = 0;
    options_.now = [this, &calls] {
        now_ += milliseconds(++calls == 2 ? 500 : 0);
        return now_;
    };
    OutputLog log("cam", options_);
    log.Write("slow\n");
    log.Write("dropped\n");
    now_ += options_.slowPause;
    log.Write("again\n");
    EXPECT_EQ(folder_.Read("cam.log"), "slow\n[procmgrd: 1 lines dropped]\nagain\n");
}

TEST_F(Log, DoesNotWriteThroughALinkOrIntoAPipe) {
    std::filesystem::create_symlink(folder_.File("target"), folder_.File("link.log"));
    ASSERT_EQ(::mkfifo(folder_.File("pipe.log").c_str(), 0600), 0);
    OutputLog link("link", options_);
    link.Write("x\n");
    OutputLog pipe("pipe", options_);
    pipe.Write("x\n");
    EXPECT_EQ(link.DroppedLines() + pipe.DroppedLines(), 2U);
    EXPECT_FALSE(std::filesystem::exists(folder_.File("target")));
}

TEST_F(Log, GoesToTheDaemonsOutputBehindTheNameWithoutAFolder) {
    LaunchTest::Output daemon;
    options_.directory.clear();
    options_.daemonFd = daemon.WriteFd();
    OutputLog log("cam", options_);
    EXPECT_EQ(log.Path(), "");
    log.Write("one\n\ntwo\n");
    daemon.CloseWriteEnd();
    EXPECT_EQ(daemon.Rest(), "cam: one\ncam: \ncam: two\n");
}

TEST_F(Log, NeverWaitsForTheDaemonsOutput) {
    LaunchTest::Output daemon;
    options_.directory.clear();
    options_.daemonFd = daemon.WriteFd();
    OutputLog log("cam", options_);
    const std::string line = std::string(999, 'x') + "\n";
    uint64_t lines = 0;
    while (log.DroppedLines() == 0) {
        log.Write(line);
        ++lines;
    }
    log.Write(line + line);
    EXPECT_EQ(log.DroppedLines(), 3U);
    for (uint64_t i = 1; i < lines; ++i) {
        EXPECT_EQ(daemon.Line(), "cam: " + std::string(999, 'x'));
    }
    log.Write("again\n");
    EXPECT_EQ(daemon.Line(), "cam: [procmgrd: 3 lines dropped]");
    EXPECT_EQ(daemon.Line(), "cam: again");
}

class Pipe : public Log {
protected:
    std::unique_ptr<OutputPipe> Open() {
        int error = 0;
        auto pipe = OutputPipe::Create(std::make_shared<OutputLog>("cam", options_), error);
        EXPECT_NE(pipe, nullptr) << error;
        return pipe;
    }

    static void Send(const OutputPipe& pipe, const std::string& text) {
        EXPECT_EQ(::write(pipe.WriteFd(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
};

TEST_F(Pipe, PassesWholeLinesAndKeepsTheBeginOfTheNext) {
    const auto pipe = Open();
    Send(*pipe, "one\ntw");
    EXPECT_EQ(pipe->Drain(), OutputPipe::State::OPEN);
    EXPECT_EQ(folder_.Read("cam.log"), "one\n");
    Send(*pipe, "o\n");
    EXPECT_EQ(pipe->Drain(), OutputPipe::State::OPEN);
    EXPECT_EQ(folder_.Read("cam.log"), "one\ntwo\n");
}

TEST_F(Pipe, PassesALastLineWithoutANewline) {
    const auto pipe = Open();
    Send(*pipe, "one\nend");
    pipe->CloseWriteEnd();
    EXPECT_EQ(pipe->Drain(), OutputPipe::State::CLOSED);
    EXPECT_EQ(folder_.Read("cam.log"), "one\nend\n");
}

TEST_F(Pipe, CutsLinesThatAreTooLongAndAddsNoEmptyOnes) {
    options_.maxLineBytes = 4;
    const auto pipe = Open();
    Send(*pipe, "abcdefghij");
    Send(*pipe, "kl\nmnop\n\nq\n");
    pipe->CloseWriteEnd();
    EXPECT_EQ(pipe->Drain(), OutputPipe::State::CLOSED);
    EXPECT_EQ(folder_.Read("cam.log"), "abcd\nefgh\nijkl\nmnop\n\nq\n");
}

TEST_F(Pipe, ReadsALimitedShareInOneTurn) {
    const auto pipe = Open();
    constexpr int kSize = 1024 * 1024;
    if (::fcntl(pipe->WriteFd(), F_SETPIPE_SZ, kSize) < kSize) {
        GTEST_SKIP() << "this user may not have a pipe of a mebibyte";
    }
    Send(*pipe, std::string(OutputPipe::kShareBytes, '\n'));
    Send(*pipe, "end\n");
    EXPECT_EQ(pipe->Drain(), OutputPipe::State::MORE);
    EXPECT_EQ(pipe->Drain(), OutputPipe::State::OPEN);
}

class RealOutput : public LaunchTest::LaunchFixture {};

TEST_F(RealOutput, OfAnApplicationThatWritesMuchMoreThanAPipeHoldsIsDrained) {
    LaunchTest::TemporaryFolder folder;
    OutputLogOptions options;
    options.directory = folder.Path();
    options.maxFileBytes = 1000000;
    auto log = std::make_shared<OutputLog>("cam", options);
    int error = 0;
    const auto pipe = OutputPipe::Create(log, error);
    ASSERT_NE(pipe, nullptr);
    ProcMgr::LaunchRequest request = LaunchTest::RequestOfThisUser();
    request.outputFd = pipe->WriteFd();
    ProcMgr::LaunchSpec spec;
    std::string refusal;
    const ApplicationManifest manifest(LaunchTest::Probe({"flood", "15000"}));
    ASSERT_TRUE(BuildLaunchSpec(manifest, request, spec, refusal));
    const ProcMgr::LaunchResult result = Start(spec);
    ASSERT_TRUE(result.Ok());
    pipe->CloseWriteEnd();
    auto state = OutputPipe::State::OPEN;
    while (state != OutputPipe::State::CLOSED) {
        pollfd waiting{pipe->ReadFd(), POLLIN, 0};
        ASSERT_EQ(::poll(&waiting, 1, 60000), 1);
        state = pipe->Drain();
    }
    EXPECT_EQ(Reap(result.process), 0);
    EXPECT_EQ(log->DroppedLines(), 0U);
    EXPECT_EQ(folder.Read("cam.log").size() + folder.Read("cam.log.1").size(), size_t{15000} * 100);
    EXPECT_EQ(folder.Read("cam.log.1").size(), size_t{1000} * 1000);
}

}  // namespace
