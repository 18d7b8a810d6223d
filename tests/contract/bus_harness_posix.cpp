#include <array>
#include <cstdlib>

#include "platform/posix/ss_client/procmgr_ss.h"
#include "tests/contract/bus_harness.h"
#include "tests/platform/tunor_test_kit.h"

class BusHarness::Impl {
public:
    TunorTest::TempFolder folder;
    ProcmgrSsQueue* queue = nullptr;
};

BusHarness::BusHarness() : impl_(std::make_unique<Impl>()) {
    ::setenv("PROCMGR_RUN_DIR", impl_->folder.Path().c_str(), 1);
}

BusHarness::~BusHarness() {
    CloseQueue();
}

int BusHarness::Ask(const std::string& service, unsigned int cmd, std::string& buffer) {
    ProcmgrSsFile* file = nullptr;
    int32_t result = 0;
    int error = ProcmgrSsOpen(nullptr, service.c_str(), TunorTest::kPatienceMs, &file);
    if (error == 0) {
        error = ProcmgrSsIoctl(file, cmd, buffer.data(), buffer.size(), TunorTest::kPatienceMs, &result);
    }
    ProcmgrSsClose(file);
    if (error != 0) {
        buffer = "error " + std::to_string(error);
    }
    return result;
}

void BusHarness::OpenQueue(const std::string& queue) {
    if (ProcmgrSsOpenQueue(nullptr, queue.c_str(), TunorTest::kPatienceMs, &impl_->queue) != 0) {
        impl_->queue = nullptr;
    }
}

std::string BusHarness::NextEvent() {
    std::array<char, 64> buffer = {};
    size_t size = 0;
    const int error = ProcmgrSsWaitEvent(impl_->queue, TunorTest::kPatienceMs, buffer.data(), buffer.size(), &size);
    return error == 0 ? std::string(buffer.data(), size) : "none";
}

void BusHarness::CloseQueue() {
    ProcmgrSsCloseQueue(impl_->queue);
    impl_->queue = nullptr;
}
