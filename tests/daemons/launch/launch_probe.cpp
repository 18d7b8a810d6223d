/// Tells about itself on standard output; what it tells is its first argument.
#include <dirent.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <set>
#include <string>

namespace {

int PauseForEver() {
    for (;;) {
        ::pause();
    }
}

int TellArguments(int argc, char** argv) {
    for (int i = 2; i < argc; ++i) {
        std::cout << argv[i] << '\n';
    }
    return 0;
}

int TellEnvironment(int, char**) {
    for (char** entry = environ; *entry != nullptr; ++entry) {
        std::cout << *entry << '\n';
    }
    return 0;
}

int TellDescriptors(int, char**) {
    DIR* const dir = ::opendir("/proc/self/fd");
    std::set<int> numbers;
    for (const dirent* entry = ::readdir(dir); entry != nullptr; entry = ::readdir(dir)) {
        if (entry->d_name[0] != '.' && std::atoi(entry->d_name) != ::dirfd(dir)) {
            numbers.insert(std::atoi(entry->d_name));
        }
    }
    ::closedir(dir);
    for (const int number : numbers) {
        std::cout << number << '\n';
    }
    return 0;
}

/// Session and group relative to the process, then the lines about signals.
int TellProcess(int, char**) {
    std::cout << (::getsid(0) == ::getpid() ? "own session" : "foreign session") << '\n';
    std::cout << (::getpgrp() == ::getpid() ? "own group" : "foreign group") << '\n';
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("SigBlk", 0) == 0 || line.rfind("SigIgn", 0) == 0) {
            std::cout << line << '\n';
        }
    }
    return 0;
}

int TellCores(int, char**) {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    ::sched_getaffinity(0, sizeof cores, &cores);
    for (size_t core = 0; core < CPU_SETSIZE; ++core) {
        if (CPU_ISSET(core, &cores)) {
            std::cout << core << '\n';
        }
    }
    return 0;
}

int TellScheduling(int, char**) {
    sched_param param{};
    ::sched_getparam(0, &param);
    std::cout << ::sched_getscheduler(0) << ' ' << param.sched_priority << '\n';
    return 0;
}

int TellDeathSignal(int, char**) {
    int number = 0;
    ::prctl(PR_GET_PDEATHSIG, &number);
    std::cout << number << '\n';
    return 0;
}

int TellStreams(int, char**) {
    std::cout << "to output" << std::endl;
    std::cerr << "to error" << std::endl;
    std::cout << (std::cin.get() == EOF ? "no input" : "input") << std::endl;
    return 0;
}

int Wait(int, char**) {
    std::cout << "ready" << std::endl;
    return PauseForEver();
}

int WaitStubbornly(int argc, char** argv) {
    static_cast<void>(::signal(SIGTERM, SIG_IGN));
    return Wait(argc, argv);
}

/// One line with the pid of whoever calls it.
int TellPidAndWait() {
    const std::string line = std::to_string(::getpid()) + "\n";
    const ssize_t length = ::write(STDOUT_FILENO, line.data(), line.size());
    return length > 0 ? PauseForEver() : 1;
}

/// A child in a group of its own, whose child has a session of its own, and a process in a session of its own whose
/// parent is gone: four pids in all, in any order.
int GrowTree(int, char**) {
    if (::fork() == 0) {
        ::setpgid(0, 0);
        if (::fork() == 0) {
            ::setsid();
        }
        return TellPidAndWait();
    }
    const pid_t between = ::fork();
    if (between == 0) {
        ::setsid();
        if (::fork() != 0) {
            ::_exit(0);
        }
        ::setsid();
        return TellPidAndWait();
    }
    ::waitpid(between, nullptr, 0);
    return TellPidAndWait();
}

/// Leaves a child in its session behind and ends.
int LeaveChild(int, char**) {
    if (::fork() == 0) {
        return TellPidAndWait();
    }
    return 0;
}

int Flood(int, char** argv) {
    const std::string line(99, 'x');
    for (int left = std::atoi(argv[2]); left > 0; --left) {
        std::puts(line.c_str());
    }
    return 0;
}

struct Command {
    const char* name;
    int (*run)(int argc, char** argv);
};

constexpr Command kCommands[] = {
    {"arguments", TellArguments},
    {"environment", TellEnvironment},
    {"descriptors", TellDescriptors},
    {"process", TellProcess},
    {"cores", TellCores},
    {"scheduling", TellScheduling},
    {"death-signal", TellDeathSignal},
    {"streams", TellStreams},
    {"wait", Wait},
    {"wait-stubbornly", WaitStubbornly},
    {"tree", GrowTree},
    {"leave-child", LeaveChild},
    {"flood", Flood},
};

}  // namespace

int main(int argc, char** argv) {
    const auto command = std::find_if(std::begin(kCommands), std::end(kCommands), [&](const Command& row) {
        return argc > 1 && std::strcmp(row.name, argv[1]) == 0;
    });
    return command == std::end(kCommands) ? 2 : command->run(argc, argv);
}
