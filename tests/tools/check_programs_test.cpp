// The two programs that check manifests say the same.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/platform/manifest_test_folder.h"
#include "tests/tools/json_schema.h"

namespace {

struct Outcome {
    std::string output;
    int exitCode = -1;
};

/// What a command writes to its standard output.
Outcome RunShell(const std::string& command) {
    Outcome run;
    FILE* pipe = popen((command + " 2>/dev/null").c_str(), "r");
    if (pipe == nullptr) {
        return run;
    }
    std::array<char, 4096> buffer{};
    for (size_t got = 0; (got = fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) {
        run.output.append(buffer.data(), got);
    }
    const int status = pclose(pipe);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

class CheckPrograms : public testing::TestWithParam<const char*> {
protected:
    CheckPrograms() { unsetenv("PROCMGR_REPLACE_DATA"); }

    /// The program with what makes it check.
    Outcome Check(const std::string& words) const { return RunShell(GetParam() + (" " + words)); }

    ManifestTestFolder folder_;
};

TEST_P(CheckPrograms, SayThatAllIsGood) {
    folder_.Write("a.yaml", "app_name: a\nbin_path: ${DIR}/a\n");
    folder_.Write("replace.yaml", "cfgmgr_env: {DIR: /opt}\n");
    const Outcome run = Check(folder_.Path());
    EXPECT_EQ(run.output, "1 good manifest, 0 errors, 0 warnings\n");
    EXPECT_EQ(run.exitCode, 0);
}

TEST_P(CheckPrograms, PrintErrorsAndWarnings) {
    const std::string file = folder_.Write("a.yaml", "- {app_name: a}\n- {app_name: b, bin_path: /b, so_name: x}\n");
    const Outcome run = Check(file);
    EXPECT_EQ(run.output, "error: " + file +
                              ":1:3: key 'bin_path': the key is missing; add a line like 'bin_path: "
                              "/opt/robot/bin/camera'\n"
                              "warning: " +
                              file +
                              ":2:40: key 'so_name': has no effect without 'is_so: true'; add that or remove the key\n"
                              "1 good manifest, 1 error, 1 warning\n");
    EXPECT_EQ(run.exitCode, 1);
}

TEST_P(CheckPrograms, LookForProgramsWhenTheyAreTold) {
    const std::string file = folder_.Write("a.yaml", "{app_name: a, bin_path: /none}");
    const Outcome run = Check(file + " --root " + folder_.Path());
    EXPECT_EQ(run.output,
              "warning: " + file +
                  ":1:25: key 'bin_path': '/none' is not there: No such file or directory; correct the path "
                  "or install the file in '" +
                  folder_.Path() + "'\n1 good manifest, 0 errors, 1 warning\n");
    EXPECT_EQ(run.exitCode, 0);
}

TEST_P(CheckPrograms, PrintTheDocumentOfTheSchema) {
    std::ifstream schemaFile(SSCTL_SCHEMA_FILE);
    const JsonSchema schema(nlohmann::json::parse(schemaFile));
    for (const std::string text : {"- {app_name: a}\n- {app_name: b, bin_path: /b, so_name: x, depends: [b2]}\n", "{",
                                   "", "{app_name: b, bin_path: /b}"}) {
        const Outcome run = Check(folder_.Write("a.yaml", text) + " --json");
        const nlohmann::json document = nlohmann::json::parse(run.output, nullptr, false);
        ASSERT_FALSE(document.is_discarded()) << run.output;
        EXPECT_EQ(schema.Check(document), "") << document;
        EXPECT_EQ(document.at("exit_code"), run.exitCode);
    }
    EXPECT_EQ(nlohmann::json::parse(Check("/none --json").output).at("findings").at(0).at("kind"), "unreadable");
}

TEST_P(CheckPrograms, RefuseAWrongCommandLine) {
    for (const char* const words : {"", "''", "a --root /none", "a --colour", "a b"}) {
        const Outcome run = Check(words);
        EXPECT_EQ(run.output, "") << words;
        EXPECT_EQ(run.exitCode, 2) << words;
    }
}

TEST_P(CheckPrograms, SayThatTheyCannotWrite) {
    const std::string file = folder_.Write("a.yaml", "{app_name: a, bin_path: /a}");
    EXPECT_EQ(Check(file + " >/dev/full").exitCode, 1);
}

INSTANTIATE_TEST_SUITE_P(Each, CheckPrograms, testing::Values(SSCTL_PATH " check", PROCMGRD_PATH " --check"),
                         [](const auto& row) { return row.index == 0 ? "ssctl" : "procmgrd"; });

TEST(CheckOfTheProcessManager, TakesItsOptionsOnlyWithCheck) {
    EXPECT_EQ(RunShell(PROCMGRD_PATH " --json").exitCode, 2);
    EXPECT_EQ(RunShell(PROCMGRD_PATH " --root /").exitCode, 2);
}

}  // namespace
