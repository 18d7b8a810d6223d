/// Preloaded into each program that runs under the emulator, which does not know how a process becomes the one that
/// gets the orphans of its descendants (PR_SET_CHILD_SUBREAPER). The kernel below it does, and a process stays that one
/// over an exec. So a program that asks for it starts over, in the same process, behind a program of the machine that
/// asks the kernel; the second time it is told that it is what it asked to be.
#include <limits.h>
#include <signal.h>
#include <stdarg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

static const char kVariable[] = "EMULATED_SUBREAPER";
static char variable[] = "EMULATED_SUBREAPER=yes";

static char helper[] = EMULATED_SUBREAPER_PATH;
static char program[PATH_MAX];
static char** command;
static char** variables;
static sigset_t blockedSignals;
static struct rlimit fileLimit;
static pid_t subreaper;

/// A copy of the list, with room for two more in front; NULL without memory.
static char** CopyBehindTwo(char** list) {
    size_t count = 0;
    while (list[count] != NULL) {
        ++count;
    }
    char** const copy = calloc(count + 3, sizeof *copy);
    if (copy != NULL) {
        memcpy(copy + 2, list, count * sizeof *copy);
    }
    return copy;
}

/// Before any code of the program: what it may have changed when it starts over, arguments and environment among them.
__attribute__((constructor)) static void RememberStart(int argc, char** argv) {
    (void)argc;
    if (getenv(kVariable) != NULL) {
        subreaper = getpid();
        unsetenv(kVariable);
    }
    command = CopyBehindTwo(argv);
    variables = CopyBehindTwo(environ);
    sigprocmask(SIG_BLOCK, NULL, &blockedSignals);
    getrlimit(RLIMIT_NOFILE, &fileLimit);
}

/// Returns only when that is not possible.
static int StartOver(void) {
    if (command == NULL || variables == NULL || readlink("/proc/self/exe", program, sizeof program - 1) < 0) {
        return -1;
    }
    command[0] = helper;
    command[1] = program;
    variables[1] = variable;
    setrlimit(RLIMIT_NOFILE, &fileLimit);
    sigprocmask(SIG_SETMASK, &blockedSignals, NULL);
    return execve(helper, command, variables + 1);
}

__attribute__((visibility("default"))) int prctl(int option, ...) {
    unsigned long values[4];
    va_list list;
    va_start(list, option);
    for (int i = 0; i < 4; ++i) {
        values[i] = va_arg(list, unsigned long);
    }
    va_end(list);
    if (option == PR_SET_CHILD_SUBREAPER && values[0] == 1) {
        return subreaper == getpid() ? 0 : StartOver();
    }
    return (int)syscall(SYS_prctl, option, values[0], values[1], values[2], values[3]);
}
