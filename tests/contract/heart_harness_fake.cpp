#include <unistd.h>

#include "tests/contract/heart_harness.h"
#include "tests/fake_platform/fake_heartbeat.h"

HeartHarness::HeartHarness() = default;
HeartHarness::~HeartHarness() = default;

void HeartHarness::Lose(const std::string& name) {
    (void)FakeHeartBeat::Get().NotifyHeartBeat(name, 0, 1);
}

void HeartHarness::Beat(const std::string& name) {
    (void)FakeHeartBeat::Get().NotifyHeartBeat(name, static_cast<unsigned int>(getpid()), 0);
}
