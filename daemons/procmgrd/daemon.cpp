#include "daemons/procmgrd/daemon.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "daemons/procmgrd/daemon_log.h"
#include "daemons/procmgrd/safe_folder.h"
#include "daemons/service/ready_descriptor.h"
#include "platform/posix/common_posix/packet_listener.h"
#include "platform/posix/log/environment.h"

namespace Procmgrd {
namespace {

constexpr std::array<int, 3> kStopSignals = {SIGTERM, SIGINT, SIGHUP};
constexpr mode_t kListable = S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH;
constexpr mode_t kPassable = S_IRWXU | S_IXGRP | S_IXOTH;

/// Those that a daemon which was killed has left.
void RemoveOldAddresses(const std::string& folder) {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(folder, ignored)) {
        if (entry.is_socket(ignored)) {
            static_cast<void>(unlink(entry.path().c_str()));
        }
    }
}

// The daemon's own beat is nobody's deadline.
const AppKey kDaemon;

/// Each application takes a few descriptors.
rlimit RaiseFileLimit() {
    rlimit limit{};
    static_cast<void>(getrlimit(RLIMIT_NOFILE, &limit));
    rlimit raised = limit;
    raised.rlim_cur = raised.rlim_max;
    static_cast<void>(setrlimit(RLIMIT_NOFILE, &raised));
    return limit;
}

}  // namespace

int Daemon::Run() {
    if (!Begin()) {
        return 1;
    }
    TellReady();
    // The end of a turn may be the end of the last process: then there is nothing more to wait for.
    for (bool moreToDo = conductor_->EndTurn(); !conductor_->IsStopped(); moreToDo = conductor_->EndTurn()) {
        TellStatus();
        if (!loop_.Turn(moreToDo)) {
            PROCMGRD_LOG(kLogError, "the loop failed: %s", std::strerror(errno));
            return 1;
        }
    }
    conductor_->DrainOutputs();
    PROCMGRD_LOG(kLogEvent, "procmgrd: stopped, nothing is left");
    return 0;
}

bool Daemon::Begin() {
    fileLimit_ = RaiseFileLimit();
    if (!loop_.Open() || !deadlines_.Open() || !WatchSignals() || !WatchDeadlines() ||
        prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0) {
        PROCMGRD_LOG(kLogError, "can't begin: %s", std::strerror(errno));
        return false;
    }
    return MakeFolders() && EndLeftovers() && Listen();
}

// The run folder comes first: as long as others could write it, nothing below it is to be believed.
bool Daemon::MakeFolders() {
    if (mkdir(options_.runDir.c_str(), kListable) == 0) {
        // Owners of other users find their way in, whatever the umask is.
        static_cast<void>(chmod(options_.runDir.c_str(), kListable));
    }
    std::string error;
    if (ProcMgr::PrepareRunDirectory(options_.runDir, error) != 0) {
        PROCMGRD_LOG(kLogError, "can't begin: %s; choose another with --run-dir", error.c_str());
        return false;
    }
    if (!MakeOwnFolder("app", kPassable) || !MakeOwnFolder("timeline", kListable)) {
        return false;
    }
    if (!options_.logDir.empty() && !MakeSafeFolder(options_.logDir, kListable)) {
        PROCMGRD_LOG(kLogError,
                     "can't use the folder %s: %s; it must be no link, belong to the daemon's user and be writable by "
                     "nobody else, or choose another with --log-dir",
                     options_.logDir.c_str(), std::strerror(errno));
        return false;
    }
    return true;
}

bool Daemon::MakeOwnFolder(const char* name, mode_t mode) const {
    const std::string path = options_.runDir + "/" + name;
    if (MakeSafeFolder(path, mode)) {
        return true;
    }
    PROCMGRD_LOG(kLogError,
                 "can't use the folder %s: %s; it must be no link, belong to the daemon's user and be writable by "
                 "nobody else",
                 path.c_str(), std::strerror(errno));
    return false;
}

bool Daemon::EndLeftovers() {
    const std::string path = options_.runDir + "/procmgrd.state";
    int error = 0;
    if (!stateFile_.Open(path, error)) {
        PROCMGRD_LOG(kLogError, "can't use the state file %s: %s", path.c_str(),
                     error == EWOULDBLOCK ? "another procmgrd uses this run folder" : std::strerror(error));
        return false;
    }
    const std::vector<ProcMgr::Leftover> leftovers = ProcMgr::FindLeftovers(path, options_.runDir);
    for (const ProcMgr::Leftover& leftover : leftovers) {
        PROCMGRD_LOG(kLogEvent, "owner %s: application %s (pid %d) is left from an earlier procmgrd and is ended",
                     leftover.record.owner.c_str(), leftover.record.appName.c_str(), leftover.record.process.pid);
    }
    for (const ProcMgr::Leftover& survivor : ProcMgr::EndLeftovers(leftovers, options_.runDir)) {
        PROCMGRD_LOG(kLogError, "owner %s: application %s (pid %d) can't be ended; end it, then start procmgrd again",
                     survivor.record.owner.c_str(), survivor.record.appName.c_str(), survivor.record.process.pid);
        error = EBUSY;
    }
    if (error == 0 && stateFile_.Clear(error)) {
        RemoveOldAddresses(options_.runDir + "/app");
        return true;
    }
    if (error != EBUSY) {
        PROCMGRD_LOG(kLogError, "can't write the state file %s: %s", path.c_str(), std::strerror(error));
    }
    return false;
}

bool Daemon::WatchSignals() {
    sigset_t watched;
    sigemptyset(&watched);
    sigaddset(&watched, SIGCHLD);
    for (const int signalNumber : kStopSignals) {
        sigaddset(&watched, signalNumber);
    }
    if (sigprocmask(SIG_BLOCK, &watched, nullptr) != 0 || signal(SIGPIPE, SIG_IGN) == SIG_ERR) {
        return false;
    }
    signals_.Reset(signalfd(-1, &watched, SFD_NONBLOCK | SFD_CLOEXEC));
    return signals_.IsOpen() && loop_.Add(signals_.Get(), [this] { OnSignals(); });
}

bool Daemon::WatchDeadlines() {
    return loop_.Add(deadlines_.Fd(), [this] { OnDeadlines(); });
}

void Daemon::MakeTimelines() {
    TimelineSettings settings;
    settings.folder = options_.runDir + "/timeline";
    settings.bootId = ProcMgr::ReadBootId();
    timelines_ = std::make_unique<Timelines>(std::move(settings));
}

void Daemon::MakeConductor(const ProcMgr::Posix::HeartBeatSettings& hearts) {
    ConductorNews news;
    news.report = [this](const std::string& owner, const ProcMgr::Message::AppStateInfo& report) {
        desk_->Report(owner, report);
    };
    news.appReport = [this](const AppKey& key, pid_t pid, uint32_t appState) { desk_->AppReport(key, pid, appState); };
    news.beat = [this](const AppKey& key, pid_t pid, gid_t gid) { desk_->AppBeat(key, pid, gid); };
    news.down = [this](const std::string& owner) { desk_->Down(owner); };
    ProcessHostSettings host;
    host.runDir = options_.runDir;
    host.appSocketDir = options_.runDir + "/app";
    host.logDir = options_.logDir;
    host.fileLimit = fileLimit_;
    host.heartBeatPeriod = hearts.period;
    host.heartBeatMisses = hearts.misses;
    conductor_ =
        std::make_unique<Conductor>(loop_, deadlines_, stateFile_, *timelines_, std::move(host), std::move(news));
}

bool Daemon::Listen() {
    const auto hearts = ProcMgr::Posix::ReadHeartBeatSettings(ProcMgr::Posix::ProcessEnvironment);
    MakeTimelines();
    MakeConductor(hearts);
    WatchHearts(hearts);
    OwnerDeskSettings settings;
    settings.runDir = options_.runDir;
    settings.isTerminatingOnOwnerExit = options_.isTerminatingOnOwnerExit;
    std::string error;
    if (!options_.rulesFile.empty() && !settings.rules.Load(options_.rulesFile, error)) {
        PROCMGRD_LOG(kLogError, "bad rules: %s", error.c_str());
        return false;
    }
    desk_ = std::make_unique<OwnerDesk>(*conductor_, *hearts_, *timelines_, std::move(settings));
    if (!desk_->Listen(error)) {
        PROCMGRD_LOG(kLogError, "can't listen: %s", error.c_str());
        return false;
    }
    return loop_.Add(desk_->PollFd(), [this] { desk_->Dispatch(); });
}

// Without it everything else works, so that its failure is no reason not to begin.
void Daemon::WatchHearts(const ProcMgr::Posix::HeartBeatSettings& settings) {
    hearts_ = std::make_unique<OwnerHearts>(loop_, deadlines_, settings);
    if (!hearts_->Open(options_.runDir, kPeerName)) {
        PROCMGRD_LOG(kLogError, "can't receive the heartbeats of owners: %s", std::strerror(errno));
    }
}

void Daemon::TellReady() {
    PROCMGRD_LOG(kLogEvent, "procmgrd: ready, listening at %s/%s.sock", options_.runDir.c_str(), kPeerName);
    status_ = StatusLine();
    const int error = service_.Ready(status_);
    if (error != 0) {
        PROCMGRD_LOG(kLogWarn, "can't tell %s, the address in NOTIFY_SOCKET, that the daemon is ready: %s",
                     service_.Address().c_str(), std::strerror(error));
    }
    TellLife();
    const int descriptorError = TellReadyDescriptor(options_.readyFd);
    if (descriptorError != 0) {
        PROCMGRD_LOG(kLogWarn, "can't write to descriptor %d of --ready-fd: %s", options_.readyFd,
                     std::strerror(descriptorError));
    }
}

void Daemon::TellLife() {
    const int untilNextMs = service_.BeatIfDue();
    if (untilNextMs > 0) {
        deadlines_.Arm(DeadlineKind::SERVICE, kDaemon, static_cast<uint32_t>(untilNextMs));
    }
}

std::string Daemon::StatusLine() const {
    return "owners: " + std::to_string(desk_->CountOwners()) +
           ", applications: " + std::to_string(conductor_->CountApps());
}

void Daemon::TellStatus() {
    const std::string status = service_.Address().empty() ? status_ : StatusLine();
    if (status != status_) {
        status_ = status;
        service_.Status(status);
    }
}

void Daemon::OnSignals() {
    signalfd_siginfo info{};
    while (read(signals_.Get(), &info, sizeof(info)) == sizeof(info)) {
        if (info.ssi_signo == SIGCHLD) {
            conductor_->NoteChildNews();
            continue;
        }
        PROCMGRD_LOG(kLogEvent, "signal %u (%s) from process %u", info.ssi_signo,
                     strsignal(static_cast<int>(info.ssi_signo)), info.ssi_pid);
        service_.Stopping(StatusLine());
        conductor_->Stop(options_.stopTimeoutMs);
    }
}

void Daemon::OnDeadlines() {
    for (const DeadlineKey& deadline : deadlines_.TakeDue()) {
        if (deadline.first == DeadlineKind::HEARTBEAT) {
            hearts_->Tick();
        } else if (deadline.first == DeadlineKind::SERVICE) {
            TellLife();
        } else {
            conductor_->OnDeadline(deadline);
        }
    }
}

}  // namespace Procmgrd
