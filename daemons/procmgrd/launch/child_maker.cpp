#include "daemons/procmgrd/launch/child_maker.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "platform/posix/common_posix/unique_fd.h"

namespace ProcMgr {
namespace {

template <typename Value>
bool Read(int fd, Value& value) {
    ssize_t length = 0;
    do {
        length = ::read(fd, &value, sizeof value);
    } while (length < 0 && errno == EINTR);
    return length == static_cast<ssize_t>(sizeof value);
}

template <typename Value>
bool Write(int fd, const Value& value) {
    return ::write(fd, &value, sizeof value) == static_cast<ssize_t>(sizeof value);
}

struct Pipe {
    UniqueFd readEnd;
    UniqueFd writeEnd;

    bool Open() {
        std::array<int, 2> ends{};
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
            return false;
        }
        readEnd.Reset(ends[0]);
        writeEnd.Reset(ends[1]);
        return true;
    }
};

/// What the thread is given to do.
struct Job {
    const ChildPlan* plan = nullptr;
};

/// Comes back when the child has executed its program or has ended: then the plan may be gone, and what is said counts
/// only if the child has said nothing. Under an emulator or a sanitizer that makes a fork of it, comes back at once.
void CarryOut(const ChildPlan* plan) {
    const int helloFd = plan->helloFd;
    const uint32_t serial = plan->hello.serial;
    const pid_t pid = ::vfork();
    if (pid == 0) {
        RunChild(*plan);
    }
    static_cast<void>(Write(helloFd, ChildHello{serial, pid < 0 ? -errno : pid}));
}

class Maker {
public:
    /// False, with errno, when there is no thread.
    bool Start() {
        if (process_ == ::getpid()) {
            return true;
        }
        if (!jobs_.Open() || !hellos_.Open()) {
            return false;
        }
        const int error = StartThread();
        process_ = error == 0 ? ::getpid() : 0;
        errno = error;
        return error == 0;
    }

    /// Between the words of this child there may be the last one about its predecessor.
    pid_t Make(ChildPlan& plan) {
        plan.helloFd = hellos_.writeEnd.Get();
        plan.hello.serial = ++serial_;
        const Job job{&plan};
        ChildHello hello;
        bool isHeard = Write(jobs_.writeEnd.Get(), job);
        while (isHeard && hello.serial != serial_) {
            isHeard = Read(hellos_.readEnd.Get(), hello);
        }
        if (isHeard && hello.pid < 0) {
            errno = -hello.pid;
        }
        return isHeard && hello.pid > 0 ? hello.pid : -1;
    }

private:
    int StartThread() {
        constexpr size_t kStackSize = size_t{256} * 1024;
        pthread_attr_t attributes;
        pthread_t thread{};
        sigset_t all;
        sigset_t before;
        sigfillset(&all);
        pthread_attr_init(&attributes);
        pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
        pthread_attr_setstacksize(&attributes, kStackSize);
        // Neither in the thread nor in a child that has not reset them may a handler of the daemon run.
        pthread_sigmask(SIG_SETMASK, &all, &before);
        const int error = pthread_create(&thread, &attributes, Work, this);
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        pthread_attr_destroy(&attributes);
        return error;
    }

    static void* Work(void* self) {
        const int jobs = static_cast<const Maker*>(self)->jobs_.readEnd.Get();
        for (Job job; Read(jobs, job);) {
            CarryOut(job.plan);
        }
        return nullptr;
    }

    Pipe jobs_;    ///< of Job
    Pipe hellos_;  ///< of ChildHello
    uint32_t serial_ = 0;
    pid_t process_ = 0;  ///< the one that has the thread; a child of it by fork has none
};

// The threads use them until the process is gone: they are never destroyed.
Maker*& Current() {
    static Maker* maker = new Maker;
    return maker;
}

}  // namespace

pid_t MakeChild(ChildPlan& plan) {
    return Current()->Start() ? Current()->Make(plan) : -1;
}

void GiveUpLastChild() {
    Current() = new Maker;
}

}  // namespace ProcMgr
