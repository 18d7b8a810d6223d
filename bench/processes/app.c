/* The application of the benchmark: reports that it is ready, if it was given an address for it, and waits for SIGTERM.
 *
 *     bench_app PIPE NUMBER */
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "bench/processes/stamp.h"
#include "procmgr_app.h"

static int Write(int pipe, const struct BenchStamp* stamp) {
    return write(pipe, stamp, sizeof(*stamp)) == (ssize_t)sizeof(*stamp);
}

int main(int argc, char** argv) {
    struct BenchStamp stamp = {0, 0, BenchNow(), 0, 0};
    sigset_t term;
    int pipe = -1;
    int received = 0;
    if (argc != 3) {
        return 2;
    }
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    sigprocmask(SIG_BLOCK, &term, NULL);
    stamp.number = atoi(argv[2]);
    stamp.pid = getpid();
    stamp.readyNs = BenchNow();
    if (getenv("PROCMGR_APP_SOCKET") != NULL && ProcmgrAppReady() != 0) {
        perror("bench_app: cannot report");
        return 1;
    }
    pipe = open(argv[1], O_WRONLY | O_CLOEXEC);
    if (pipe < 0 || !Write(pipe, &stamp)) {
        perror(argv[1]);
        return 1;
    }
    sigwait(&term, &received);
    stamp.endedNs = BenchNow();
    return Write(pipe, &stamp) ? 0 : 1;
}
