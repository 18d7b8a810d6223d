/// Decides what happens to every application of every owner; does nothing itself. Each event returns the actions that
/// the daemon has to carry out, in order. The states are those of process_machine.h. An application that is DOWN is
/// forgotten, so that the instances of a template leave nothing behind: what is asked about it later is answered as for
/// one that nobody knows.
///
/// Not synchronised: one loop, one thread.
#ifndef PROCMGR_PROCMGRD_SUPERVISOR_H
#define PROCMGR_PROCMGRD_SUPERVISOR_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "common/enumerations.h"
#include "daemons/procmgrd/process_machine.h"
#include "pm_agent/message_records.h"

namespace Procmgrd {

/// An application is known by its owner's name and its own.
struct AppKey {
    std::string owner;
    std::string app;

    bool operator<(const AppKey& other) const { return std::tie(owner, app) < std::tie(other.owner, other.app); }
    bool operator==(const AppKey& other) const { return owner == other.owner && app == other.app; }
};

/// What one start or restart asks for.
struct AppRequest {
    bool isRestart = false;
    std::vector<std::string> argv;  ///< empty: the arguments of the manifest
    ProcMgr::Message::DynamicPara dynamicPara;
};

/// How an application is to be ended.
struct StopRule {
    uint32_t termTimeOutMs = 5000;
    bool isForced = true;
};

/// The reason of an abnormal exit, as reports carry it. 1 is EIO for every owner; the others are this daemon's.
enum class ExitReason : uint32_t {
    OTHER = 0,
    IO_ERROR = 1,            ///< the program could not be executed: EIO
    NOT_FOUND = 2,           ///< the program does not exist
    NOT_PERMITTED = 3,       ///< the program may not be executed
    KILLED_BY_SIGNAL = 4,    ///< it ran and was ended by a signal
    FAILED = 5,              ///< it ran and ended with an exit code other than 0
    ATTRIBUTE_NOT_HELD = 6,  ///< an attribute that must hold could not be applied
    UNKNOWN_APP = 7,         ///< no manifest of the owner describes it
    REFUSED = 8,             ///< the owner may not run it like that, above all not under that user or group
    STOPPING = 9,            ///< the process manager is being stopped
    NO_RESOURCES = 10,       ///< no process, memory or descriptor was left
    NOT_A_PROGRAM = 11,      ///< the file is not a program that this machine can run
};

/// Why a launch failed or a process ended. `detail` is the errno, the signal or the exit code that belongs to it.
struct ExitNote {
    ExitReason reason = ExitReason::OTHER;
    uint32_t detail = 0;
};

/// As the kernel tells it: the exit code, or the signal when `isSignal`.
struct ExitStatus {
    bool isSignal = false;
    int value = 0;
};

struct Action {
    enum class Kind : uint8_t { LAUNCH, TERM_TREE, KILL_TREE, ARM_DEADLINE, DISARM_DEADLINE, REPORT, APP_REPORT };

    Kind kind;
    AppKey key;
    AppRequest request;                     ///< LAUNCH
    uint32_t delayMs = 0;                   ///< ARM_DEADLINE
    ProcMgr::Message::AppStateInfo report;  ///< REPORT
    pid_t pid = 0;                          ///< APP_REPORT: the application's process
    uint32_t appState = 0;                  ///< APP_REPORT: 0 on, 1 off
};

using Actions = std::vector<Action>;

class Supervisor {
public:
    /// Requests of the owner. `rule` holds for the next time the application is told to end.
    [[nodiscard]] Actions Start(const AppKey& key, AppRequest request, StopRule rule);
    [[nodiscard]] Actions Terminate(const AppKey& key);

    /// The two ends of a LAUNCH. `pid` is positive.
    [[nodiscard]] Actions Started(const AppKey& key, pid_t pid);
    [[nodiscard]] Actions LaunchFailed(const AppKey& key, ExitNote why);

    /// The process and all that it left behind are gone.
    [[nodiscard]] Actions Exited(const AppKey& key, ExitStatus status);

    /// The deadline of the last ARM_DEADLINE passed.
    [[nodiscard]] Actions DeadlinePassed(const AppKey& key);

    /// The application told about itself: 0 on, 1 off. What it told before is no news.
    [[nodiscard]] Actions Reported(const AppKey& key, uint32_t appState);

    /// DOWN for one that was never heard of.
    ProcessState StateOf(const AppKey& key) const;

    /// For a state query: 0 running, 1 not running, 2 in transition.
    uint32_t QueryState(const AppKey& key) const;

    /// The applications of an owner that are not DOWN.
    std::vector<std::string> LiveAppsOf(const std::string& owner) const;

    /// All that are not DOWN.
    std::vector<AppKey> LiveApps() const;

    /// How many are remembered.
    size_t Size() const { return records_.size(); }

private:
    struct Record {
        ProcessState state = ProcessState::DOWN;
        pid_t pid = 0;  ///< of the last process; 0 before the first
        StopRule rule;
        bool launchedByRestart = false;
        AppRequest next;            ///< decides the next launch
        bool hasReported = false;   ///< the process that is running told about itself
        uint32_t appState = 0;      ///< what it told
        bool exitIsNormal = true;   ///< of the exit that is being handled
        ExitNote exitNote;          ///< of it, or of the failed launch
        AppRequest offeredRequest;  ///< comes with the event; kept where the table says so
        uint32_t offeredState = 0;
    };

    Actions Step(const AppKey& key, ProcessEvent event);
    static void Do(Verb verb, const AppKey& key, Record& record, Actions& actions);
    static void Tell(Verb verb, const AppKey& key, const Record& record, Actions& actions);

    std::map<AppKey, Record> records_;
};

}  // namespace Procmgrd

#endif
