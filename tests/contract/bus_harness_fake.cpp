#include "tests/contract/bus_harness.h"
#include "tests/fake_platform/fake_vek.h"

class BusHarness::Impl {
public:
    VekQfsMgrFile queue = {"queue", nullptr, nullptr};
    VEKQueueHandle handle = nullptr;
    size_t taken = 0;
};

BusHarness::BusHarness() : impl_(std::make_unique<Impl>()) {
}

BusHarness::~BusHarness() = default;

int BusHarness::Ask(const std::string& service, unsigned int cmd, std::string& buffer) {
    const VEKServiceOps ops = FakeVek::Get().Services().back().ops;
    VEKMgrFile file = {service.c_str(), nullptr};
    VEKIoctlArg arg = {buffer.size(), buffer.data()};
    ops.open(&file);
    const int result = ops.ioctl(&file, cmd, &arg);
    ops.close(&file);
    return result;
}

void BusHarness::OpenQueue(const std::string& /*queue*/) {
    FakeVek::Get().QueueServices().back().ops.open(&impl_->queue);
    impl_->handle = FakeVek::Get().MakeQueue();
    __atomic_store_n(&impl_->queue.queueHandle, impl_->handle, __ATOMIC_RELEASE);
}

std::string BusHarness::NextEvent() {
    const std::vector<std::string> events = FakeVek::Get().Events(impl_->handle);
    return impl_->taken < events.size() ? events[impl_->taken++] : "none";
}

void BusHarness::CloseQueue() {
    __atomic_store_n(&impl_->queue.queueHandle, nullptr, __ATOMIC_RELEASE);
    FakeVek::Get().QueueServices().back().ops.close(&impl_->queue);
}
