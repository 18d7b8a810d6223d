#include "tests/daemons/procmgrd/daemon_fixture.h"

#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "daemons/procmgrd/launch/process_tree.h"

namespace ProcmgrdTest {
namespace {

constexpr int kPatienceMs = 60000;

std::string MakeTemporaryFolder() {
    std::string pattern = "/tmp/procmgrd-test-XXXXXX";
    EXPECT_NE(mkdtemp(pattern.data()), nullptr);
    // Applications of other users find their way in.
    chmod(pattern.c_str(), S_IRWXU | S_IXGRP | S_IXOTH);
    return pattern;
}

int OpenNotes(const std::string& path) {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    chmod(path.c_str(), S_IRWXU | S_IRWXG | S_IRWXO);
    return fd;
}

}  // namespace

DaemonTest::DaemonTest() : folder_(MakeTemporaryFolder()), notes_(OpenNotes(folder_ + "/notes")) {
    std::filesystem::create_directory(ManifestPath());
    EXPECT_EQ(setenv("PROCMGR_RUN_DIR", RunDir().c_str(), 1), 0);
    EXPECT_EQ(setenv("PROCMGR_LOG_LEVEL", "off", 1), 0);
}

DaemonTest::~DaemonTest() {
    if (daemon_) {
        StopDaemon();
    }
    close(notes_);
    std::filesystem::remove_all(folder_);
}

void DaemonTest::StartDaemon(const std::vector<std::string>& options) {
    std::vector<std::string> argv = {PROCMGRD_PATH, "--run-dir", RunDir()};
    argv.insert(argv.end(), options.begin(), options.end());
    daemon_ = std::make_unique<ChildProcess>(argv, environment_);
    ASSERT_NE(daemon_->WaitForLine("procmgrd: ready"), "") << daemon_->Output();
}

void DaemonTest::StopDaemon() {
    daemon_->Signal(SIGTERM);
    EXPECT_EQ(daemon_->WaitForExit(), 0) << daemon_->Output();
    EXPECT_TRUE(Survivors().empty()) << daemon_->Output();
    if (HasFailure()) {
        std::cerr << daemon_->Output();
    }
    daemon_.reset();
}

void DaemonTest::Manifests(const std::string& yaml, const std::string& fileName) const {
    std::ofstream(ManifestPath() + "/" + fileName) << yaml;
}

std::map<std::string, std::string> DaemonTest::MatchData() const {
    return {{"APP", PROBE_PATH}, {"DIR", folder_}, {"OBJECT", OBJECT_PATH}};
}

std::unique_ptr<OwnerClient> DaemonTest::Owner(const std::string& name) const {
    auto owner = std::make_unique<OwnerClient>(name);
    EXPECT_EQ(owner->Error(), 0);
    EXPECT_EQ(owner->Load(ManifestPath(), MatchData()), 0);
    return owner;
}

std::string DaemonTest::WaitNote(const std::string& begin) const {
    std::array<char, 4096> buffer;
    pollfd waiting{notes_, POLLIN, 0};
    while (poll(&waiting, 1, kPatienceMs) == 1) {
        const ssize_t size = recv(notes_, buffer.data(), buffer.size(), 0);
        const std::string note(buffer.data(), static_cast<size_t>(size));
        if (note.rfind(begin + " ", 0) == 0) {
            return note.substr(begin.size() + 1);
        }
    }
    ADD_FAILURE() << "no note that begins with " << begin;
    return "0";
}

pid_t DaemonTest::StartAndWait(OwnerClient& owner, const std::string& app) const {
    owner.Start({app});
    const AppStateInfo report = owner.WaitReport(app);
    EXPECT_EQ(report.appState, 0U);
    const pid_t pid = WaitPid(app + " waits");
    EXPECT_EQ(static_cast<pid_t>(report.pid), pid);
    return pid;
}

std::vector<pid_t> DaemonTest::Survivors() const {
    const std::string variable = "PROCMGR_RUN_DIR=" + RunDir();
    std::vector<pid_t> survivors;
    for (const auto& [pid, stat] : ProcMgr::ReadProcessTable()) {
        std::ifstream file("/proc/" + std::to_string(pid) + "/environ");
        const std::string environment{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        const bool isOther = pid != getpid() && environment.find(variable + '\0') != std::string::npos;
        if (isOther && environment.find("PROCMGR_APP_NAME=") != std::string::npos && !stat.HasEnded()) {
            survivors.push_back(pid);
        }
    }
    return survivors;
}

bool Lives(pid_t pid) {
    const auto stat = ProcMgr::ReadProcessStat(pid);
    return stat && !stat->HasEnded();
}

bool WaitGone(pid_t pid) {
    const ProcMgr::UniqueFd process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    pollfd waiting{process.Get(), POLLIN, 0};
    return !process.IsOpen() || poll(&waiting, 1, kPatienceMs) == 1;
}

size_t ZombieChildren(pid_t parent) {
    size_t zombies = 0;
    for (const auto& [pid, stat] : ProcMgr::ReadProcessTable()) {
        zombies += stat.parent == parent && stat.HasEnded() ? 1 : 0;
    }
    return zombies;
}

}  // namespace ProcmgrdTest
