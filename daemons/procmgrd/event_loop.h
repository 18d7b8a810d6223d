/// Waits for descriptors and calls their handlers, one after the other, on the thread that runs it.
#ifndef PROCMGR_PROCMGRD_EVENT_LOOP_H
#define PROCMGR_PROCMGRD_EVENT_LOOP_H

#include <cstdint>
#include <functional>
#include <map>

#include "platform/posix/common_posix/unique_fd.h"

namespace Procmgrd {

class EventLoop {
public:
    using Handler = std::function<void()>;

    /// False with errno when there is no descriptor left.
    [[nodiscard]] bool Open();

    /// `handler` is called whenever `fd` is readable (or broken), as long as it is. The descriptor stays the caller's,
    /// who removes it before he closes it. False with errno.
    [[nodiscard]] bool Add(int fd, Handler handler);

    /// A handler that is removed during a turn is not called any more in it. May be called from the handler itself.
    void Remove(int fd);

    /// One turn: waits until something is readable, unless there is `moreToDo` anyway, then calls the handlers of all
    /// that is. False with errno when waiting failed.
    [[nodiscard]] bool Turn(bool moreToDo);

private:
    struct Watch {
        int fd;
        Handler handler;
    };

    ProcMgr::UniqueFd epoll_;
    uint64_t lastId_ = 0;
    std::map<uint64_t, Watch> watches_;
    std::map<int, uint64_t> idOfFd_;
};

}  // namespace Procmgrd

#endif
