#include "daemons/procmgrd/timeline_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace Procmgrd {
namespace {

constexpr mode_t kMode = S_IRUSR | S_IWUSR | S_IRGRP;

std::string Failure(const std::string& what, const std::string& path) {
    return "can't " + what + " " + path + ": " + std::strerror(errno);
}

/// The longest begin of `lines` that holds whole lines only and fits; empty when not even the first one does.
std::string_view WholeLines(std::string_view lines, size_t room) {
    const size_t last = lines.size() <= room ? lines.size() - 1 : lines.substr(0, room).rfind('\n');
    return lines.substr(0, last == std::string_view::npos ? 0 : last + 1);
}

}  // namespace

TimelineFile::TimelineFile(std::string folder, std::string header, gid_t reader, TimelineLimits limits)
    : folder_(std::move(folder)), header_(std::move(header)), reader_(reader), limits_(limits) {
}

bool TimelineFile::Begin(std::string& error) {
    static_cast<void>(unlink((folder_ + "/recent").c_str()));
    static_cast<void>(unlink((folder_ + "/recent.1").c_str()));
    static_cast<void>(std::rename((folder_ + "/boot").c_str(), (folder_ + "/before").c_str()));
    isBoot_ = true;
    return Make("boot", error);
}

// The folder is the daemon's, so that what lies there under that name is an old file of its own.
bool TimelineFile::Make(const char* name, std::string& error) {
    const std::string path = folder_ + "/" + name;
    static_cast<void>(unlink(path.c_str()));
    file_.Reset(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC | O_NOFOLLOW, kMode));
    if (!file_.IsOpen()) {
        error = Failure("make", path);
        return false;
    }
    // A daemon that is not root may not give it to the owner's group; then its own may read it.
    static_cast<void>(fchown(file_.Get(), static_cast<uid_t>(-1), reader_));
    static_cast<void>(fchmod(file_.Get(), kMode));
    bytes_ = 0;
    return Append(header_, error);
}

bool TimelineFile::Append(std::string_view text, std::string& error) {
    using Clock = std::chrono::steady_clock;
    const auto begin = Clock::now();
    const ssize_t length = write(file_.Get(), text.data(), text.size());
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
    if (length != static_cast<ssize_t>(text.size())) {
        errno = length < 0 ? errno : ENOSPC;
        error = Failure("write to a file in", folder_);
    } else if (took > limits_.slowWrite) {
        error = "writing to a file in " + folder_ + " took " + std::to_string(took.count()) + " ms";
    }
    if (!error.empty()) {
        file_.Reset();
        return false;
    }
    bytes_ += text.size();
    return true;
}

size_t TimelineFile::Room() const {
    const size_t limit = isBoot_ ? limits_.bootBytes : limits_.recentBytes;
    return limit - std::min(limit, bytes_);
}

bool TimelineFile::BeginRecent(std::string& error) {
    if (!std::exchange(isBoot_, false)) {
        static_cast<void>(std::rename((folder_ + "/recent").c_str(), (folder_ + "/recent.1").c_str()));
    }
    return Make("recent", error);
}

bool TimelineFile::Write(std::string_view lines, std::string& error) {
    while (file_.IsOpen() && !lines.empty()) {
        std::string_view piece = WholeLines(lines, Room());
        const bool isFresh = bytes_ <= header_.size() && !isBoot_;
        if (piece.empty() && isFresh) {
            lines.remove_prefix(std::min(lines.find('\n'), lines.size() - 1) + 1);
            continue;
        }
        if (piece.empty() ? !BeginRecent(error) : !Append(piece, error)) {
            return false;
        }
        lines.remove_prefix(piece.size());
    }
    return file_.IsOpen();
}

}  // namespace Procmgrd
