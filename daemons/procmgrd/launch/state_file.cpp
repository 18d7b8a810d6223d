#include "daemons/procmgrd/launch/state_file.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fstream>

namespace ProcMgr {
namespace {

using Clock = std::chrono::steady_clock;

constexpr mode_t kStateMode = 0600;
constexpr size_t kSpareLines = 64;  ///< lines of ended applications that a file may hold before it is rewritten

/// Whoever can write the file can name processes that the next daemon ends, so it must be ours or root's. Errno: ENOENT
/// when there is none, EPERM when it is not to be trusted.
UniqueFd OpenTrusted(const std::string& path, int& error) {
    UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status {};
    if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0) {
        error = errno == ELOOP ? EPERM : errno;
        return {};
    }
    const bool isOurs = status.st_uid == 0 || status.st_uid == ::geteuid();
    if (!S_ISREG(status.st_mode) || !isOurs || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        error = EPERM;
        return {};
    }
    return file;
}

std::string ReadTrusted(const std::string& path) {
    int ignored = 0;
    const UniqueFd file = OpenTrusted(path, ignored);
    std::string content;
    std::array<char, 4096> buffer{};
    while (file.IsOpen()) {
        const ssize_t length = ::read(file.Get(), buffer.data(), buffer.size());
        if (length <= 0) {
            break;
        }
        content.append(buffer.data(), static_cast<size_t>(length));
    }
    return content;
}

std::vector<Leftover> FindLiving(const std::vector<StateRecord>& records, const std::string& runDir,
                                 const std::string& procRoot) {
    std::vector<TreeRoot> roots;
    roots.reserve(records.size());
    for (const StateRecord& record : records) {
        roots.push_back({record.process, record.appName, record.owner, runDir});
    }
    auto trees = FindTrees(ReadProcessTable(procRoot), roots, procRoot);
    std::vector<Leftover> living;
    for (size_t i = 0; i < records.size(); ++i) {
        if (!trees[i].empty()) {
            living.push_back({records[i], std::move(trees[i])});
        }
    }
    return living;
}

/// False when the deadline passed first. One at a time, so that any number of processes needs one descriptor only.
bool AwaitEnd(const ProcessId& process, Clock::time_point deadline) {
    const UniqueFd pidfd = OpenProcess(process);
    while (pidfd.IsOpen()) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd waiting{pidfd.Get(), POLLIN, 0};
        const int ready = ::poll(&waiting, 1, static_cast<int>(std::max<int64_t>(left, 0)));
        if (ready > 0) {
            return true;
        }
        if (ready == 0) {
            return false;
        }
    }
    return true;
}

void Signal(const std::vector<Leftover>& leftovers, int signalNumber) {
    for (const Leftover& leftover : leftovers) {
        for (const ProcessId& process : leftover.processes) {
            SignalProcess(process, signalNumber);
        }
    }
}

bool AwaitAll(const std::vector<Leftover>& leftovers, Clock::time_point deadline) {
    bool allEnded = true;
    for (const Leftover& leftover : leftovers) {
        for (const ProcessId& process : leftover.processes) {
            allEnded = AwaitEnd(process, deadline) && allEnded;
        }
    }
    return allEnded;
}

bool WriteWhole(int file, const std::string& text, int& error) {
    const ssize_t length = ::write(file, text.data(), text.size());
    if (length == static_cast<ssize_t>(text.size())) {
        return true;
    }
    error = length < 0 ? errno : ENOSPC;
    return false;
}

}  // namespace

std::string ReadBootId(const std::string& procRoot) {
    std::ifstream file(procRoot + "/sys/kernel/random/boot_id");
    std::string id;
    file >> id;
    return id;
}

std::vector<Leftover> FindLeftovers(const std::string& path, const std::string& runDir, const std::string& procRoot) {
    std::vector<StateRecord> records;
    for (const auto& [process, record] : ReadStateText(ReadTrusted(path), ReadBootId(procRoot))) {
        records.push_back(record);
    }
    return FindLiving(records, runDir, procRoot);
}

std::vector<Leftover> EndLeftovers(const std::vector<Leftover>& leftovers, const std::string& runDir,
                                   const EndLeftoversLimits& limits) {
    std::vector<StateRecord> records;
    records.reserve(leftovers.size());
    for (const Leftover& leftover : leftovers) {
        records.push_back(leftover.record);
    }
    Signal(leftovers, SIGTERM);
    AwaitAll(leftovers, Clock::now() + limits.afterTerm);
    const auto deadline = Clock::now() + limits.afterKill;
    std::vector<Leftover> left = FindLiving(records, runDir, kProcRoot);
    while (!left.empty()) {
        Signal(left, SIGKILL);
        const bool allEnded = AwaitAll(left, deadline);
        left = FindLiving(records, runDir, kProcRoot);
        if (!allEnded || Clock::now() > deadline) {
            break;
        }
    }
    return left;
}

bool StateFile::Open(const std::string& path, int& error) {
    UniqueFd lock(::open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kStateMode));
    if (!lock.IsOpen()) {
        error = errno;
        return false;
    }
    // A record lock, because children do not inherit it: it ends with the daemon itself.
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    if (::fcntl(lock.Get(), F_SETLK, &whole) != 0) {
        error = errno == EACCES || errno == EAGAIN ? EWOULDBLOCK : errno;
        return false;
    }
    int found = 0;
    if (!OpenTrusted(path, found).IsOpen() && found != ENOENT) {
        error = found;
        return false;
    }
    path_ = path;
    lock_ = std::move(lock);
    return true;
}

bool StateFile::Clear(int& error) {
    records_.clear();
    return Rewrite(error);
}

bool StateFile::Add(const StateRecord& record, int& error) {
    if (!Append(StartLine(record), error)) {
        return false;
    }
    records_[record.process] = record;
    return true;
}

void StateFile::Remove(const ProcessId& process) {
    if (records_.erase(process) == 0) {
        return;
    }
    int ignored = 0;
    if (lines_ > kSpareLines + 2 * records_.size()) {
        Rewrite(ignored);
    } else {
        Append(EndLine(process), ignored);
    }
}

bool StateFile::Append(const std::string& line, int& error) {
    if (!file_.IsOpen()) {
        error = EBADF;
        return false;
    }
    const bool written = WriteWhole(file_.Get(), isTorn_ ? "\n" + line : line, error);
    isTorn_ = !written;
    lines_ += written ? 1 : 0;
    return written;
}

bool StateFile::Rewrite(int& error) {
    const std::string draft = path_ + ".new";
    // What lies there may be somebody else's; only a file that was made here is ours.
    static_cast<void>(::unlink(draft.c_str()));
    UniqueFd file(::open(draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, kStateMode));
    if (!file.IsOpen()) {
        error = errno;
        return false;
    }
    std::string content = StateHeader(ReadBootId(kProcRoot));
    for (const auto& [process, record] : records_) {
        content += StartLine(record);
    }
    if (!WriteWhole(file.Get(), content, error)) {
        return false;
    }
    if (std::rename(draft.c_str(), path_.c_str()) != 0) {
        error = errno;
        return false;
    }
    file_ = std::move(file);
    lines_ = records_.size();
    isTorn_ = false;
    return true;
}

}  // namespace ProcMgr
