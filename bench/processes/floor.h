/// The floor: the same programs, started wave by wave by one thread that does nothing else. What a program is told here
/// is what the process manager tells it; a program that reports, reports in the same way.
#ifndef BENCH_PROCESSES_FLOOR_H
#define BENCH_PROCESSES_FLOOR_H

#include <string>
#include <vector>

#include "bench/processes/group.h"
#include "bench/processes/starter.h"
#include "platform/posix/common_posix/unique_fd.h"

namespace Bench {

class Floor : public Starter {
public:
    /// `socket` is the path at which programs report.
    Floor(const Group& group, const std::string& socket);
    ~Floor() override;
    Floor(const Floor&) = delete;
    Floor& operator=(const Floor&) = delete;

    void Start() override;
    void Stop() override;
    void Replace(pid_t killed) override;
    void AwaitKnown(pid_t) override {}

private:
    struct Child {
        pid_t pid = 0;
        ProcMgr::UniqueFd pidfd;
    };

    void OpenSocket(const std::string& path);
    void Spawn(size_t number);
    void TakeWords(size_t& missing, int flags) const;
    void Watch(size_t number);
    static void AwaitEnd(Child& child);

    const Group group_;
    const std::vector<std::vector<size_t>> waves_;
    std::vector<std::vector<std::string>> commands_;
    std::string environment_;
    ProcMgr::UniqueFd socket_;
    ProcMgr::UniqueFd epoll_;
    std::vector<Child> children_;
};

}  // namespace Bench

#endif
