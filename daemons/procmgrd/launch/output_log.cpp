#include "daemons/procmgrd/launch/output_log.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace ProcMgr {
namespace {

constexpr size_t kLongestSafeName = 200;
constexpr mode_t kLogMode = 0640;

bool StaysInFileName(char byte) {
    const bool isLetter = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
    const bool isDigit = byte >= '0' && byte <= '9';
    return isLetter || isDigit || (byte != '\0' && std::strchr("_@.-", byte) != nullptr);
}

std::string HexOf(uint64_t value, int digits) {
    std::array<char, 17> text{};
    const int length =
        std::snprintf(text.data(), text.size(), "%0*llX", digits, static_cast<unsigned long long>(value));
    return {text.data(), static_cast<size_t>(length)};
}

uint64_t HashOf(std::string_view text) {
    uint64_t hash = 14695981039346656037ULL;
    for (const char byte : text) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 1099511628211ULL;
    }
    return hash;
}

size_t CountLines(std::string_view lines) {
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), '\n'));
}

/// The longest begin of `lines` that holds whole lines only and fits, but at least one line.
std::string_view WholeLines(std::string_view lines, size_t room) {
    const size_t lastInRoom = room == 0 ? std::string_view::npos : lines.substr(0, room).rfind('\n');
    const size_t end = lastInRoom != std::string_view::npos ? lastInRoom : lines.find('\n');
    return lines.substr(0, end == std::string_view::npos ? end : end + 1);
}

/// True when a write of up to PIPE_BUF bytes would not block.
bool TakesMore(int fd) {
    pollfd waiting{fd, POLLOUT, 0};
    return ::poll(&waiting, 1, 0) == 1 && (waiting.revents & POLLOUT) != 0;
}

}  // namespace

std::string FileSafeName(const std::string& appName) {
    std::string safe;
    for (const char byte : appName) {
        const bool stays = StaysInFileName(byte) && !(byte == '.' && safe.empty());
        safe += stays ? std::string(1, byte) : "%" + HexOf(static_cast<unsigned char>(byte), 2);
    }
    if (safe.size() <= kLongestSafeName) {
        return safe;
    }
    const std::string hash = "~" + HexOf(HashOf(appName), 16);
    return safe.substr(0, kLongestSafeName - hash.size()) + hash;
}

OutputLog::OutputLog(const std::string& appName, OutputLogOptions options)
    : options_(std::move(options)),
      safeName_(FileSafeName(appName)),
      path_(options_.directory.empty() ? std::string() : options_.directory + "/" + safeName_ + ".log") {
}

void OutputLog::Write(std::string_view lines) {
    const auto begin = Now();
    if (begin < pauseUntil_) {
        Drop(lines);
        return;
    }
    if (path_.empty()) {
        WriteToDaemon(lines);
    } else {
        WriteToFile(lines);
    }
    const auto end = Now();
    if (end - begin > options_.slowWrite) {
        pauseUntil_ = end + options_.slowPause;
    }
}

void OutputLog::WriteToFile(std::string_view lines) {
    const std::string notice = DropNotice();
    if (!notice.empty() && !WriteWholeLines(notice).empty()) {
        Drop(lines);
        return;
    }
    told_ = notice.empty() ? told_ : dropped_;
    Drop(WriteWholeLines(lines));
}

/// Piece by piece, as much as each file takes. Returns what could not be written.
std::string_view OutputLog::WriteWholeLines(std::string_view lines) {
    while (!lines.empty() && (file_.IsOpen() || OpenFile())) {
        const std::string_view piece = WholeLines(lines, RoomInFile());
        if (fileBytes_ != 0 && piece.size() > RoomInFile()) {
            if (!Rotate()) {
                break;
            }
            continue;
        }
        const size_t written = WriteSome(piece);
        lines.remove_prefix(written);
        if (written < piece.size()) {
            break;
        }
    }
    return lines;
}

size_t OutputLog::RoomInFile() const {
    return options_.maxFileBytes - std::min(fileBytes_, options_.maxFileBytes);
}

bool OutputLog::OpenFile() {
    file_.Reset(::open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, kLogMode));
    struct stat status {};
    if (!file_.IsOpen() || ::fstat(file_.Get(), &status) != 0 || !S_ISREG(status.st_mode)) {
        file_.Reset();
        return false;
    }
    fileBytes_ = static_cast<size_t>(status.st_size);
    return true;
}

bool OutputLog::Rotate() {
    file_.Reset();
    for (unsigned number = options_.rotatedFiles; number > 1; --number) {
        const std::string from = path_ + "." + std::to_string(number - 1);
        const std::string to = path_ + "." + std::to_string(number);
        if (std::rename(from.c_str(), to.c_str()) != 0 && errno != ENOENT) {
            return false;
        }
    }
    const std::string first = path_ + ".1";
    const int result =
        options_.rotatedFiles == 0 ? std::remove(path_.c_str()) : std::rename(path_.c_str(), first.c_str());
    const bool isDone = result == 0 || errno == ENOENT;
    lineIsOpen_ = lineIsOpen_ && !isDone;
    return isDone;
}

/// Returns the bytes of `text` that were written. A text that was cut short leaves an open line in the file; the next
/// one then begins on a new line.
size_t OutputLog::WriteSome(std::string_view text) {
    if (lineIsOpen_ && ::write(file_.Get(), "\n", 1) != 1) {
        return 0;
    }
    fileBytes_ += lineIsOpen_ ? 1 : 0;
    lineIsOpen_ = false;
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t length = ::write(file_.Get(), text.data() + done, text.size() - done);
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length <= 0) {
            break;
        }
        done += static_cast<size_t>(length);
    }
    fileBytes_ += done;
    lineIsOpen_ = done > 0 && text[done - 1] != '\n';
    return done;
}

void OutputLog::WriteToDaemon(std::string_view lines) {
    const std::string prefix = safeName_ + ": ";
    const std::string notice = DropNotice();
    const std::string all = notice + std::string(lines);
    std::string_view rest = all;
    bool isNotice = !notice.empty();
    while (!rest.empty()) {
        const size_t longest = PIPE_BUF - prefix.size() - 1;
        const std::string_view line = rest.substr(0, std::min(rest.find('\n'), longest));
        const std::string text = prefix + std::string(line) + "\n";
        const bool written = TakesMore(options_.daemonFd) &&
                             ::write(options_.daemonFd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
        if (!written) {
            Drop(isNotice ? lines : rest);
            return;
        }
        told_ = isNotice ? dropped_ : told_;
        isNotice = false;
        rest.remove_prefix(line.size());
        rest.remove_prefix(!rest.empty() && rest.front() == '\n' ? 1 : 0);
    }
}

void OutputLog::Drop(std::string_view lines) {
    dropped_ += CountLines(lines);
}

std::string OutputLog::DropNotice() const {
    return dropped_ == told_ ? "" : "[procmgrd: " + std::to_string(dropped_ - told_) + " lines dropped]\n";
}

std::chrono::steady_clock::time_point OutputLog::Now() const {
    return options_.now ? options_.now() : std::chrono::steady_clock::now();
}

std::unique_ptr<OutputPipe> OutputPipe::Create(std::shared_ptr<OutputLog> log, int& error) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
        error = errno;
        return nullptr;
    }
    UniqueFd readEnd(ends[0]);
    UniqueFd writeEnd(ends[1]);
    if (::fcntl(readEnd.Get(), F_SETFL, O_NONBLOCK) != 0) {
        error = errno;
        return nullptr;
    }
    return std::unique_ptr<OutputPipe>(new OutputPipe(std::move(log), std::move(readEnd), std::move(writeEnd)));
}

OutputPipe::OutputPipe(std::shared_ptr<OutputLog> log, UniqueFd readEnd, UniqueFd writeEnd)
    : log_(std::move(log)), readEnd_(std::move(readEnd)), writeEnd_(std::move(writeEnd)) {
}

OutputPipe::~OutputPipe() {
    Flush();
}

OutputPipe::State OutputPipe::Drain() {
    std::array<char, 32768> buffer;
    for (size_t total = 0; total < kShareBytes;) {
        const ssize_t length = ::read(readEnd_.Get(), buffer.data(), std::min(buffer.size(), kShareBytes - total));
        if (length < 0 && errno == EINTR) {
            continue;
        }
        if (length <= 0 && (length == 0 || errno != EAGAIN)) {
            Flush();
            return State::CLOSED;
        }
        if (length < 0) {
            return State::OPEN;
        }
        Take({buffer.data(), static_cast<size_t>(length)});
        total += static_cast<size_t>(length);
    }
    return State::MORE;
}

void OutputPipe::Take(std::string_view bytes) {
    std::string ready;
    while (!bytes.empty()) {
        const size_t room = log_->MaxLineBytes() - partial_.size();
        const size_t newline = bytes.find('\n');
        if (newline <= room) {
            ready.append(partial_).append(bytes.substr(0, newline + 1));
            partial_.clear();
            bytes.remove_prefix(newline + 1);
        } else if (room == 0) {
            ready.append(partial_).append("\n");
            partial_.clear();
        } else {
            partial_.append(bytes.substr(0, room));
            bytes.remove_prefix(std::min(room, bytes.size()));
        }
    }
    if (!ready.empty()) {
        log_->Write(ready);
    }
}

/// The end: a line that nobody ended any more, and the count of those that were dropped.
void OutputPipe::Flush() {
    if (!partial_.empty()) {
        partial_ += '\n';
    }
    log_->Write(std::exchange(partial_, std::string()));
}

}  // namespace ProcMgr
