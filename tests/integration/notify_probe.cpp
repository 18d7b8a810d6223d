// An application that does what its arguments say, one after the other, then waits for the end. It speaks to the
// address in NOTIFY_SOCKET itself, as programs do that know nothing of our library.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <string>
#include <vector>

namespace {

std::string Variable(const char* name) {
    const char* const value = getenv(name);
    return value == nullptr ? "-" : value;
}

void Say(const std::string& text) {
    std::cout << text << std::endl;
}

/// Sends one datagram with these descriptors.
void Send(std::string text, const std::vector<int>& descriptors = {}) {
    const std::string path = Variable("NOTIFY_SOCKET");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const size_t bytes = descriptors.size() * sizeof(int);
    std::vector<char> control(CMSG_SPACE(bytes));
    iovec part{text.data(), text.size()};
    msghdr message{};
    message.msg_name = &address;
    message.msg_namelen = sizeof(address);
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (!descriptors.empty()) {
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr* const head = CMSG_FIRSTHDR(&message);
        head->cmsg_level = SOL_SOCKET;
        head->cmsg_type = SCM_RIGHTS;
        head->cmsg_len = CMSG_LEN(bytes);
        std::memcpy(CMSG_DATA(head), descriptors.data(), bytes);
    }
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (sendmsg(fd, &message, MSG_NOSIGNAL) < 0) {
        Say(std::string("cannot send: ") + std::strerror(errno));
    }
    close(fd);
}

/// Waits until everything that was sent before has been handled.
void Barrier() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return Say("no pipe");
    }
    Send("BARRIER=1", {ends[1]});
    close(ends[1]);
    char byte = 0;
    const ssize_t length = read(ends[0], &byte, 1);
    close(ends[0]);
    Say(length == 0 ? "the barrier is passed" : "the barrier failed");
}

/// From a child that is gone when this returns.
void SendByChild(const std::string& text) {
    const pid_t child = fork();
    if (child == 0) {
        Send(text);
        _exit(0);
    }
    waitpid(child, nullptr, 0);
}

void SendWithDescriptors(const std::string& text) {
    Send(text, std::vector<int>(200, STDOUT_FILENO));
}

void WaitForSignal(int number) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, number);
    int got = 0;
    sigwait(&signals, &got);
}

/// Whoever opened it for reading learns that this was reached.
void CloseFifo(const std::string& path) {
    close(open(path.c_str(), O_WRONLY | O_CLOEXEC));
}

void Repeat(const std::string& text) {
    for (int i = 0; i < 500; ++i) {
        Send(text + std::to_string(i));
    }
}

[[noreturn]] void BeatWithoutPause(const std::string&) {
    while (true) {
        Send("WATCHDOG=1");
    }
}

void SayWatchdog(const std::string&) {
    const bool isMine = Variable("WATCHDOG_PID") == std::to_string(getpid());
    Say("watchdog " + Variable("WATCHDOG_USEC") + " of " + (isMine ? "mine" : Variable("WATCHDOG_PID")));
}

const std::map<std::string, std::function<void(const std::string&)>> kCommands = {
    {"say", Say},
    {"send", [](const std::string& text) { Send(text); }},
    {"send-by-child", SendByChild},
    {"send-with-descriptors", SendWithDescriptors},
    {"send-long", [](const std::string& text) { Send(text + "\n" + std::string(100000, 'x')); }},
    {"send-binary", [](const std::string&) { Send(std::string("\0\xff\n\x01=\0READY=1", 13)); }},
    {"send-nothing", [](const std::string&) { Send(""); }},
    {"repeat", Repeat},
    {"beat-without-pause", BeatWithoutPause},
    {"barrier", [](const std::string&) { Barrier(); }},
    {"usr1", [](const std::string&) { WaitForSignal(SIGUSR1); }},
    {"fifo", CloseFifo},
    {"watchdog", SayWatchdog},
};

}  // namespace

int main(int argc, char** argv) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGUSR1);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const size_t colon = argument.find(':');
        const auto found = kCommands.find(argument.substr(0, colon));
        if (found == kCommands.end()) {
            return 99;
        }
        found->second(colon == std::string::npos ? "" : argument.substr(colon + 1));
    }
    while (true) {
        pause();
    }
}
