/// What the process manager writes down about the starts of an owner's applications. The layout is described in
/// docs/process-manager.md. Pure.
#ifndef PROCMGR_PLATFORM_POSIX_TIMELINE_TIMELINE_EVENT_H
#define PROCMGR_PLATFORM_POSIX_TIMELINE_TIMELINE_EVENT_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ProcMgr::Timeline {

enum class EventKind : uint8_t {
    CAME,      ///< the owner connected: owner, pid, uid
    LOADED,    ///< its manifests were read: path, good
    MANIFEST,  ///< one of them: app, boot, reports, depends
    ASKED,     ///< a start or restart was asked for: app, request, restart
    FORKED,    ///< it has a process: app, pid
    RUNNING,   ///< its program is executed, or it ran already, and the owner was told: app, pid
    READY,     ///< it said so itself: app, pid
    FAILED,    ///< it was not started: app, reason, detail
    ENDING,    ///< it is to end: app
    EXITED,    ///< it has no process any more: app, pid, code, signal
    SERVICES,  ///< the owner told the state of its base services: state
    LEFT,      ///< the owner is gone
};
inline constexpr size_t kEventKinds = 12;

/// What one has to tell besides its time; of the members those count that its kind names. No number is above 2^53.
struct Event {
    EventKind kind = EventKind::LEFT;
    uint64_t serial = 0;      ///< counts the events of a session from 1
    int64_t monotonicUs = 0;  ///< CLOCK_MONOTONIC
    int64_t wallUs = 0;       ///< since 1970, UTC

    std::string app;
    std::string owner;
    std::string path;
    std::vector<std::string> depends;  ///< the direct dependencies of a manifest
    uint64_t pid = 0;
    uint64_t uid = 0;
    uint64_t good = 0;     ///< 1, or 0 when nothing was taken
    uint64_t boot = 0;     ///< 1 when it is to be started at boot
    uint64_t reports = 0;  ///< 1 when it counts as running only after it said that it is ready
    uint64_t request = 0;  ///< numbers the messages of the owner that ask for starts
    uint64_t restart = 0;  ///< 1 for a restart
    uint64_t reason = 0;   ///< of a failure, as the owner is told
    uint64_t detail = 0;
    uint64_t code = 0;    ///< exit code; 0 after a signal
    uint64_t signal = 0;  ///< 0: ended by an exit code
    uint64_t state = 0;
};

/// An event of that kind about an application.
Event EventOf(EventKind kind, std::string app = {}, uint64_t pid = 0);

/// "asked", "forked", ...
const char* EventName(EventKind kind);

/// One line, with its newline.
std::string WriteHeader(const std::string& bootId);
std::string WriteEvent(const Event& event);

/// One file of a record.
struct RecordPart {
    std::string bootId;  ///< of the kernel
    std::vector<Event> events;
    uint64_t lastSerial = 0;  ///< also of events that were passed over, as is the next
    int64_t lastMonotonicUs = 0;
    bool isTorn = false;  ///< the file ends inside a line, which was left out
};

/// What is wrong with a file that is none of a record: a sentence without its full stop, and the line, from 1.
struct RecordFault {
    size_t line = 0;
    std::string text;
};

/// Reads a file. Events and keys that this version does not know are passed over, as is what stands behind the last
/// newline. False, with `fault` filled and `part` untouched, when a line is none of a record, the serials do not rise,
/// or the times go back.
[[nodiscard]] bool ReadPart(std::string_view text, RecordPart& part, RecordFault& fault);

}  // namespace ProcMgr::Timeline

#endif
