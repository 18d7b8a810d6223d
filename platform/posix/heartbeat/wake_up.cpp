#include "platform/posix/heartbeat/wake_up.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

namespace ProcMgr::Posix {
namespace {

timespec TimeLeft(WakeUp::Time until) {
    using std::chrono::nanoseconds;
    const auto left =
        std::max(nanoseconds(0), std::chrono::duration_cast<nanoseconds>(until - std::chrono::steady_clock::now()));
    timespec timeout{};
    timeout.tv_sec = left.count() / 1000000000;
    timeout.tv_nsec = left.count() % 1000000000;
    return timeout;
}

}  // namespace

WakeUp::WakeUp() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (fd_ < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

WakeUp::~WakeUp() {
    close(fd_);
}

void WakeUp::Notify() const {
    (void)eventfd_write(fd_, 1);
}

void WakeUp::Wait(std::optional<Time> until, int descriptor) const {
    // A negative descriptor is skipped by the kernel.
    std::array<pollfd, 2> entries{{{fd_, POLLIN, 0}, {descriptor, POLLIN, 0}}};
    const timespec timeout = until.has_value() ? TimeLeft(*until) : timespec{};
    if (ppoll(entries.data(), entries.size(), until.has_value() ? &timeout : nullptr, nullptr) > 0) {
        eventfd_t calls = 0;
        (void)eventfd_read(fd_, &calls);
    }
}

}  // namespace ProcMgr::Posix
