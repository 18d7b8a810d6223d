#include "tests/tools/ssctl_runs.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

/// Runs the program on the terminal; only in the child, and never back.
[[noreturn]] void RunOnTerminal(const char* terminal, std::vector<std::string> argv,
                                const std::map<std::string, std::string>& environment) {
    std::vector<char*> pointers;
    for (std::string& word : argv) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    std::vector<std::string> texts;
    for (const auto& [key, value] : environment) {
        texts.push_back(key + "=" + value);
    }
    std::vector<char*> variables;
    for (std::string& text : texts) {
        variables.push_back(text.data());
    }
    variables.push_back(nullptr);
    setsid();
    const int descriptor = open(terminal, O_RDWR);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        dup2(descriptor, stream);
    }
    execve(pointers[0], pointers.data(), variables.data());
    _exit(127);
}

}  // namespace

bool HasEnded(const ChildProcess& child) {
    siginfo_t end{};
    return waitid(P_PID, static_cast<id_t>(child.Pid()), &end, WEXITED | WNOHANG | WNOWAIT) != 0 || end.si_pid != 0;
}

std::string SsctlRuns::Program() {
    return SSCTL_PATH;
}

void SsctlRuns::BootWithResource() {
    ASSERT_NO_FATAL_FAILURE(StartManager());
    StartOwner({"--resource", "grp_owner"});
    ASSERT_NE(owner_->WaitForLine("] UP "), "") << owner_->Output() << manager_->Output();
}

SsctlResult SsctlRuns::Ssctl(const std::vector<std::string>& words) const {
    const std::string file = Folder() + "/complaint";
    std::vector<std::string> argv = {"/bin/sh", "-c", "exec \"$0\" \"$@\" 2>'" + file + "'", Program()};
    argv.insert(argv.end(), words.begin(), words.end());
    ChildProcess child(argv, environment_);
    SsctlResult run;
    run.exitCode = child.WaitForExit();
    run.output = child.Output();
    std::stringstream text;
    text << std::ifstream(file).rdbuf();
    run.complaint = text.str();
    return run;
}

nlohmann::json SsctlRuns::Document(std::vector<std::string> words) const {
    words.insert(words.begin(), "--json");
    const SsctlResult run = Ssctl(words);
    nlohmann::json document = nlohmann::json::parse(run.output, nullptr, false);
    EXPECT_FALSE(document.is_discarded()) << run.output << run.complaint;
    EXPECT_EQ(document.value("exit_code", -1), run.exitCode);
    return document;
}

SsctlResult SsctlRuns::OnTerminal(const std::vector<std::string>& words) const {
    std::vector<std::string> argv = {Program()};
    argv.insert(argv.end(), words.begin(), words.end());
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_TRUE(master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0);
    const std::string terminal = ptsname(master);
    const pid_t pid = fork();
    if (pid == 0) {
        RunOnTerminal(terminal.c_str(), argv, environment_);
    }
    SsctlResult run;
    std::array<char, 4096> buffer{};
    int status = 0;
    // A terminal that nobody has open yet reads as an error, as does one that nobody has open any more.
    for (bool isOver = false; !isOver;) {
        isOver = waitpid(pid, &status, WNOHANG) == pid;
        for (ssize_t got = 0; (got = read(master, buffer.data(), buffer.size())) > 0;) {
            run.output.append(buffer.data(), static_cast<size_t>(got));
        }
    }
    close(master);
    run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return run;
}
