// The completion for bash, asked as bash asks it, with a stand-in for ssctl that knows four names.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

std::string RunShell(const std::string& command) {
    std::FILE* const pipe = popen(command.c_str(), "r");
    std::string output;
    std::array<char, 4096> buffer{};
    for (size_t got = 0; (got = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
        output.append(buffer.data(), got);
    }
    const int status = pclose(pipe);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << command << '\n' << output;
    return output;
}

class SsctlCompletion : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "ssctl-completion.XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
        std::ofstream(folder_ + "/ssctl") << "#!/bin/bash\n"
                                             "printf '%s\\n' \"$*\" >>\"${0%/*}/calls\"\n"
                                             "printf '%s\\n' lidar nav cam@front cam@back 'a;b' '$(c)'\n";
        fs::permissions(folder_ + "/ssctl", fs::perms::owner_all);
    }

    void TearDown() override { fs::remove_all(folder_); }

    /// What the end of the line may become.
    std::vector<std::string> Complete(const std::string& line) {
        std::ofstream(folder_ + "/line") << line;
        const std::string output =
            RunShell("bash -c '. " SSCTL_SOURCE_FOLDER "/completion/ssctl.bash; COMP_LINE=$(cat " + folder_ +
                     "/line; echo x); COMP_LINE=${COMP_LINE%x}; " + "COMP_POINT=${#COMP_LINE}; _ssctl " + folder_ +
                     "/ssctl; printf \"%s\\n\" \"${COMPREPLY[@]}\"'");
        std::vector<std::string> words;
        std::istringstream lines(output);
        for (std::string word; std::getline(lines, word);) {
            if (!word.empty()) {
                words.push_back(word);
            }
        }
        return words;
    }

    /// How ssctl was called for it.
    std::string Calls() const {
        std::stringstream text;
        text << std::ifstream(folder_ + "/calls").rdbuf();
        return text.str();
    }

    const std::string& Folder() const { return folder_; }

private:
    std::string folder_;
};

}  // namespace

TEST_F(SsctlCompletion, OffersCommands) {
    EXPECT_THAT(Complete("ssctl "),
                ElementsAre("list", "state", "start", "stop", "restart", "change", "verify", "set-state", "reload",
                            "dump", "stop-all", "events", "timeline", "check", "graph"));
    EXPECT_THAT(Complete("ssctl --json st"), ElementsAre("state", "start", "stop", "stop-all"));
    EXPECT_EQ(Calls(), "");
}

TEST_F(SsctlCompletion, OffersTheNamesOfTheRunningGroup) {
    EXPECT_THAT(Complete("ssctl start "), ElementsAre("lidar", "nav", "cam@front", "cam@back"));
    EXPECT_THAT(Complete("ssctl stop lidar n"), ElementsAre("nav"));
    EXPECT_EQ(Calls(), "--wait 1000 list --names\n--wait 1000 list --names\n");
}

TEST_F(SsctlCompletion, AsksTheGroupThatTheLineIsAbout) {
    Complete("ssctl --resource r --run-dir=/d state l");
    EXPECT_EQ(Calls(), "--resource r --run-dir=/d --wait 1000 list --names\n");
}

TEST_F(SsctlCompletion, KnowsThatBashCutsWordsAtSomeCharacters) {
    EXPECT_THAT(Complete("ssctl restart cam@f"), ElementsAre("front"));
    EXPECT_THAT(Complete("ssctl change --stop=na"), ElementsAre("nav"));
    EXPECT_THAT(Complete("ssctl verify nav="), ElementsAre("running", "terminated"));
    EXPECT_THAT(Complete("ssctl verify nav=t"), ElementsAre("terminated"));
}

TEST_F(SsctlCompletion, GoesOnInAListOfNames) {
    EXPECT_THAT(Complete("ssctl change --start lidar,na"), ElementsAre("lidar,nav"));
    EXPECT_THAT(Complete("ssctl change --start=lidar,na"), ElementsAre("lidar,nav"));
}

TEST_F(SsctlCompletion, OffersNamesForArgumentsParametersAndVerification) {
    EXPECT_THAT(Complete("ssctl start nav --args na"), ElementsAre("nav="));
    EXPECT_THAT(Complete("ssctl start nav --para li"), ElementsAre("lidar:"));
    EXPECT_THAT(Complete("ssctl verify l"), ElementsAre("lidar="));
}

TEST_F(SsctlCompletion, OffersStatesAndOptions) {
    EXPECT_THAT(Complete("ssctl set-state S"), ElementsAre("SUSPEND"));
    EXPECT_THAT(Complete("ssctl start --a"), ElementsAre("--args"));
    EXPECT_THAT(Complete("ssctl stop --a"), IsEmpty());
    EXPECT_THAT(Complete("ssctl events --"), ElementsAre("--resource", "--run-dir", "--json", "--wait", "--help",
                                                         "--queue", "--count", "--timeout"));
}

TEST_F(SsctlCompletion, OffersSpansAndFilesOfATimeline) {
    EXPECT_THAT(Complete("ssctl timeline --s"), ElementsAre("--since", "--svg"));
    EXPECT_THAT(Complete("ssctl timeline --since l"), ElementsAre("last"));
    EXPECT_THAT(Complete("ssctl timeline --since=b"), ElementsAre("boot"));
    EXPECT_THAT(Complete("ssctl --wait 5 timeline --record " + Folder() + "/l"), ElementsAre(Folder() + "/line"));
    EXPECT_THAT(Complete("ssctl timeline --owner "), IsEmpty());
}

TEST_F(SsctlCompletion, OffersFilesToCheck) {
    EXPECT_THAT(Complete("ssctl check /et"), ElementsAre("/etc"));
    EXPECT_THAT(Complete("ssctl check --root /et"), ElementsAre("/etc"));
    EXPECT_THAT(Complete("ssctl check --ro"), ElementsAre("--root"));
    EXPECT_EQ(Calls(), "");
}

TEST_F(SsctlCompletion, OffersNothingWhereItKnowsNothing) {
    EXPECT_THAT(Complete("ssctl start --timeout "), IsEmpty());
    EXPECT_THAT(Complete("ssctl reload "), IsEmpty());
    EXPECT_THAT(Complete("ssctl fly "), IsEmpty());
}

TEST(SsctlZshCompletion, IsAProgramThatZshCanRead) {
    if (std::system("command -v zsh >/dev/null") != 0) {
        GTEST_SKIP() << "zsh is not installed";
    }
    EXPECT_EQ(std::system("zsh -n " SSCTL_SOURCE_FOLDER "/completion/_ssctl"), 0);
}
