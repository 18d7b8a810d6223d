/// What the application of the benchmark writes about itself: the times of CLOCK_MONOTONIC at which it was in its main
/// function, was about to say that it is ready, and had got its SIGTERM. C, since the application is.
#ifndef BENCH_PROCESSES_STAMP_H
#define BENCH_PROCESSES_STAMP_H

#include <stdint.h>
#include <time.h>

/// One goes to the pipe of the benchmark when the application is up, and a second one, with `endedNs`, when it ends. A
/// pipe takes it as a whole.
struct BenchStamp {
    int32_t number;  ///< of the application in its group
    int32_t pid;
    int64_t startedNs;
    int64_t readyNs;
    int64_t endedNs;  ///< 0 in the first one
};

static inline int64_t BenchNow(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000000000 + now.tv_nsec;
}

#endif
