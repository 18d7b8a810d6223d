// The manual pages and the completions of the programs have the options of their help, and no others.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Options = std::set<std::string>;

std::string Read(const std::string& path) {
    std::stringstream text;
    text << std::ifstream(path).rdbuf();
    EXPECT_FALSE(text.str().empty()) << path;
    return text.str();
}

std::string RunShell(const std::string& command) {
    std::string output;
    FILE* const pipe = popen(command.c_str(), "r");
    std::array<char, 4096> buffer{};
    for (size_t got = 0; (got = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
        output.append(buffer.data(), got);
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return output;
}

Options OptionsIn(const std::string& text) {
    static const std::regex option("--[a-z][a-z-]*");
    return {std::sregex_token_iterator(text.begin(), text.end(), option), std::sregex_token_iterator()};
}

/// The lines of the help that begin with an option.
Options OptionsOfHelp(const std::string& command) {
    std::istringstream lines(RunShell(command + " --help"));
    Options options;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("  -", 0) == 0) {
            options.merge(OptionsIn(line.substr(0, line.find(' ', 2))));
        }
    }
    EXPECT_GE(options.size(), 1U) << command;
    return options;
}

/// The options that have a paragraph of their own, or stand in the title of one.
Options OptionsOfPage(const std::string& name) {
    static const std::regex font("\\\\f[A-Z]");
    std::string text = std::regex_replace(Read(MANUAL_PAGES "/" + name), font, "");
    text.erase(std::remove(text.begin(), text.end(), '\\'), text.end());
    std::istringstream lines(text);
    Options options;
    bool isTitle = false;
    for (std::string line; std::getline(lines, line); isTitle = line == ".TP") {
        if (isTitle) {
            options.merge(OptionsIn(line));
        }
    }
    return options;
}

/// What the file completes, as words of a list or as patterns.
Options OptionsOfCompletion(const std::string& file) {
    Options options = OptionsIn(Read(PROJECT_FOLDER "/" + file));
    options.erase("--names");  // ssctl's own question for the names
    return options;
}

TEST(ManualPage, OfTheProcessManagerHasItsOptions) {
    const Options options = OptionsOfHelp(PROCMGRD_PATH);
    EXPECT_EQ(OptionsOfPage("procmgrd.8"), options);
    EXPECT_EQ(OptionsOfCompletion("daemons/completion/procmgrd.bash"), options);
}

TEST(ManualPage, OfTheGroupOwnerHasItsOptions) {
    const Options options = OptionsOfHelp(GRPOWNERD_PATH);
    EXPECT_EQ(OptionsOfPage("grpownerd.8"), options);
    EXPECT_EQ(OptionsOfCompletion("daemons/completion/grpownerd.bash"), options);
}

TEST(ManualPage, OfSsctlHasItsCommandsAndOptions) {
    // The words in front of the descriptions, below the title.
    std::istringstream lines(RunShell(SSCTL_PATH " --help"));
    Options options = OptionsOfHelp(SSCTL_PATH);
    const std::string page = Read(MANUAL_PAGES "/ssctl.1");
    bool isCommand = false;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("  ", 0) != 0) {
            isCommand = line == "Subcommands:";
        } else if (isCommand && line[2] != ' ') {
            const std::string command = line.substr(2, line.find(' ', 2) - 2);
            options.merge(OptionsOfHelp(SSCTL_PATH " " + command));
            EXPECT_NE(std::regex_replace(page, std::regex("\\\\-"), "-").find(command), std::string::npos) << command;
        }
    }
    EXPECT_GT(options.size(), 10U);
    EXPECT_EQ(OptionsOfPage("ssctl.1"), options);
    options.erase("--names");
    EXPECT_EQ(OptionsOfCompletion("tools/ssctl/completion/ssctl.bash"), options);
    EXPECT_EQ(OptionsOfCompletion("tools/ssctl/completion/_ssctl"), options);
}

}  // namespace
