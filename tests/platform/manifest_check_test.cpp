// The command-line tool, run as a user would.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/platform/manifest_test_folder.h"

namespace {

struct Outcome {
    std::string output;
    int exitCode = -1;
};

Outcome RunCheck(const std::string& arguments) {
    Outcome run;
    FILE* pipe = popen((std::string(MANIFEST_CHECK_TOOL) + " " + arguments + " 2>&1").c_str(), "r");
    if (pipe == nullptr) {
        return run;
    }
    std::array<char, 4096> buffer{};
    for (size_t got = fread(buffer.data(), 1, buffer.size(), pipe); got > 0;
         got = fread(buffer.data(), 1, buffer.size(), pipe)) {
        run.output.append(buffer.data(), got);
    }
    const int status = pclose(pipe);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

class ManifestCheck : public testing::Test {
protected:
    ManifestCheck() { unsetenv("PROCMGR_REPLACE_DATA"); }
    ManifestTestFolder folder_;
};

TEST_F(ManifestCheck, SaysThatAllIsGood) {
    folder_.Write("a.yaml", "app_name: a\nbin_path: ${DIR}/a\n");
    folder_.Write("replace.yaml", "cfgmgr_env: {DIR: /opt}\n");
    const Outcome run = RunCheck(folder_.Path());
    EXPECT_EQ(run.output, "1 good manifests, 0 errors, 0 warnings\n");
    EXPECT_EQ(run.exitCode, 0);
}

TEST_F(ManifestCheck, PrintsErrorsAndWarnings) {
    const std::string file = folder_.Write("a.yaml", "- {app_name: a}\n- {app_name: b, bin_path: /b, depends: [a]}\n");
    const Outcome run = RunCheck(file);
    EXPECT_EQ(run.output, "error: " + file +
                              ":1:3: key 'bin_path': the key is missing; add a line like 'bin_path: "
                              "/opt/robot/bin/camera'\n"
                              "warning: " +
                              file +
                              ":2:40: key 'depends': 'b' cannot start: its dependency 'a' has no good manifest; it "
                              "will never be running\n"
                              "1 good manifests, 1 errors, 1 warnings\n");
    EXPECT_EQ(run.exitCode, 1);
}

TEST_F(ManifestCheck, PrintsErrorsOfTheReplacementData) {
    folder_.Write("a.yaml", "app_name: a\nbin_path: /a\n");
    const std::string data = folder_.Write("replace.yaml", "- x\n");
    const Outcome run = RunCheck(folder_.Path());
    EXPECT_EQ(run.output, "error: " + data +
                              ":1:1: wants a map but found a list; write it like 'cfgmgr_env: {ROBOT_DIR: "
                              "/opt/robot}'\n1 good manifests, 1 errors, 0 warnings\n");
    EXPECT_EQ(run.exitCode, 1);
}

TEST_F(ManifestCheck, RefusesAWrongCommandLineAndExplainsItself) {
    EXPECT_EQ(RunCheck("").exitCode, 2);
    EXPECT_EQ(RunCheck("a b").exitCode, 2);
    EXPECT_EQ(RunCheck("--help").exitCode, 0);
    EXPECT_EQ(RunCheck("--help").output.rfind("Usage: procmgr-manifest-check PATH\n", 0), 0U);
}

}  // namespace
