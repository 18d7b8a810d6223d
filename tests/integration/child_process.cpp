#include "tests/integration/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace {

using Clock = std::chrono::steady_clock;

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

std::vector<std::string> Environment(const std::map<std::string, std::string>& environment) {
    std::vector<std::string> texts;
    for (const auto& [key, value] : environment) {
        texts.push_back(key + "=" + value);
    }
    return texts;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& argv,
                           const std::map<std::string, std::string>& environment) {
    std::vector<std::string> arguments = argv;
    std::vector<std::string> variables = Environment(environment);
    const std::vector<char*> argumentPointers = Pointers(arguments);
    const std::vector<char*> variablePointers = Pointers(variables);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe2");
    }
    outputDescriptor_ = ends[0];
    pid_ = fork();
    if (pid_ == 0) {
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        execve(argumentPointers[0], argumentPointers.data(), variablePointers.data());
        _exit(127);
    }
    close(ends[1]);
}

ChildProcess::~ChildProcess() {
    if (!ended_) {
        // The daemons stop what they started when they are asked to; the hard end is for one that hangs.
        Signal(SIGTERM);
        WaitForExit();
    }
    close(outputDescriptor_);
}

void ChildProcess::Signal(int signal) const {
    if (!ended_) {
        kill(pid_, signal);
    }
}

bool ChildProcess::ReadMore(Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd descriptor{outputDescriptor_, POLLIN, 0};
    if (left <= 0 || poll(&descriptor, 1, static_cast<int>(left)) <= 0) {
        return false;
    }
    char buffer[4096];
    const ssize_t got = read(outputDescriptor_, buffer, sizeof(buffer));
    if (got <= 0) {
        return false;
    }
    output_.append(buffer, static_cast<size_t>(got));
    return true;
}

std::string ChildProcess::TakeLine(const std::string& text) {
    for (;;) {
        const size_t end = output_.find('\n', searchedTo_);
        if (end == std::string::npos) {
            return {};
        }
        const std::string line = output_.substr(searchedTo_, end - searchedTo_);
        searchedTo_ = end + 1;
        if (line.find(text) != std::string::npos) {
            return line;
        }
    }
}

std::string ChildProcess::WaitForLine(const std::string& text) {
    const auto deadline = Clock::now() + kPatience;
    for (;;) {
        std::string line = TakeLine(text);
        if (!line.empty() || !ReadMore(deadline)) {
            return line;
        }
    }
}

bool ChildProcess::WaitForOutput(const std::string& text) {
    const auto deadline = Clock::now() + kPatience;
    while (output_.find(text) == std::string::npos) {
        if (!ReadMore(deadline)) {
            return false;
        }
    }
    return true;
}

int ChildProcess::WaitForExit() {
    if (ended_) {
        return exitCode_;
    }
    const auto deadline = Clock::now() + kPatience;
    int status = 0;
    // The output is drained meanwhile, so that a talkative daemon can't block on it. Applications that outlive the
    // daemon may hold the pipe open, so its end is no sign of the daemon's.
    while (waitpid(pid_, &status, WNOHANG) == 0) {
        if (Clock::now() > deadline) {
            kill(pid_, SIGKILL);
        }
        ReadMore(Clock::now() + std::chrono::milliseconds(20));
    }
    while (ReadMore(Clock::now() + std::chrono::milliseconds(20))) {
    }
    ended_ = true;
    exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return exitCode_;
}
