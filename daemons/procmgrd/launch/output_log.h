/// What applications write to standard output and error.
///
/// An application writes into a pipe; the daemon's loop drains it and hands whole lines to the application's log. The
/// daemon never stops draining, so the application is never held up for longer than a turn of the loop: when lines
/// cannot be written (disk full, disk slow, the daemon's own output stuck) they are dropped and counted, and the next
/// line that can be written is preceded by "[procmgrd: <n> lines dropped]".
///
/// Single-threaded: everything here belongs to the loop's thread. The daemon ignores SIGPIPE (its own output can be a
/// pipe whose reader is gone).
#ifndef PROCMGR_DAEMONS_PROCMGRD_LAUNCH_OUTPUT_LOG_H
#define PROCMGR_DAEMONS_PROCMGRD_LAUNCH_OUTPUT_LOG_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/posix/common_posix/unique_fd.h"

namespace ProcMgr {

/// A file name for any application name, different for different names: letters, digits and "_@.-" stay, every other
/// byte (and a leading dot) becomes %XX; a very long name ends in a hash.
std::string FileSafeName(const std::string& appName);

struct OutputLogOptions {
    std::string directory;                      ///< must exist; empty: lines go to `daemonFd`, each after "<name>: "
    size_t maxFileBytes = size_t{1024} * 1024;  ///< a file that would grow beyond becomes <name>.log.1
    unsigned rotatedFiles = 2;                  ///< <name>.log.1 up to this number are kept
    int daemonFd = 2;                           ///< stays the caller's
    size_t maxLineBytes = 4000;                 ///< longer lines are cut into several
    std::chrono::milliseconds slowWrite{200};   ///< a write that takes longer counts as slow
    std::chrono::milliseconds slowPause{1000};  ///< how long lines are dropped after a slow write
    /// The steady clock; replaced by tests.
    std::function<std::chrono::steady_clock::time_point()> now;
};

/// The log of one application, over all its starts.
class OutputLog {
public:
    OutputLog(const std::string& appName, OutputLogOptions options);

    /// Writes `lines`, each ended by a newline, or counts them as dropped. No lines: only tells what was dropped.
    void Write(std::string_view lines);

    /// Lines dropped since the start; includes those already told.
    uint64_t DroppedLines() const { return dropped_; }
    size_t MaxLineBytes() const { return options_.maxLineBytes; }
    /// <directory>/<name>.log; empty without a directory.
    const std::string& Path() const { return path_; }

private:
    void WriteToFile(std::string_view lines);
    void WriteToDaemon(std::string_view lines);
    std::string_view WriteWholeLines(std::string_view lines);
    size_t RoomInFile() const;
    bool OpenFile();
    bool Rotate();
    size_t WriteSome(std::string_view text);
    void Drop(std::string_view lines);
    std::string DropNotice() const;
    std::chrono::steady_clock::time_point Now() const;

    const OutputLogOptions options_;
    const std::string safeName_;
    const std::string path_;
    UniqueFd file_;
    size_t fileBytes_ = 0;
    bool lineIsOpen_ = false;  ///< the last write ended inside a line
    uint64_t dropped_ = 0;
    uint64_t told_ = 0;
    std::chrono::steady_clock::time_point pauseUntil_{};
};

/// The pipe of one start of an application. Its process and that process's children hold the other end, so it can
/// outlive the process; it is done when Drain says so.
class OutputPipe {
public:
    enum class State {
        OPEN,    ///< nothing more for now
        MORE,    ///< the turn's share was read, more may be there (a level-triggered loop comes back by itself)
        CLOSED,  ///< every writer is gone and everything was read: remove it from the loop and drop it
    };

    /// Null when no pipe could be made; `error` then says why (errno).
    static std::unique_ptr<OutputPipe> Create(std::shared_ptr<OutputLog> log, int& error);
    ~OutputPipe();

    /// Non-blocking; for the loop.
    int ReadFd() const { return readEnd_.Get(); }
    /// For LaunchRequest::outputFd.
    int WriteFd() const { return writeEnd_.Get(); }
    /// Call after Launch, whatever it said: CLOSED is never seen as long as the daemon itself holds this end.
    void CloseWriteEnd() { writeEnd_.Reset(); }

    /// Reads what is there, at most kShareBytes per call, and passes whole lines to the log. At the end of the stream
    /// a last line without a newline is passed too.
    State Drain();

    static constexpr size_t kShareBytes = size_t{256} * 1024;

    OutputPipe(const OutputPipe&) = delete;
    OutputPipe& operator=(const OutputPipe&) = delete;

private:
    OutputPipe(std::shared_ptr<OutputLog> log, UniqueFd readEnd, UniqueFd writeEnd);
    void Take(std::string_view bytes);
    void Flush();

    const std::shared_ptr<OutputLog> log_;
    UniqueFd readEnd_;
    UniqueFd writeEnd_;
    std::string partial_;  ///< the begin of a line; shorter than the longest line
};

}  // namespace ProcMgr

#endif
