/// What the tests of the resource-service bus share: a service and a queue that do as they are told and tell what they
/// were asked, and raw clients that send literal frames.
#ifndef PROCMGR_TESTS_VEK_TEST_KIT_H
#define PROCMGR_TESTS_VEK_TEST_KIT_H

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <shared_mutex>
#include <string>
#include <vector>

#include "platform/include/vek.h"
#include "platform/posix/ss_client/procmgr_ss.h"
#include "tests/platform/tunor_test_kit.h"

namespace VekTest {

using TunorTest::Gate;
using TunorTest::RawSocket;
using TunorTest::TempFolder;

/// The entry points of the tests' service and queue, and what came to them. Set what they do before the first client.
class Service {
public:
    static Service& Get();

    std::function<int(VEKMgrFile*)> onOpen;
    std::function<long(char*, size_t, long*)> onRead;
    std::function<int(unsigned int cmd, VEKIoctlArg*)> onIoctl;
    std::function<int(VekQfsMgrFile*)> onQueueOpen;
    std::function<int(VekQfsMgrFile*)> onQueueClose;

    /// Waits for the entry points that run, and does nothing more in those that come: what they used may go away.
    void Silence();

    VEKServiceOps Ops() const;
    VEKQueueOps QueueOps() const;

    void Tell(const std::string& line);
    void ForgetTold();
    std::vector<std::string> Told() const;
    /// Waits until so many things were told; fewer after half a minute.
    std::vector<std::string> WaitForTold(size_t count) const;
    /// Waits until this was told that many times.
    [[nodiscard]] bool IsTold(const std::string& line, size_t count = 1) const;

    /// What an entry point holds while it uses what it does.
    std::shared_mutex& Running() { return running_; }

private:
    std::shared_mutex running_;
    mutable TunorTest::Watched watched_;
    std::vector<std::string> told_;
};

/// Silences the service at the end of its scope.
struct SilentAfterwards {
    SilentAfterwards() = default;
    ~SilentAfterwards() { Service::Get().Silence(); }
    SilentAfterwards(const SilentAfterwards&) = delete;
    SilentAfterwards& operator=(const SilentAfterwards&) = delete;
};

struct FileCloser {
    void operator()(ProcmgrSsFile* file) const { ProcmgrSsClose(file); }
    void operator()(ProcmgrSsQueue* queue) const { ProcmgrSsCloseQueue(queue); }
};
using File = std::unique_ptr<ProcmgrSsFile, FileCloser>;
using Queue = std::unique_ptr<ProcmgrSsQueue, FileCloser>;

inline constexpr uint32_t kPatience = TunorTest::kPatienceMs;

File OpenFile(const std::string& name = "grpowner");
Queue OpenQueue(const std::string& name = "events");

/// The answer of a request with a small buffer: "<result> <buffer>", or the name of the error.
std::string Ask(const File& file, uint32_t cmd, const std::string& request, uint32_t timeoutMs = kPatience);

/// The next event, or the name of the error.
std::string NextEvent(const Queue& queue, int32_t timeoutMs = TunorTest::kPatienceMs);

std::string BusFrame(uint32_t op, uint32_t cmd, int32_t rc, const std::string& payload);
std::string ErrorFrame(uint32_t op, uint32_t cmd, int error);

/// Runs in a child process, as that user unless it is 0; what it returns comes back. Needs root for another user.
std::string InChild(uid_t uid, const std::function<std::string()>& work);

/// A run directory that every user may look into, with a service "grpowner" whose ioctl turns the buffer round and
/// returns the command.
class BusFixture : public testing::Test {
protected:
    static constexpr uint32_t kServiceTimeoutMs = 20000;

    BusFixture();
    void TearDown() override { service.Silence(); }

    int Register(const std::string& name = "grpowner");
    int RegisterQueue(const std::string& name = "events");
    std::string SocketPath(const std::string& name = "grpowner") const {
        return folder.Path() + "/vek/" + name + ".sock";
    }

    RawSocket Connect(const std::string& name = "grpowner") const { return RawSocket::ConnectTo(SocketPath(name)); }
    /// An open file of a raw client.
    RawSocket OpenRaw(const std::string& name = "grpowner") const;

    TempFolder folder;
    Service& service = Service::Get();
};

}  // namespace VekTest

#endif
