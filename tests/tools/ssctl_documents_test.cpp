// The manual, the page in docs and the completions know every command and option of the program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>

#include "tools/ssctl/command_line.h"

using testing::HasSubstr;

namespace {

const std::vector<std::string> kCommands = {"list",     "state",  "start",     "stop",   "restart",
                                            "change",   "verify", "set-state", "reload", "dump",
                                            "stop-all", "events", "timeline",  "check",  "graph"};

/// The text of a file without the backslashes that roff wants before each '-'.
std::string Plain(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    std::string plain = text.str();
    plain.erase(std::remove(plain.begin(), plain.end(), '\\'), plain.end());
    return plain;
}

std::string Help(std::vector<const char*> words) {
    words.insert(words.begin(), "ssctl");
    words.push_back("--help");
    testing::internal::CaptureStdout();
    EXPECT_EQ(Ssctl::ParseCommandLine(static_cast<int>(words.size()), words.data()).exitCode, 0);
    return testing::internal::GetCapturedStdout();
}

/// The options that the help of the program and of its commands lists.
std::set<std::string> Options() {
    std::string help = Help({});
    for (const std::string& command : kCommands) {
        help += Help({command.c_str()});
    }
    std::set<std::string> options;
    std::istringstream lines(help);
    for (std::string line; std::getline(lines, line);) {
        const size_t begin = line.find("--");
        if (line.rfind("  -", 0) == 0 && begin != std::string::npos) {
            options.insert(line.substr(begin, line.find(' ', begin) - begin));
        }
    }
    return options;
}

}  // namespace

class SsctlDocuments : public testing::TestWithParam<const char*> {};

TEST_P(SsctlDocuments, KnowEveryCommandAndOption) {
    const std::string text = Plain(GetParam());
    for (const std::string& command : kCommands) {
        EXPECT_THAT(text, HasSubstr(command));
    }
    for (const std::string& option : Options()) {
        EXPECT_THAT(text, HasSubstr(option));
    }
}

INSTANTIATE_TEST_SUITE_P(Each, SsctlDocuments,
                         testing::Values(SSCTL_DOCS_FOLDER "/ssctl.md", SSCTL_DOCS_FOLDER "/man/ssctl.1",
                                         SSCTL_SOURCE_FOLDER "/completion/ssctl.bash",
                                         SSCTL_SOURCE_FOLDER "/completion/_ssctl"));

TEST(SsctlHelp, ListsEveryCommandAndTheKnownOptions) {
    const std::string help = Help({});
    for (const std::string& command : kCommands) {
        EXPECT_THAT(help, HasSubstr("\n  " + command + " "));
    }
    EXPECT_EQ(Options(),
              (std::set<std::string>{"--args",  "--count",   "--help",  "--json",    "--names",    "--output",
                                     "--owner", "--para",    "--queue", "--record",  "--resource", "--restart",
                                     "--root",  "--run-dir", "--since", "--start",   "--states",   "--stop",
                                     "--svg",   "--timeout", "--trace", "--version", "--wait"}));
}
