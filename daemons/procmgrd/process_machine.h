/// The life of one application's process as the process manager sees it: a table of states and events, without any
/// input or output. The supervisor keeps one state for each application and does what the table says.
///
/// States. An application has at most one process at any time, and the state says where that process stands:
///
///     DOWN                    there is no process
///     STARTING                a launch is under way; whether the program could be executed is not known yet
///     STARTING_THEN_TERM      as STARTING, and a termination was asked for meanwhile
///     STARTING_THEN_RESTART   as STARTING, and a restart was asked for meanwhile
///     RUNNING                 the program was executed and has not ended
///     TERMINATING             it was told to end
///     TERMINATING_THEN_START  as TERMINATING, and a start or restart was asked for meanwhile
///     REPLACING               it was told to end, to make room for the one that a restart asked for
///
/// Events. START, RESTART and TERM come from the owner (a TERM also from the process manager itself, when it stops or
/// when an owner went away). STARTED and LAUNCH_FAILED are the two ends of a launch. EXITED comes when the process and
/// everything it left behind are gone. The deadline that a TERM_TREE arms passes as FORCED_DEADLINE when the manifest
/// allows force, otherwise as SOFT_DEADLINE. APP_REPORT is the application's word about itself.
///
/// What holds in every cell:
///  - a launch begins only in DOWN or after EXITED, so that there are never two processes of one application;
///  - each request is answered: at once, or by the outcome of what is under way. Where several requests meet during one
///    transition the newest decides, and its answer is the answer to all of them;
///  - an exit that was asked for is told as a normal one, however it ended; the exit that a restart needs is not told;
///  - after SOFT_DEADLINE the process counts as running again, so that a later exit is one that nobody asked for;
///  - an event that can't happen in a state changes nothing.
#ifndef PROCMGR_PROCMGRD_PROCESS_MACHINE_H
#define PROCMGR_PROCMGRD_PROCESS_MACHINE_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace Procmgrd {

enum class ProcessState : uint8_t {
    DOWN,
    STARTING,
    STARTING_THEN_TERM,
    STARTING_THEN_RESTART,
    RUNNING,
    TERMINATING,
    TERMINATING_THEN_START,
    REPLACING,
};
inline constexpr size_t kProcessStates = 8;

enum class ProcessEvent : uint8_t {
    START,
    RESTART,
    TERM,
    STARTED,
    LAUNCH_FAILED,
    EXITED,
    FORCED_DEADLINE,
    SOFT_DEADLINE,
    APP_REPORT,
};
inline constexpr size_t kProcessEvents = 9;

/// What is to be done for an event, in the order in which a step lists it.
enum class Verb : uint8_t {
    NONE,
    NOTE_REQUEST,        ///< keep this request, it decides the next launch
    LAUNCH,              ///< launch what the kept request says
    TERM_TREE,           ///< SIGTERM to all of the process's tree, and arm the deadline
    KILL_TREE,           ///< SIGKILL to all of it
    DISARM,              ///< the deadline is no longer wanted
    TELL_STARTED,        ///< answer the launch: started or restarted
    TELL_RUNNING,        ///< answer a start: it runs already; with what it reported about itself
    TELL_LAUNCH_FAILED,  ///< answer the launch: abnormal exit with the reason
    TELL_STOPPED,        ///< normal exit
    TELL_EXIT,           ///< exit that nobody asked for, normal or abnormal by its status
    TELL_TIMEOUT,        ///< the termination timed out
    NOTE_REPORT,         ///< keep the application's report
    PASS_REPORT,         ///< pass the kept report on
};

struct ProcessStep {
    ProcessState next;
    std::array<Verb, 3> verbs;
};

/// The table's cell.
const ProcessStep& StepOf(ProcessState state, ProcessEvent event);

}  // namespace Procmgrd

#endif
