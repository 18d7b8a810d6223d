#include "bench/processes/floor.h"

#include <signal.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "bench/processes/stamp_pipe.h"

namespace Bench {
namespace {

[[noreturn]] void Fail(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), "the floor: " + what);
}

}  // namespace

Floor::Floor(const Group& group, const std::string& socket)
    : group_(group), waves_(WavesOf(group)), epoll_(epoll_create1(EPOLL_CLOEXEC)), children_(group.count) {
    for (size_t number = 0; number < group.count; ++number) {
        commands_.push_back(CommandOf(group, number));
    }
    if (group_.isReporting) {
        OpenSocket(socket);
    }
}

Floor::~Floor() {
    for (const Child& child : children_) {
        if (child.pid > 0) {
            kill(child.pid, SIGKILL);
            waitpid(child.pid, nullptr, 0);
        }
    }
}

void Floor::OpenSocket(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.copy(address.sun_path, sizeof(address.sun_path) - 1) < path.size()) {
        Fail(ENAMETOOLONG, path);
    }
    socket_.Reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (bind(socket_.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        Fail(errno, path);
    }
    environment_ = "PROCMGR_APP_SOCKET=" + path;
}

// Descriptors for the ends are opened when all run: they are no part of starting.
void Floor::Start() {
    for (const std::vector<size_t>& wave : waves_) {
        size_t missing = group_.isReporting ? wave.size() : 0;
        for (const size_t number : wave) {
            Spawn(number);
            TakeWords(missing, MSG_DONTWAIT);
        }
        TakeWords(missing, 0);
    }
    for (size_t number = 0; number < group_.count; ++number) {
        Watch(number);
    }
}

// It returns when the program is executed.
void Floor::Spawn(size_t number) {
    std::vector<std::string>& command = commands_[number];
    char* const argv[] = {command[0].data(), command[1].data(), command[2].data(), nullptr};
    char* const environment[] = {environment_.empty() ? nullptr : environment_.data(), nullptr};
    const int error = posix_spawn(&children_[number].pid, argv[0], nullptr, nullptr, argv, environment);
    if (error != 0) {
        Fail(error, command[0]);
    }
}

// Those that have come are taken between two starts, since few fit into the socket.
void Floor::TakeWords(size_t& missing, int flags) const {
    char word[64];
    while (missing > 0) {
        if (flags == 0) {
            AwaitReadable(socket_.Get(), "the word of an application that it is ready");
        }
        if (recv(socket_.Get(), word, sizeof(word), flags) < 0) {
            return;
        }
        --missing;
    }
}

void Floor::Watch(size_t number) {
    Child& child = children_[number];
    child.pidfd.Reset(static_cast<int>(syscall(SYS_pidfd_open, child.pid, 0)));
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = number;
    if (!child.pidfd.IsOpen() || epoll_ctl(epoll_.Get(), EPOLL_CTL_ADD, child.pidfd.Get(), &event) != 0) {
        Fail(errno, "can't watch a process");
    }
}

void Floor::Replace(pid_t killed) {
    AwaitReadable(epoll_.Get(), "the end of a process that was killed");
    epoll_event event{};
    if (epoll_wait(epoll_.Get(), &event, 1, 0) != 1 || children_.at(event.data.u64).pid != killed) {
        throw std::runtime_error("the floor: another process ended than the one that was killed");
    }
    const size_t number = event.data.u64;
    AwaitEnd(children_[number]);
    size_t missing = group_.isReporting ? 1 : 0;
    Spawn(number);
    TakeWords(missing, 0);
    Watch(number);
}

void Floor::Stop() {
    for (auto wave = waves_.rbegin(); wave != waves_.rend(); ++wave) {
        for (const size_t number : *wave) {
            kill(children_[number].pid, SIGTERM);
        }
        for (const size_t number : *wave) {
            AwaitEnd(children_[number]);
        }
    }
}

void Floor::AwaitEnd(Child& child) {
    siginfo_t info{};
    if (waitid(static_cast<idtype_t>(P_PIDFD), static_cast<id_t>(child.pidfd.Get()), &info, WEXITED) != 0) {
        Fail(errno, "can't wait for a process");
    }
    child.pid = 0;
    child.pidfd.Reset();
}

}  // namespace Bench
