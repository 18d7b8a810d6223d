/// The group under the process manager: procmgrd as it is installed, and this process as the group's owner.
#ifndef BENCH_PROCESSES_MANAGED_H
#define BENCH_PROCESSES_MANAGED_H

#include <string>
#include <vector>

#include "bench/processes/group.h"
#include "bench/processes/starter.h"

namespace Bench {

/// One in a process, since the library knows one owner only.
class Managed : public Starter {
public:
    /// Starts `procmgrd` with its files in `folder`, and takes charge of the group.
    Managed(const Group& group, const std::string& procmgrd, const std::string& folder);
    ~Managed() override;
    Managed(const Managed&) = delete;
    Managed& operator=(const Managed&) = delete;

    void Start() override;
    void Stop() override;
    void Replace(pid_t) override {}
    void AwaitKnown(pid_t pid) override;

private:
    void StartProcmgrd(const std::string& procmgrd, const std::string& folder);
    void TakeCharge(const std::string& manifests) const;

    const Group group_;
    const std::vector<std::string> names_;
    pid_t procmgrd_ = 0;
};

}  // namespace Bench

#endif
