#include "daemons/grpownerd/owner_process.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <system_error>
#include <thread>

#include "daemons/grpownerd/event_printer.h"
#include "daemons/grpownerd/owner_news.h"
#include "daemons/service/ready_descriptor.h"
#include "daemons/service/service_notice.h"
#include "include/procmgr_grp_owner.h"
#include "include/ss_to_owner_server.h"
#include "platform/include/owner_link.h"

namespace {

using ProcMgr::AppReportState;
using ProcMgr::ProcMgrGrpOwner;

// The platform's threads may call at any time until the process is gone: these two are never destroyed.
EventPrinter& Printer() {
    static EventPrinter& printer = *new EventPrinter;
    return printer;
}

OwnerNews& News() {
    static OwnerNews& news = *new OwnerNews;
    return news;
}

const char* EventName(AppReportState state) {
    static constexpr const char* kNames[] = {"SWITCH_ON",           "SWITCH_OFF",    "HEART_BEAT_LOST",
                                             "HEART_BEAT_RECOVERY", "ABNORMAL_EXIT", "ACTIVELY_EXIT"};
    const auto index = static_cast<size_t>(state);
    return index < std::size(kNames) ? kNames[index] : "UNKNOWN";
}

bool OnAppState(const std::string& name, int pid, AppReportState state) {
    Printer().Print(EventName(state), name, pid);
    return true;
}

bool OnSystemState(int state, int timeoutMs) {
    Printer().Say("SYSTEM_STATE", std::to_string(state) + ", within " + std::to_string(timeoutMs) + " ms");
    return true;
}

constexpr int kNotReadYet = 0xF10001;

bool OnSystemStateAsEvent(int state, int timeoutMs) {
    const bool taken = OnSystemState(state, timeoutMs);
    const int result = SsToOwnerServer::GetInstance().ReportSysEvent({static_cast<uint32_t>(state)});
    // Whoever has opened the queue and does not read it yet has no right to what is told now.
    if (result != 0 && result != kNotReadYet) {
        Printer().Say("EVENT_LOST", std::to_string(state) + ", for at least one reader; syslog says why");
    }
    return taken;
}

void OnAppReport(const char* name, size_t nameLen, int pid, uint32_t state) {
    const std::string app(name, nameLen);
    const bool on = state == 0;
    Printer().Print(on ? "REPORTED_READY" : "REPORTED_STOPPING", app, pid);
    ProcMgrGrpOwner::GetInstance().ReportAppStateFromApp(app, pid,
                                                         on ? AppReportState::SWITCH_ON : AppReportState::SWITCH_OFF);
}

void OnPipeLost(int /*fd*/) {
    News().SetPipeLost();
}

ProcMgr::GrpOwnerCfg Configuration(const OwnerOptions& options) {
    ProcMgr::GrpOwnerCfg cfg;
    cfg.startupEntryPath = options.entryPath;
    cfg.resFileName = options.resource;
    cfg.ssServerEnable = !options.resource.empty();
    return cfg;
}

bool Enable(const OwnerOptions& options) {
    ProcMgrGrpOwner& owner = ProcMgrGrpOwner::GetInstance();
    owner.GrpOwnerConfig(Configuration(options));
    owner.SubscribeAppState(OnAppState);
    owner.SubscribeSystemState(options.events.empty() ? OnSystemState : OnSystemStateAsEvent);
    return owner.GrpOwnerEnable() == 0;
}

// Behind the enabling, so that whatever kept it from taking charge stands where the log of a start is looked for.
bool OfferEvents(const std::string& queue) {
    const int error = queue.empty() ? 0 : SsToOwnerServer::GetInstance().InitSysEventServer(queue);
    if (error != 0) {
        static_cast<void>(std::fprintf(stderr, "grpownerd: cannot tell events on '%s': %s; see --events\n",
                                       queue.c_str(), std::generic_category().message(error).c_str()));
    }
    return error == 0;
}

void Boot(const OwnerOptions& options) {
    if (!Enable(options)) {
        News().SetBoot(BootState::FAILED);
        return;
    }
    ProcMgrGrpOwner& owner = ProcMgrGrpOwner::GetInstance();
    if (!OfferEvents(options.events)) {
        owner.GrpOwnerDisable();
        News().SetBoot(BootState::FAILED);
        return;
    }
    News().SetBoot(BootState::STARTING);
    const bool allStarted = owner.StartAutoStartApp();
    owner.ReportSelfStateToPm(true);
    News().SetBoot(allStarted ? BootState::UP : BootState::PARTLY_UP);
}

int BlockAndOpenSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

void SayIfUntold(int error, const std::string& whom) {
    if (error != 0) {
        static_cast<void>(std::fprintf(stderr, "grpownerd: cannot tell %s that the group is up: %s\n", whom.c_str(),
                                       std::generic_category().message(error).c_str()));
    }
}

/// Who started this process, and how he is told that the group is up.
struct Starter {
    ServiceNotice service;
    int readyDescriptor = -1;
};

void SayUp(const std::string& event, const std::string& text, Starter& starter) {
    Printer().Say(event, text);
    SayIfUntold(starter.service.Ready(text), starter.service.Address() + ", the address in NOTIFY_SOCKET,");
    SayIfUntold(TellReadyDescriptor(starter.readyDescriptor), "the descriptor of --ready-fd");
}

void SayBoot(BootState state, Starter& starter) {
    switch (state) {
        case BootState::STARTING:
            return starter.service.Status("starting the auto-boot applications");
        case BootState::UP:
            return SayUp("UP", "every auto-boot application runs", starter);
        case BootState::PARTLY_UP:
            return SayUp("PARTLY_UP", "not every auto-boot application runs; the log says which and why", starter);
        case BootState::FAILED:
            static_cast<void>(std::fprintf(
                stderr,
                "grpownerd: cannot take charge of the group. The log says why; check that procmgrd runs on the "
                "same PROCMGR_RUN_DIR, that this user may connect to it, and that the manifests exist\n"));
            return;
        default:
            return;
    }
}

// While the boot is under way its thread is inside the library, whose objects must then not be destroyed under it.
[[noreturn]] void LeaveDuringBoot(int exitCode) {
    std::_Exit(exitCode);
}

int End(int exitCode, std::thread& boot) {
    const BootState state = News().Boot();
    if (state == BootState::CONNECTING || state == BootState::STARTING) {
        LeaveDuringBoot(exitCode);
    }
    boot.join();
    ProcMgrGrpOwner& owner = ProcMgrGrpOwner::GetInstance();
    if (exitCode == kEnded) {
        owner.ReportSelfStateToPm(false);
    }
    owner.GrpOwnerDisable();
    return exitCode;
}

int WaitForTheEnd(int signalDescriptor, std::thread& boot, Starter& starter) {
    BootState told = BootState::CONNECTING;
    for (;;) {
        pollfd descriptors[] = {{signalDescriptor, POLLIN, 0}, {News().Descriptor(), POLLIN, 0}};
        if (poll(descriptors, std::size(descriptors), starter.service.BeatIfDue()) < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
        if ((descriptors[0].revents & POLLIN) != 0) {
            Printer().Say("ENDING", "asked to end; the applications stay with the process manager");
            starter.service.Stopping("asked to end");
            return End(kEnded, boot);
        }
        News().Drain();
        if (News().IsPipeLost()) {
            static_cast<void>(
                std::fprintf(stderr,
                             "grpownerd: the connection to the process manager is lost; start procmgrd again, "
                             "then grpownerd\n"));
            starter.service.Stopping("the connection to the process manager is lost");
            return End(kPipeLost, boot);
        }
        const BootState state = News().Boot();
        if (state != told) {
            told = state;
            SayBoot(state, starter);
        }
        if (state == BootState::FAILED) {
            boot.join();
            return kNotEnabled;
        }
    }
}

}  // namespace

int RunOwner(const OwnerOptions& options) {
    // Whoever reads what is printed may go; the group stays.
    static_cast<void>(std::signal(SIGPIPE, SIG_IGN));
    const int signals = BlockAndOpenSignals();
    if (signals < 0) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    setenv("PROC_NAME", options.name.c_str(), 1);
    Starter starter{ServiceNotice(), options.readyDescriptor};
    OwnerSetAppReportHandler(OnAppReport);
    OwnerSetPipeLostHandler(OnPipeLost);
    Printer().Say("CONNECTING", "as owner '" + options.name + "' to the process manager");
    starter.service.Status("connecting to the process manager");
    News();
    std::thread boot(Boot, options);
    const int exitCode = WaitForTheEnd(signals, boot, starter);
    close(signals);
    return exitCode;
}
