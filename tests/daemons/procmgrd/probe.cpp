// An application of the tests. It does what its arguments say, one after the other, and tells about it in datagrams to
// the address in TEST_NOTES, each beginning with its name.
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <string>

#include "platform/posix/app/procmgr_app.h"

namespace {

std::string Variable(const char* name) {
    const char* const value = getenv(name);
    return value == nullptr ? "-" : value;
}

void Note(const std::string& text) {
    const std::string whole = Variable("PROC_NAME") + " " + text;
    const std::string path = Variable("TEST_NOTES");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (sendto(fd, whole.data(), whole.size(), 0, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) < 0) {
        perror("note");
    }
    close(fd);
}

[[noreturn]] void Wait() {
    while (true) {
        pause();
    }
}

void NoteProcess(const char* what) {
    Note(std::string(what) + " " + std::to_string(getpid()));
}

void OnTerm(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigaction(SIGTERM, &action, nullptr);
}

// A child in a session of its own, which ends on SIGTERM like any other process.
void MakeChild() {
    if (fork() == 0) {
        setsid();
        NoteProcess("child");
        Wait();
    }
}

// A grandchild whose parent ends at once, in a session of its own, deaf to SIGTERM.
void MakeOrphan() {
    if (fork() == 0) {
        setsid();
        OnTerm(SIG_IGN);
        if (fork() == 0) {
            setsid();
            NoteProcess("orphan");
            Wait();
        }
        _exit(0);
    }
}

void LetChildReport() {
    if (fork() == 0) {
        static_cast<void>(ProcmgrAppReady());
        Wait();
    }
}

void StopPolitely(int) {
    static_cast<void>(ProcmgrAppStopping());
    _exit(0);
}

void ExitWithSeven(int) {
    _exit(7);
}

const std::map<std::string, std::function<void(const std::string&)>> kCommands = {
    {"args", [](const std::string& value) { Note("args " + value); }},
    {"env", [](const std::string& value) { Note("env " + value + "=" + Variable(value.c_str())); }},
    {"ids", [](const std::string&) { Note("ids " + std::to_string(getuid()) + " " + std::to_string(getgid())); }},
    {"exit", [](const std::string& value) { _exit(atoi(value.c_str())); }},
    {"die", [](const std::string& value) { kill(getpid(), atoi(value.c_str())); }},
    {"print", [](const std::string& value) { std::cout << value << std::endl; }},
    {"deaf", [](const std::string&) { OnTerm(SIG_IGN); }},
    {"exit-7-on-term", [](const std::string&) { OnTerm(ExitWithSeven); }},
    {"off-on-term", [](const std::string&) { OnTerm(StopPolitely); }},
    {"ready", [](const std::string&) { Note("ready " + std::to_string(ProcmgrAppReady())); }},
    {"child-ready", [](const std::string&) { LetChildReport(); }},
    {"child", [](const std::string&) { MakeChild(); }},
    {"orphan", [](const std::string&) { MakeOrphan(); }},
};

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const size_t equals = argument.find('=');
        const auto found = kCommands.find(argument.substr(0, equals));
        if (found == kCommands.end()) {
            return 99;
        }
        found->second(equals == std::string::npos ? "" : argument.substr(equals + 1));
    }
    NoteProcess("waits");
    Wait();
}
