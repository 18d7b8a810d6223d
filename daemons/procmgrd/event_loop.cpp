#include "daemons/procmgrd/event_loop.h"

#include <sys/epoll.h>

#include <array>
#include <cerrno>
#include <cstddef>

namespace Procmgrd {

bool EventLoop::Open() {
    epoll_.Reset(epoll_create1(EPOLL_CLOEXEC));
    return epoll_.IsOpen();
}

bool EventLoop::Add(int fd, Handler handler) {
    // An event carries a number that is never used again: a descriptor that is closed and opened anew in one turn can't
    // get the events of its predecessor.
    const uint64_t id = ++lastId_;
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = id;
    if (epoll_ctl(epoll_.Get(), EPOLL_CTL_ADD, fd, &event) != 0) {
        return false;
    }
    watches_[id] = Watch{fd, std::move(handler)};
    idOfFd_[fd] = id;
    return true;
}

void EventLoop::Remove(int fd) {
    const auto found = idOfFd_.find(fd);
    if (found == idOfFd_.end()) {
        return;
    }
    static_cast<void>(epoll_ctl(epoll_.Get(), EPOLL_CTL_DEL, fd, nullptr));
    watches_.erase(found->second);
    idOfFd_.erase(found);
}

bool EventLoop::Turn(bool moreToDo) {
    std::array<epoll_event, 128> events;
    const int count = epoll_wait(epoll_.Get(), events.data(), static_cast<int>(events.size()), moreToDo ? 0 : -1);
    if (count < 0) {
        return errno == EINTR;
    }
    for (int i = 0; i < count; ++i) {
        const auto found = watches_.find(events[static_cast<size_t>(i)].data.u64);
        if (found != watches_.end()) {
            // A copy, because the handler may remove itself.
            const Handler handler = found->second.handler;
            handler();
        }
    }
    return true;
}

}  // namespace Procmgrd
