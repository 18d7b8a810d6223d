/// Starts programs and reads what they tell; ends whatever a test leaves running.
#ifndef PROCMGR_TESTS_DAEMONS_LAUNCH_LAUNCH_FIXTURE_H
#define PROCMGR_TESTS_DAEMONS_LAUNCH_LAUNCH_FIXTURE_H

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "daemons/procmgrd/launch/launch_spec.h"
#include "daemons/procmgrd/launch/launcher.h"
#include "daemons/procmgrd/launch/process_tree.h"

namespace LaunchTest {

/// A folder of one test.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string pattern = "/tmp/procmgr-launch-XXXXXX";
        path_ = ::mkdtemp(pattern.data());
    }
    ~TemporaryFolder() { std::filesystem::remove_all(path_); }
    const std::string& Path() const { return path_; }
    std::string File(const std::string& name) const { return path_ + "/" + name; }

    void Write(const std::string& name, const std::string& content) const {
        const std::filesystem::path file = File(name);
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file) << content;
    }

    std::string Read(const std::string& name) const {
        std::ifstream file(File(name));
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

private:
    std::string path_;
};

/// An application that is the probe with these arguments.
inline ApplicationAttributes Probe(std::vector<std::string> arguments) {
    ApplicationAttributes attributes;
    attributes.appName = "cam";
    attributes.binPath = LAUNCH_PROBE;
    attributes.uid = ::geteuid();
    attributes.gid = ::getegid();
    attributes.arguments = std::move(arguments);
    return attributes;
}

/// No other test run at the same time has it, so that none finds the processes of this one by their environment.
inline std::string RunDir() {
    return "/run/procmgr-test-" + std::to_string(::getpid());
}

inline ProcMgr::LaunchRequest RequestOfThisUser() {
    ProcMgr::LaunchRequest request;
    request.owner = {::geteuid(), ::getegid(), {}};
    request.runDir = RunDir();
    return request;
}

/// A pipe whose write end goes to the application.
class Output {
public:
    Output() {
        std::array<int, 2> ends{};
        EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
        readEnd_.Reset(ends[0]);
        writeEnd_.Reset(ends[1]);
    }
    int WriteFd() const { return writeEnd_.Get(); }
    void CloseWriteEnd() { writeEnd_.Reset(); }

    /// The next line, without its end; a text that says so when it does not come within the deadline.
    std::string Line() {
        std::string line;
        for (char byte = 0; ReadByte(byte) && byte != '\n';) {
            line += byte;
        }
        return line;
    }

    /// Until every writer is gone.
    std::string Rest() {
        std::string rest;
        for (char byte = 0; ReadByte(byte);) {
            rest += byte;
        }
        return rest;
    }

private:
    bool ReadByte(char& byte) {
        pollfd waiting{readEnd_.Get(), POLLIN, 0};
        const int ready = ::poll(&waiting, 1, 60000);
        EXPECT_EQ(ready, 1) << "nothing was written within a minute";
        return ready == 1 && ::read(readEnd_.Get(), &byte, 1) == 1;
    }

    ProcMgr::UniqueFd readEnd_;
    ProcMgr::UniqueFd writeEnd_;
};

inline std::vector<std::string> Lines(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

inline bool AwaitEnd(const ProcMgr::ProcessId& process) {
    const ProcMgr::UniqueFd pidfd = ProcMgr::OpenProcess(process);
    pollfd waiting{pidfd.Get(), POLLIN, 0};
    return !pidfd.IsOpen() || ::poll(&waiting, 1, 60000) == 1;
}

class LaunchFixture : public testing::Test {
protected:
    LaunchFixture() { ::prctl(PR_SET_CHILD_SUBREAPER, 1); }

    ~LaunchFixture() override {
        for (const ProcMgr::ProcessId& process : watched_) {
            ProcMgr::SignalProcess(process, SIGKILL);
        }
        while (::waitpid(-1, nullptr, 0) > 0) {
        }
    }

    /// Builds and launches; both must be possible.
    ProcMgr::LaunchResult Start(const ApplicationAttributes& attributes,
                                ProcMgr::LaunchRequest request = RequestOfThisUser()) {
        ProcMgr::LaunchSpec spec;
        std::string refusal;
        request.outputFd = output_.WriteFd();
        EXPECT_TRUE(BuildLaunchSpec(ApplicationManifest(attributes), request, spec, refusal)) << refusal;
        return Start(spec);
    }

    ProcMgr::LaunchResult Start(const ProcMgr::LaunchSpec& spec) {
        ProcMgr::LaunchResult result = Launch(spec);
        output_.CloseWriteEnd();
        if (result.Ok()) {
            Watch(result.process);
        }
        return result;
    }

    /// Everything that the application tells until it ends.
    std::string Tell(const ApplicationAttributes& attributes,
                     const ProcMgr::LaunchRequest& request = RequestOfThisUser()) {
        const ProcMgr::LaunchResult result = Start(attributes, request);
        EXPECT_TRUE(result.Ok()) << LaunchStageName(result.stage) << ' ' << result.error;
        EXPECT_TRUE(result.warnings.empty());
        return output_.Rest();
    }

    /// The exit code, or minus the signal.
    static int Reap(const ProcMgr::ProcessId& process) {
        int status = 0;
        EXPECT_EQ(::waitpid(process.pid, &status, 0), process.pid);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    void Watch(const ProcMgr::ProcessId& process) { watched_.insert(process); }

    /// The processes whose numbers the application tells on its next lines.
    std::vector<ProcMgr::ProcessId> ReadProcesses(size_t count) {
        std::vector<ProcMgr::ProcessId> processes;
        for (size_t i = 0; i < count; ++i) {
            const auto stat = ProcMgr::ReadProcessStat(std::stoi(output_.Line()));
            if (stat) {
                processes.push_back(stat->id);
                Watch(stat->id);
            }
        }
        std::sort(processes.begin(), processes.end());
        EXPECT_EQ(processes.size(), count);
        return processes;
    }

    Output output_;

private:
    std::set<ProcMgr::ProcessId> watched_;
};

}  // namespace LaunchTest

#endif
