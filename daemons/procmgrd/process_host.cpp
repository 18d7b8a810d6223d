#include "daemons/procmgrd/process_host.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "daemons/procmgrd/daemon_log.h"
#include "daemons/procmgrd/launch_reason.h"
#include "daemons/procmgrd/safe_folder.h"

namespace Procmgrd {
namespace {

using ProcMgr::Timeline::EventKind;
using ProcMgr::Timeline::EventOf;

/// How soon to look again for leftovers; their ends wake the loop in most cases before that.
constexpr uint32_t kLeftoverLookMs = 20;
/// How long a killed leftover may take to go before it is given up.
constexpr std::chrono::milliseconds kLeftoverPatience{2000};

// The deadline for leftovers is one for all applications.
const AppKey kAllApps;

std::vector<pid_t> OwnChildren() {
    return ProcMgr::ChildrenOf(getpid()).value_or(std::vector<pid_t>());
}

/// In the midst of its end, or ended and not reaped yet.
bool IsDying(pid_t pid) {
    const auto stat = ProcMgr::ReadProcessStat(pid);
    char program = 0;
    const std::string link = "/proc/" + std::to_string(pid) + "/exe";
    const bool hasMemory = readlink(link.c_str(), &program, sizeof(program)) >= 0 || errno != ENOENT;
    return stat && (stat->HasEnded() || !hasMemory);
}

ExitStatus ReapLeader(const ProcMgr::UniqueFd& pidfd) {
    siginfo_t info{};
    ExitStatus status;
    if (waitid(static_cast<idtype_t>(P_PIDFD), static_cast<id_t>(pidfd.Get()), &info, WEXITED | WNOHANG) == 0) {
        status.isSignal = info.si_code != CLD_EXITED;
        status.value = info.si_status;
    }
    return status;
}

}  // namespace

ProcessHost::ProcessHost(EventLoop& loop, Deadlines& deadlines, ProcMgr::StateFile& stateFile, Timelines& timelines,
                         ProcessHostSettings settings, ProcessHostNews news)
    : loop_(loop),
      deadlines_(deadlines),
      stateFile_(stateFile),
      timelines_(timelines),
      settings_(std::move(settings)),
      soHostPath_(ProcMgr::FindSoHost()),
      news_(std::move(news)),
      hearts_(deadlines, settings_.heartBeatPeriod, news_.beat) {
}

ProcessHost::~ProcessHost() {
    for (const auto& [fd, output] : outputs_) {
        loop_.Remove(fd);
    }
    for (const auto& [key, process] : processes_) {
        Unwatch(process);
    }
}

pid_t ProcessHost::Launch(const AppKey& key, const ApplicationManifest& manifest, const AppRequest& request,
                          const ProcMgr::OwnerIdentity& owner, ExitNote& why) {
    Process process;
    if (ProcMgr::TellsAboutItself(manifest)) {
        process.socket = MakeSocket(key);
    }
    process.isSelfReporting = ProcMgr::IsSelfReporting(manifest);
    std::unique_ptr<ProcMgr::OutputPipe> output = MakeOutput(key);
    ProcMgr::LaunchRequest launch;
    launch.arguments = request.argv;
    launch.dynamicPara = request.dynamicPara;
    launch.owner = owner;
    launch.appSocketPath = process.socket ? process.socket->Path() : std::string();
    launch.outputFd = output ? output->WriteFd() : -1;
    ProcMgr::LaunchSpec spec;
    if (!MakeSpec(key, manifest, std::move(launch), spec)) {
        why = {ExitReason::REFUSED, 0};
        return 0;
    }
    if (process.socket && !process.socket->GiveTo(spec.uid, spec.gid)) {
        PROCMGRD_LOG(kLogWarn, "owner %s: application %s: can't give its report address to user %u: %s",
                     key.owner.c_str(), key.app.c_str(), spec.uid, std::strerror(errno));
    }
    const pid_t pid = Execute(key, spec, std::move(process), why);
    if (pid > 0 && manifest.GetHeartBeatSwitch()) {
        hearts_.Came(key, pid, spec.gid);
    }
    if (output) {
        output->CloseWriteEnd();
        WatchOutput(key, std::move(output));
    }
    return pid;
}

bool ProcessHost::MakeSpec(const AppKey& key, const ApplicationManifest& manifest, ProcMgr::LaunchRequest launch,
                           ProcMgr::LaunchSpec& spec) const {
    launch.instanceName = key.app;
    launch.ownerName = key.owner;
    launch.runDir = settings_.runDir;
    launch.heartBeatPeriodMs = static_cast<uint32_t>(settings_.heartBeatPeriod.count());
    launch.heartBeatMisses = settings_.heartBeatMisses;
    launch.soHostPath = soHostPath_;
    std::string refusal;
    if (ProcMgr::BuildLaunchSpec(manifest, launch, spec, refusal)) {
        return true;
    }
    PROCMGRD_LOG(kLogError, "owner %s: not started: %s", key.owner.c_str(), refusal.c_str());
    return false;
}

pid_t ProcessHost::Execute(const AppKey& key, const ProcMgr::LaunchSpec& spec, Process process, ExitNote& why) {
    ProcMgr::ProcessId recorded;
    ProcMgr::LaunchResult result = ProcMgr::Launch(spec, [&](const ProcMgr::ProcessId& started) {
        recorded = started;
        return Record(key, started);
    });
    for (const ProcMgr::LaunchWarning& warning : result.warnings) {
        PROCMGRD_LOG(kLogWarn, "owner %s: %s", key.owner.c_str(), ProcMgr::DescribeWarning(key.app, warning).c_str());
    }
    if (!result.Ok()) {
        PROCMGRD_LOG(kLogError, "owner %s: application %s was not started: %s of %s: %s", key.owner.c_str(),
                     key.app.c_str(), ProcMgr::LaunchStageName(result.stage), spec.executable.c_str(),
                     std::strerror(result.error));
        stateFile_.Remove(recorded);
        why = WhyLaunchFailed(result.stage, result.error);
        return 0;
    }
    process.leader = result.process;
    process.pidfd = std::move(result.pidfd);
    leaders_.insert(process.leader.pid);
    if (!Watch(key, process)) {
        why = {ExitReason::NO_RESOURCES, static_cast<uint32_t>(errno)};
        Abandon(process);
        return 0;
    }
    const pid_t pid = process.leader.pid;
    processes_[key] = std::move(process);
    return pid;
}

std::unique_ptr<AppSocket> ProcessHost::MakeSocket(const AppKey& key) {
    auto socket = std::make_unique<AppSocket>();
    if (!socket->Open(settings_.appSocketDir + "/" + std::to_string(++lastSocket_) + ".sock")) {
        PROCMGRD_LOG(kLogError, "owner %s: application %s can't report: no address for it: %s", key.owner.c_str(),
                     key.app.c_str(), std::strerror(errno));
        return nullptr;
    }
    return socket;
}

std::unique_ptr<ProcMgr::OutputPipe> ProcessHost::MakeOutput(const AppKey& key) {
    int error = 0;
    std::unique_ptr<ProcMgr::OutputPipe> output = ProcMgr::OutputPipe::Create(LogOf(key), error);
    if (!output) {
        PROCMGRD_LOG(kLogError, "owner %s: the output of application %s is lost: no pipe for it: %s", key.owner.c_str(),
                     key.app.c_str(), std::strerror(error));
        ForgetLogIfDone(key);
    }
    return output;
}

// A new process may write while the pipe of the old one is still open.
std::shared_ptr<ProcMgr::OutputLog> ProcessHost::LogOf(const AppKey& key) {
    std::shared_ptr<ProcMgr::OutputLog> log = logs_[key].lock();
    if (log) {
        return log;
    }
    ProcMgr::OutputLogOptions options;
    if (!settings_.logDir.empty()) {
        const std::string folder = settings_.logDir + "/" + ProcMgr::FileSafeName(key.owner);
        if (MakeSafeFolder(folder, S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH)) {
            options.directory = folder;
        } else {
            PROCMGRD_LOG(kLogError,
                         "owner %s: the output of application %s goes to the daemon's own: the folder %s: %s",
                         key.owner.c_str(), key.app.c_str(), folder.c_str(), std::strerror(errno));
        }
    }
    log = std::make_shared<ProcMgr::OutputLog>(key.app, options);
    logs_[key] = log;
    return log;
}

void ProcessHost::ForgetLogIfDone(const AppKey& key) {
    const auto found = logs_.find(key);
    if (found != logs_.end() && found->second.expired()) {
        logs_.erase(found);
    }
}

// The last thing before the process becomes the application.
bool ProcessHost::Record(const AppKey& key, const ProcMgr::ProcessId& process) {
    timelines_.Note(key.owner, EventOf(EventKind::FORKED, key.app, static_cast<uint64_t>(process.pid)));
    static_cast<void>(prlimit(process.pid, RLIMIT_NOFILE, &settings_.fileLimit, nullptr));
    int error = 0;
    if (stateFile_.Add({key.app, key.owner, process}, error)) {
        return true;
    }
    PROCMGRD_LOG(kLogError, "owner %s: application %s: can't write to the state file: %s", key.owner.c_str(),
                 key.app.c_str(), std::strerror(error));
    return false;
}

bool ProcessHost::Watch(const AppKey& key, const Process& process) {
    if (!loop_.Add(process.pidfd.Get(), [this, key] { NoteEnd(key); })) {
        return false;
    }
    return !process.socket || WatchSocket(key, process);
}

bool ProcessHost::WatchSocket(const AppKey& key, const Process& process) {
    return loop_.Add(process.socket->Fd(), [this, key] { ReadSocket(key); });
}

void ProcessHost::Unwatch(const Process& process) {
    loop_.Remove(process.pidfd.Get());
    if (process.socket) {
        loop_.Remove(process.socket->Fd());
    }
}

// It runs but can't be watched: as if it had never been started.
void ProcessHost::Abandon(const Process& process) {
    Unwatch(process);
    ProcMgr::SignalTree({process.leader, {}, {}, {}}, SIGKILL, leaders_);
    // From now on it is an orphan like others.
    leaders_.erase(process.leader.pid);
    stateFile_.Remove(process.leader);
    hasChildNews_ = true;
}

void ProcessHost::WatchOutput(const AppKey& key, std::unique_ptr<ProcMgr::OutputPipe> output) {
    const int fd = output->ReadFd();
    const auto drain = [this, fd, key] {
        const auto found = outputs_.find(fd);
        if (found->second->Drain() == ProcMgr::OutputPipe::State::CLOSED) {
            loop_.Remove(fd);
            outputs_.erase(found);
            ForgetLogIfDone(key);
        }
    };
    if (loop_.Add(fd, drain)) {
        outputs_[fd] = std::move(output);
        return;
    }
    PROCMGRD_LOG(kLogError, "the output of an application is lost: %s", std::strerror(errno));
    output.reset();
    ForgetLogIfDone(key);
}

void ProcessHost::DrainOutputs() {
    for (const auto& [fd, output] : outputs_) {
        while (output->Drain() == ProcMgr::OutputPipe::State::MORE) {
        }
    }
}

void ProcessHost::ReadSocket(const AppKey& key) {
    const auto found = processes_.find(key);
    if (found == processes_.end() || !found->second.socket) {
        return;
    }
    AppSocket& socket = *found->second.socket;
    const auto take = [&](const AppNotice& notice) { TakeNotice(key, notice); };
    if (!socket.Read({key.app, found->second.leader}, take)) {
        loop_.Remove(socket.Fd());
        deadlines_.Arm(DeadlineKind::REPORTS, key, static_cast<uint32_t>(AppSocket::kShareTime.count()));
    }
}

void ProcessHost::OnDeadline(const DeadlineKey& deadline) {
    if (deadline.first == DeadlineKind::PULSE) {
        hearts_.Pulse();
        return;
    }
    const auto found = processes_.find(deadline.second);
    const bool isReports = deadline.first == DeadlineKind::REPORTS;
    if (isReports && found != processes_.end() && !WatchSocket(deadline.second, found->second)) {
        PROCMGRD_LOG(kLogError, "owner %s: application %s can't report any more: %s", deadline.second.owner.c_str(),
                     deadline.second.app.c_str(), std::strerror(errno));
    }
}

void ProcessHost::TakeNotice(const AppKey& key, const AppNotice& notice) {
    Process& process = processes_.at(key);
    if (notice.status && *notice.status != process.status) {
        process.status = *notice.status;
        PROCMGRD_LOG(kLogInfo, "owner %s: application %s (pid %d) says: %s", key.owner.c_str(), key.app.c_str(),
                     process.leader.pid, process.status.c_str());
    }
    if (notice.isBeat) {
        hearts_.Beat(key, Clock::now());
    }
    if (notice.appState) {
        TakeState(key, *notice.appState);
    }
}

void ProcessHost::TakeState(const AppKey& key, uint32_t appState) {
    Process& process = processes_.at(key);
    if (process.isSelfReporting) {
        news_.reported(key, appState);
    } else if (std::exchange(process.appState, appState) != appState) {
        PROCMGRD_LOG(kLogInfo,
                     "owner %s: application %s says that it is %s; nobody waits for that, since its manifest has no "
                     "is_reporting",
                     key.owner.c_str(), key.app.c_str(), appState == 0 ? "ready" : "stopping");
    }
}

void ProcessHost::TermTree(const AppKey& key) {
    toTerm_.insert(key);
}

void ProcessHost::KillTree(const AppKey& key) {
    toKill_.insert(key);
}

void ProcessHost::RunsOn(const AppKey& key) {
    const auto found = processes_.find(key);
    if (found != processes_.end()) {
        found->second.wasToldToEnd = false;
    }
}

bool ProcessHost::HasOnlyLeftovers(const AppKey& key) const {
    const auto found = processes_.find(key);
    return found != processes_.end() && found->second.hasEnded;
}

void ProcessHost::NoteEnd(const AppKey& key) {
    Process& process = processes_.at(key);
    process.hasEnded = true;
    process.endedAt = Clock::now();
    loop_.Remove(process.pidfd.Get());
    ended_.insert(key);
}

void ProcessHost::EndTurn() {
    SendSignals(toTerm_, SIGTERM);
    SendSignals(toKill_, SIGKILL);
    if (hasChildNews_) {
        hasChildNews_ = false;
        ReapOrphans();
    }
    EndProcesses();
}

ProcMgr::TreeRoot ProcessHost::RootOf(const AppKey& key, const Process& process) const {
    return {process.leader, key.app, key.owner, settings_.runDir};
}

void ProcessHost::SendSignals(std::set<AppKey>& keys, int signalNumber) {
    std::vector<ProcMgr::TreeRoot> roots;
    for (const AppKey& key : std::exchange(keys, {})) {
        const auto found = processes_.find(key);
        if (found == processes_.end()) {
            continue;
        }
        Process& process = found->second;
        process.wasToldToEnd = true;
        if (signalNumber == SIGKILL) {
            BeginKilling(process);
        }
        roots.push_back(RootOf(key, process));
    }
    if (!roots.empty()) {
        ProcMgr::SignalTrees(roots, signalNumber, leaders_);
    }
}

void ProcessHost::BeginKilling(Process& process) {
    if (!process.isKilling) {
        process.isKilling = true;
        process.killedAt = Clock::now();
    }
}

// Asking for any child costs little as long as only orphans have ended. A leader that waits for its leftovers would be
// named again and again; then the children are asked one by one.
void ProcessHost::ReapOrphans() {
    siginfo_t info{};
    while (waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid != 0) {
        if (leaders_.count(info.si_pid) != 0) {
            break;
        }
        static_cast<void>(waitpid(info.si_pid, nullptr, WNOHANG));
        info = {};
    }
    if (info.si_pid == 0) {
        return;
    }
    for (const pid_t child : OwnChildren()) {
        if (leaders_.count(child) == 0) {
            static_cast<void>(waitpid(child, nullptr, WNOHANG));
        }
    }
}

void ProcessHost::EndProcesses() {
    std::vector<AppKey> gone;
    for (const AppKey& key : ended_) {
        if (IsTreeGone(key, processes_.at(key))) {
            gone.push_back(key);
        }
    }
    if (!gone.empty()) {
        ReapOrphans();
    }
    const bool mustWait = !gone.empty() && HasDyingOrphan();
    for (const AppKey& key : gone) {
        if (!mustWait || IsOutOfPatience(processes_.at(key))) {
            Finish(key);
        }
    }
    if (ended_.empty()) {
        deadlines_.Disarm(DeadlineKind::LEFTOVERS, kAllApps);
    } else {
        deadlines_.Arm(DeadlineKind::LEFTOVERS, kAllApps, kLeftoverLookMs);
    }
}

bool ProcessHost::IsTreeGone(const AppKey& key, Process& process) {
    constexpr int kOnlyAsk = 0;
    if (!process.wasToldToEnd) {
        BeginKilling(process);
    }
    const int signalNumber = process.isKilling ? SIGKILL : kOnlyAsk;
    if (ProcMgr::SignalTree(RootOf(key, process), signalNumber, leaders_).empty()) {
        return true;
    }
    if (process.isKilling && Clock::now() - process.killedAt > kLeftoverPatience) {
        PROCMGRD_LOG(kLogError, "owner %s: application %s: a process of it does not die; it is given up",
                     key.owner.c_str(), key.app.c_str());
        return true;
    }
    return false;
}

// A process in the midst of its end has lost the memory by which its tree is known, but still holds its files. It will
// be reaped within moments; whose it is can't be told, so that everybody waits for it.
bool ProcessHost::HasDyingOrphan() const {
    const std::vector<pid_t> children = OwnChildren();
    return std::any_of(children.begin(), children.end(),
                       [this](pid_t child) { return leaders_.count(child) == 0 && IsDying(child); });
}

bool ProcessHost::IsOutOfPatience(const Process& process) {
    return Clock::now() - process.endedAt > kLeftoverPatience;
}

void ProcessHost::Finish(const AppKey& key) {
    const auto found = processes_.find(key);
    if (found->second.socket) {
        found->second.socket->ReadRest({key.app, found->second.leader},
                                       [&](const AppNotice& notice) { TakeNotice(key, notice); });
        deadlines_.Disarm(DeadlineKind::REPORTS, key);
    }
    hearts_.Gone(key);
    if (!found->second.status.empty()) {
        PROCMGRD_LOG(kLogInfo, "owner %s: application %s ended; the last that it said: %s", key.owner.c_str(),
                     key.app.c_str(), found->second.status.c_str());
    }
    Process process = std::move(found->second);
    processes_.erase(found);
    ended_.erase(key);
    Unwatch(process);
    const ExitStatus status = ReapLeader(process.pidfd);
    NoteExit(key, process, status);
    leaders_.erase(process.leader.pid);
    stateFile_.Remove(process.leader);
    process = {};
    news_.exited(key, status);
}

void ProcessHost::NoteExit(const AppKey& key, const Process& process, ExitStatus status) {
    ProcMgr::Timeline::Event event = EventOf(EventKind::EXITED, key.app, static_cast<uint64_t>(process.leader.pid));
    (status.isSignal ? event.signal : event.code) = static_cast<uint64_t>(status.value);
    timelines_.Note(key.owner, std::move(event));
}

}  // namespace Procmgrd
