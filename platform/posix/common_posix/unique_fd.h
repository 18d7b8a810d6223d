/// The one owner of a file descriptor; -1 is none.
#ifndef PROCMGR_PLATFORM_POSIX_UNIQUE_FD_H
#define PROCMGR_PLATFORM_POSIX_UNIQUE_FD_H

#include <unistd.h>

#include <utility>

namespace ProcMgr {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        Reset(std::exchange(other.fd_, -1));
        return *this;
    }
    ~UniqueFd() { Reset(); }

    int Get() const { return fd_; }
    bool IsOpen() const { return fd_ >= 0; }
    explicit operator bool() const { return IsOpen(); }

    void Reset(int fd = -1) {
        if (fd_ >= 0 && fd_ != fd) {
            ::close(fd_);
        }
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

}  // namespace ProcMgr

#endif
