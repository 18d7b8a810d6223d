#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <set>
#include <string>

#include "platform/include/platform_log.h"
#include "platform/posix/log/log_line.h"
#include "platform/posix/log/log_settings.h"
#include "tests/platform/log_test_kit.h"

namespace ProcMgr::Posix {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

using Variables = std::map<std::string, std::string>;

LogSettings Settings(const Variables& variables) {
    return ReadLogSettings([&variables](const char* name) -> const char* {
        const auto found = variables.find(name);
        return found == variables.end() ? nullptr : found->second.c_str();
    });
}

// The levels that are written, of 0, 1, 2, 3 and 16.
std::vector<int32_t> EnabledLevels() {
    std::vector<int32_t> enabled;
    for (const int32_t level : {0, 1, 2, 3, 16}) {
        if (CheckLogLevel(27, level) == 1) {
            enabled.push_back(level);
        }
    }
    return enabled;
}

TEST(LogSettings, HaveDefaultsForAnEmptyEnvironment) {
    for (const Variables& variables :
         {Variables{}, Variables{{"PROCMGR_LOG_LEVEL", ""}, {"PROCMGR_LOG_FILE", ""}, {"PROCMGR_LOG_FILES", ""}}}) {
        const LogSettings settings = Settings(variables);
        EXPECT_EQ(settings.threshold, 1);
        EXPECT_EQ(settings.file, "");
        EXPECT_EQ(settings.fileSize, 1048576U);
        EXPECT_EQ(settings.fileCount, 5U);
        EXPECT_THAT(settings.warnings, IsEmpty());
    }
}

TEST(LogSettings, AreReadFromTheEnvironment) {
    const LogSettings settings = Settings({{"PROCMGR_LOG_LEVEL", "error"},
                                           {"PROCMGR_LOG_FILE", "/var/log/x"},
                                           {"PROCMGR_LOG_FILE_SIZE", "4096"},
                                           {"PROCMGR_LOG_FILES", "2"}});
    EXPECT_EQ(settings.threshold, 3);
    EXPECT_EQ(settings.file, "/var/log/x");
    EXPECT_EQ(settings.fileSize, 4096U);
    EXPECT_EQ(settings.fileCount, 2U);
    EXPECT_THAT(settings.warnings, IsEmpty());
}

TEST(LogSettings, TakeTheDefaultForABadValueAndWarnOnce) {
    const LogSettings settings =
        Settings({{"PROCMGR_LOG_LEVEL", "loud"}, {"PROCMGR_LOG_FILE_SIZE", "1M"}, {"PROCMGR_LOG_FILES", "0"}});
    EXPECT_EQ(settings.threshold, 1);
    EXPECT_EQ(settings.fileSize, 1048576U);
    EXPECT_EQ(settings.fileCount, 5U);
    EXPECT_THAT(settings.warnings,
                ElementsAre("PROCMGR_LOG_LEVEL is 'loud'; use debug, info, warn, error, event or off. Taking info.",
                            "PROCMGR_LOG_FILE_SIZE is '1M'; use a number from 1 to 1099511627776. Taking 1048576.",
                            "PROCMGR_LOG_FILES is '0'; use a number from 1 to 1000. Taking 5."));
}

TEST(LogSettings, TakeNoNumberWithASignABlankOrTooManyDigits) {
    for (const char* value : {"-1", "+1", " 1", "1 ", "99999999999999999999", "1001", "x"}) {
        EXPECT_EQ(Settings({{"PROCMGR_LOG_FILES", value}}).fileCount, 5U) << value;
    }
}

TEST(LogLine, WritesControlCharactersOut) {
    EXPECT_EQ(EscapeControls("plain text, \xc3\xa4 and \\n"), "plain text, \xc3\xa4 and \\n");
    EXPECT_EQ(EscapeControls("a\nb\r\tc\x1b[2Jd\x7f"), "a\\nb\\r\\tc\\x1b[2Jd\\x7f");
    EXPECT_EQ(EscapeControls(std::string("\0", 1)), "\\x00");
}

TEST(LogLine, NamesTheLevels) {
    EXPECT_EQ(LevelText(0) + LevelText(1) + LevelText(2) + LevelText(3) + LevelText(16) + LevelText(7),
              "debuginfowarnerrorevent7");
}

TEST(PlatformLog, WritesTimeLevelProcessPidAndText) {
    const LogFolder folder;
    KmonRecord(27, 1, "[%s:%d]text %s", "file.cpp", 7, "x");
    const std::vector<std::string> lines = ReadLines(folder.File());
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_THAT(lines[0], testing::MatchesRegex(
                              "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3} info tester\\[" +
                              std::to_string(getpid()) + "\\] \\[file\\.cpp:7\\]text x"));
}

TEST(PlatformLog, TakesTheExecutablesNameForAProcessWithoutOne) {
    const LogFolder folder;
    unsetenv("PROC_NAME");
    KmonRecord(27, 1, "text");
    EXPECT_THAT(folder.Lines(), ElementsAre("info platform_log_test[pid] text"));
}

TEST(PlatformLog, WritesEachLevelByItsName) {
    const LogFolder folder;
    for (const int32_t level : {0, 1, 2, 3, 16}) {
        KmonRecord(27, level, "text");
    }
    EXPECT_THAT(folder.Lines(), ElementsAre("debug tester[pid] text", "info tester[pid] text", "warn tester[pid] text",
                                            "error tester[pid] text", "event tester[pid] text"));
}

TEST(PlatformLog, KeepsARecordOnOneLineSoThatNoLineCanBeForged) {
    const LogFolder folder;
    KmonRecord(27, 1, "name=%s", "x\n2000-01-01 00:00:00.000 error root[1] forged");
    EXPECT_THAT(folder.Lines(), ElementsAre("info tester[pid] name=x\\n2000-01-01 00:00:00.000 error root[1] forged"));
}

TEST(PlatformLog, KeepsTheProcessNameOnTheLineToo) {
    const LogFolder folder;
    setenv("PROC_NAME", "two\nlines %s {}", 1);
    KmonRecord(27, 1, "text");
    EXPECT_THAT(folder.Lines(), ElementsAre("info two\\nlines %s {}[pid] text"));
}

TEST(PlatformLog, TakesNothingInARecordForAFormatOfItsOwn) {
    const LogFolder folder;
    KmonRecord(27, 1, "%s", "100%n {} {0} %v");
    EXPECT_THAT(folder.Lines(), ElementsAre("info tester[pid] 100%n {} {0} %v"));
}

TEST(PlatformLog, WritesLongRecordsWhole) {
    const LogFolder folder;
    for (const size_t size : {size_t{511}, size_t{512}, size_t{513}, size_t{100000}}) {
        KmonRecord(27, 1, "%s", std::string(size, 'x').c_str());
    }
    const std::string head = "info tester[pid] ";
    EXPECT_THAT(folder.Lines(), ElementsAre(head + std::string(511, 'x'), head + std::string(512, 'x'),
                                            head + std::string(513, 'x'), head + std::string(100000, 'x')));
}

TEST(PlatformLog, LeavesErrnoAlone) {
    const LogFolder folder;
    errno = ENOENT;
    KmonRecord(27, 1, "text");
    EXPECT_EQ(errno, ENOENT);
}

TEST(CheckLogLevel, EnablesInformationAndAboveByDefault) {
    const LogFolder folder;
    EXPECT_THAT(EnabledLevels(), ElementsAre(1, 2, 3, 16));
}

TEST(CheckLogLevel, KeepsErrnoAlsoWhenItOpensTheLog) {
    errno = EXDEV;
    EXPECT_EQ(CheckLogLevel(27, 1), 1);
    EXPECT_EQ(errno, EXDEV);
}

class CheckLogLevelOf : public testing::TestWithParam<std::pair<const char*, std::vector<int32_t>>> {};

TEST_P(CheckLogLevelOf, EnablesTheThresholdAndAboveAndEventsAlwaysButWhenOff) {
    const LogFolder folder;
    setenv("PROCMGR_LOG_LEVEL", GetParam().first, 1);
    EXPECT_EQ(EnabledLevels(), GetParam().second);
    EXPECT_THAT(folder.Lines(), IsEmpty());
}

using Levels = std::vector<int32_t>;
INSTANTIATE_TEST_SUITE_P(Thresholds, CheckLogLevelOf,
                         testing::Values(std::pair("debug", Levels{0, 1, 2, 3, 16}),
                                         std::pair("info", Levels{1, 2, 3, 16}), std::pair("warn", Levels{2, 3, 16}),
                                         std::pair("error", Levels{3, 16}), std::pair("event", Levels{16}),
                                         std::pair("off", Levels{})));

TEST(PlatformLog, WarnsOnceOfABadSettingAndGoesOnWithTheDefault) {
    const LogFolder folder;
    setenv("PROCMGR_LOG_LEVEL", "loud", 1);
    EXPECT_THAT(EnabledLevels(), ElementsAre(1, 2, 3, 16));
    KmonRecord(27, 1, "text");
    EXPECT_THAT(folder.Lines(),
                ElementsAre("warn tester[pid] PROCMGR_LOG_LEVEL is 'loud'; use debug, info, warn, error, event or "
                            "off. Taking info.",
                            "info tester[pid] text"));
}

TEST(PlatformLog, SaysWhyItsFileCannotBeUsed) {
    const LogFolder folder;
    setenv("PROCMGR_LOG_FILE", "/proc/self/not/there", 1);
    testing::internal::CaptureStderr();
    KmonRecord(27, 1, "text");
    const std::string written = testing::internal::GetCapturedStderr();
    EXPECT_THAT(written, HasSubstr("] PROCMGR_LOG_FILE can't be used: "));
    EXPECT_THAT(written, HasSubstr(". Writing to standard error.\n"));
    EXPECT_THAT(written, HasSubstr("] text\n"));
}

TEST(PlatformLog, WritesToStandardErrorWithoutColoursWhenThatIsNoTerminal) {
    unsetenv("PROCMGR_LOG_FILE");
    setenv("TERM", "xterm", 1);
    setenv("PROC_NAME", "tester", 1);
    testing::internal::CaptureStderr();
    KmonRecord(27, 3, "text");
    const std::string written = testing::internal::GetCapturedStderr();
    EXPECT_THAT(written, testing::EndsWith("] text\n"));
    EXPECT_THAT(written, testing::Not(HasSubstr("\033")));
}

// What a terminal of that name gets to see of one error record.
std::string OnTerminal(const char* terminal) {
    unsetenv("PROCMGR_LOG_FILE");
    setenv("PROC_NAME", "tester", 1);
    setenv("TERM", terminal, 1);
    int master = -1;
    int slave = -1;
    EXPECT_EQ(openpty(&master, &slave, nullptr, nullptr, nullptr), 0);
    const int standardError = dup(STDERR_FILENO);
    dup2(slave, STDERR_FILENO);
    KmonRecord(27, 3, "text");
    dup2(standardError, STDERR_FILENO);
    std::string seen;
    std::array<char, 4096> bytes{};
    while (seen.find('\n') == std::string::npos) {
        const ssize_t size = read(master, bytes.data(), bytes.size());
        if (size <= 0) {
            break;
        }
        seen.append(bytes.data(), static_cast<size_t>(size));
    }
    for (const int fd : {master, slave, standardError}) {
        close(fd);
    }
    return seen;
}

TEST(PlatformLog, ColoursTheLevelOnATerminal) {
    EXPECT_THAT(OnTerminal("xterm"), HasSubstr(" \033[31;1merror\033[m tester["));
}

TEST(PlatformLog, WritesNoColoursToADumbTerminal) {
    EXPECT_THAT(OnTerminal("dumb"), HasSubstr(" error tester["));
}

TEST(PlatformLog, RotatesItsFileBySizeAndKeepsAsManyAsAsked) {
    const LogFolder folder;
    setenv("PROCMGR_LOG_FILE_SIZE", "1000", 1);
    setenv("PROCMGR_LOG_FILES", "2", 1);
    for (int i = 0; i < 100; ++i) {
        KmonRecord(27, 1, "record %d", i);
    }
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
        names.insert(entry.path().filename());
        EXPECT_LE(entry.file_size(), 1000U) << entry.path();
    }
    EXPECT_THAT(names, ElementsAre("test.1.log", "test.2.log", "test.log"));
    EXPECT_THAT(folder.Lines().back(), HasSubstr("record 99"));
}

TEST(SyslogSwitch, IsOffUntilItIsSwitchedOnForEver) {
    EXPECT_FALSE(IsSyslogEnable());
    EnableSyslogState();
    EXPECT_TRUE(IsSyslogEnable());
    EnableSyslogState();
    EXPECT_TRUE(IsSyslogEnable());
}

// Logs from a constructor before main and from a destructor after it.
struct EarlyAndLate {
    EarlyAndLate() {
        if (getenv("PROCMGR_TEST_EARLY_AND_LATE") != nullptr) {
            KmonRecord(27, 1, "before main");
        }
    }
    ~EarlyAndLate() {
        if (isLate) {
            KmonRecord(27, 1, "at exit");
        }
    }
    bool isLate = false;
};
EarlyAndLate earlyAndLate;

TEST(PlatformLog, IsUsableBeforeMain) {
    const LogFolder folder;
    setenv("PROCMGR_TEST_EARLY_AND_LATE", "1", 1);
    const std::string command =
        std::filesystem::read_symlink("/proc/self/exe").string() + " --gtest_list_tests >/dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);
    const std::vector<std::string> lines = folder.Lines();
    ASSERT_THAT(lines, SizeIs(1));
    EXPECT_THAT(lines[0], testing::EndsWith("] before main"));
}

TEST(PlatformLog, IsUsableWhileTheProcessExits) {
    const LogFolder folder;
    EXPECT_EXIT(
        {
            earlyAndLate.isLate = true;
            unsetenv("PROCMGR_LOG_FILE");
            KmonRecord(27, 1, "first");
            std::exit(0);
        },
        testing::ExitedWithCode(0), "first\n.*at exit\n");
}

}  // namespace
}  // namespace ProcMgr::Posix
