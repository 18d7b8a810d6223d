#include "tests/integration/group_fixture.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace {

std::string ReadFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string Event(const std::string& event, const std::string& application) {
    std::string line = event;
    line.resize(std::max<size_t>(line.size(), 20), ' ');
    line += ' ' + application + ' ';
    return line;
}

}  // namespace

bool IsAlive(pid_t pid) {
    const std::string status = ReadFile("/proc/" + std::to_string(pid) + "/stat");
    const size_t state = status.rfind(") ");
    return state != std::string::npos && status[state + 2] != 'Z' && status[state + 2] != 'X';
}

bool WaitUntilGone(pid_t pid) {
    const int descriptor = static_cast<int>(syscall(SYS_pidfd_open, pid, 0));
    if (descriptor < 0) {
        return true;
    }
    pollfd ended{descriptor, POLLIN, 0};
    const auto patience = std::chrono::milliseconds(ChildProcess::kPatience).count();
    const int ready = poll(&ended, 1, static_cast<int>(patience));
    close(descriptor);
    return ready == 1;
}

void GroupFixture::SetUp() {
    std::string pattern = (fs::temp_directory_path() / "procmgr-group.XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    fs::create_directory(folder_ + "/manifests");
    environment_ = {{"PATH", "/usr/bin:/bin"},
                    {"PROCMGR_RUN_DIR", folder_ + "/run"},
                    {"STARTUP_ENTRY_PATH", folder_ + "/manifests"},
                    {"PROC_NAME", "test_owner"}};
}

void GroupFixture::TearDown() {
    owner_.reset();
    manager_.reset();
    EXPECT_TRUE(LeftOver().empty()) << "the test left processes behind";
    for (const pid_t pid : LeftOver()) {
        kill(pid, SIGKILL);
    }
    fs::remove_all(folder_);
}

void GroupFixture::Manifests(const std::string& fileName, std::string yaml) const {
    const std::string placeholder = "$APP";
    for (size_t at = yaml.find(placeholder); at != std::string::npos; at = yaml.find(placeholder, at)) {
        yaml.replace(at, placeholder.size(), ROBOT_APP_PATH);
    }
    std::ofstream(folder_ + "/manifests/" + fileName) << yaml;
}

void GroupFixture::StartManager(const std::vector<std::string>& options) {
    std::vector<std::string> argv = {PROCMGRD_PATH};
    argv.insert(argv.end(), options.begin(), options.end());
    manager_ = std::make_unique<ChildProcess>(argv, environment_);
    ASSERT_NE(manager_->WaitForLine("procmgrd: ready"), "") << manager_->Output();
}

void GroupFixture::StartOwner(const std::vector<std::string>& options) {
    std::vector<std::string> argv = {GRPOWNERD_PATH};
    argv.insert(argv.end(), options.begin(), options.end());
    owner_ = std::make_unique<ChildProcess>(argv, environment_);
}

void GroupFixture::Boot() {
    ASSERT_NO_FATAL_FAILURE(StartManager());
    StartOwner();
    ASSERT_NE(owner_->WaitForLine("] UP "), "") << owner_->Output() << manager_->Output();
}

pid_t GroupFixture::PidOf(const std::string& application) {
    const std::string& output = owner_->Output();
    const std::string reported = Event("REPORTED_READY", application);
    const bool isSelfReporting = output.find(reported) != std::string::npos;
    const std::string event = isSelfReporting ? reported : Event("SWITCH_ON", application);
    if (!owner_->WaitForOutput(event)) {
        return -1;
    }
    const size_t pid = output.find("pid ", output.rfind(event));
    return static_cast<pid_t>(std::strtol(output.c_str() + pid + 4, nullptr, 10));
}

size_t GroupFixture::PositionOf(const std::string& event, const std::string& application) {
    return owner_->WaitForOutput(Event(event, application)) ? owner_->Output().find(Event(event, application))
                                                            : std::string::npos;
}

bool GroupFixture::IsUntold(const std::string& application) const {
    return owner_->Output().find(Event("SWITCH_ON", application)) == std::string::npos;
}

std::vector<pid_t> GroupFixture::LeftOver() const {
    const std::string mark = "PROCMGR_RUN_DIR=" + folder_ + "/run";
    std::vector<pid_t> pids;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") == std::string::npos &&
            ReadFile(entry.path() / "environ").find(mark) != std::string::npos) {
            const auto pid = static_cast<pid_t>(std::stol(name));
            if (IsAlive(pid)) {
                pids.push_back(pid);
            }
        }
    }
    return pids;
}
