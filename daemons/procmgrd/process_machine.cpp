#include "daemons/procmgrd/process_machine.h"

namespace Procmgrd {
namespace {

using S = ProcessState;
using V = Verb;
using Row = std::array<ProcessStep, kProcessEvents>;

// The columns are the events in their order: START, RESTART, TERM, STARTED, LAUNCH_FAILED, EXITED, FORCED_DEADLINE,
// SOFT_DEADLINE, APP_REPORT.
constexpr std::array<Row, kProcessStates> kTable = {{
    // DOWN
    {{
        {S::STARTING, {V::NOTE_REQUEST, V::LAUNCH}},
        {S::STARTING, {V::NOTE_REQUEST, V::LAUNCH}},
        {S::DOWN, {V::TELL_STOPPED}},
        {S::DOWN, {}},
        {S::DOWN, {}},
        {S::DOWN, {}},
        {S::DOWN, {}},
        {S::DOWN, {}},
        {S::DOWN, {}},
    }},
    // STARTING
    {{
        {S::STARTING, {}},
        {S::STARTING_THEN_RESTART, {V::NOTE_REQUEST}},
        {S::STARTING_THEN_TERM, {}},
        {S::RUNNING, {V::TELL_STARTED, V::PASS_REPORT}},
        {S::DOWN, {V::TELL_LAUNCH_FAILED}},
        {S::STARTING, {}},
        {S::STARTING, {}},
        {S::STARTING, {}},
        {S::STARTING, {V::NOTE_REPORT}},
    }},
    // STARTING_THEN_TERM
    {{
        {S::STARTING_THEN_RESTART, {V::NOTE_REQUEST}},
        {S::STARTING_THEN_RESTART, {V::NOTE_REQUEST}},
        {S::STARTING_THEN_TERM, {}},
        {S::TERMINATING, {V::TELL_STARTED, V::TERM_TREE}},
        {S::DOWN, {V::TELL_STOPPED}},
        {S::STARTING_THEN_TERM, {}},
        {S::STARTING_THEN_TERM, {}},
        {S::STARTING_THEN_TERM, {}},
        {S::STARTING_THEN_TERM, {V::NOTE_REPORT}},
    }},
    // STARTING_THEN_RESTART
    {{
        {S::STARTING_THEN_RESTART, {}},
        {S::STARTING_THEN_RESTART, {V::NOTE_REQUEST}},
        {S::STARTING_THEN_TERM, {}},
        {S::REPLACING, {V::TELL_STARTED, V::TERM_TREE}},
        {S::STARTING, {V::LAUNCH}},
        {S::STARTING_THEN_RESTART, {}},
        {S::STARTING_THEN_RESTART, {}},
        {S::STARTING_THEN_RESTART, {}},
        {S::STARTING_THEN_RESTART, {}},
    }},
    // RUNNING
    {{
        {S::RUNNING, {V::TELL_RUNNING, V::PASS_REPORT}},
        {S::REPLACING, {V::NOTE_REQUEST, V::TERM_TREE}},
        {S::TERMINATING, {V::TERM_TREE}},
        {S::RUNNING, {}},
        {S::RUNNING, {}},
        {S::DOWN, {V::TELL_EXIT}},
        {S::RUNNING, {}},
        {S::RUNNING, {}},
        {S::RUNNING, {V::NOTE_REPORT, V::PASS_REPORT}},
    }},
    // TERMINATING
    {{
        {S::TERMINATING_THEN_START, {V::NOTE_REQUEST}},
        {S::TERMINATING_THEN_START, {V::NOTE_REQUEST}},
        {S::TERMINATING, {}},
        {S::TERMINATING, {}},
        {S::TERMINATING, {}},
        {S::DOWN, {V::DISARM, V::TELL_STOPPED}},
        {S::TERMINATING, {V::KILL_TREE}},
        {S::RUNNING, {V::TELL_TIMEOUT}},
        {S::TERMINATING, {V::NOTE_REPORT, V::PASS_REPORT}},
    }},
    // TERMINATING_THEN_START
    {{
        {S::TERMINATING_THEN_START, {V::NOTE_REQUEST}},
        {S::TERMINATING_THEN_START, {V::NOTE_REQUEST}},
        {S::TERMINATING, {}},
        {S::TERMINATING_THEN_START, {}},
        {S::TERMINATING_THEN_START, {}},
        {S::STARTING, {V::DISARM, V::TELL_STOPPED, V::LAUNCH}},
        {S::TERMINATING_THEN_START, {V::KILL_TREE}},
        {S::RUNNING, {V::TELL_TIMEOUT, V::TELL_RUNNING, V::PASS_REPORT}},
        {S::TERMINATING_THEN_START, {V::NOTE_REPORT, V::PASS_REPORT}},
    }},
    // REPLACING: the old process's word about itself would be taken for the new one's, so it is dropped.
    {{
        {S::REPLACING, {}},
        {S::REPLACING, {V::NOTE_REQUEST}},
        {S::TERMINATING, {}},
        {S::REPLACING, {}},
        {S::REPLACING, {}},
        {S::STARTING, {V::DISARM, V::LAUNCH}},
        {S::REPLACING, {V::KILL_TREE}},
        {S::RUNNING, {V::TELL_TIMEOUT}},
        {S::REPLACING, {}},
    }},
}};

}  // namespace

const ProcessStep& StepOf(ProcessState state, ProcessEvent event) {
    return kTable[static_cast<size_t>(state)][static_cast<size_t>(event)];
}

}  // namespace Procmgrd
