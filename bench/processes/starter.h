/// Who starts the group: the process manager with its owner, or the floor. Every operation throws when it fails.
#ifndef BENCH_PROCESSES_STARTER_H
#define BENCH_PROCESSES_STARTER_H

#include <sys/types.h>

#include <cstdint>

namespace Bench {

class Starter {
public:
    virtual ~Starter() = default;

    /// Starts every application and returns when all of them are known to run.
    virtual void Start() = 0;

    /// Ends every application and returns when all of them are gone.
    virtual void Stop() = 0;

    /// The process was killed: sees to it that there is another one, unless others do that already.
    virtual void Replace(pid_t killed) = 0;

    /// Waits until this process, which has replaced another one, is known to run.
    virtual void AwaitKnown(pid_t pid) = 0;
};

}  // namespace Bench

#endif
