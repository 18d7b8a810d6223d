#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "platform/include/heartbeat.h"
#include "tests/contract/heart_harness.h"

HeartHarness::HeartHarness() {
    char folder[] = "/tmp/procmgr-heart-XXXXXX";
    EXPECT_NE(mkdtemp(folder), nullptr);
    folder_ = folder;
    setenv("PROCMGR_RUN_DIR", folder, 1);
    setenv("PROC_NAME", "watcher", 1);
    setenv("PROCMGR_HEARTBEAT_PERIOD_MS", "20", 1);
}

HeartHarness::~HeartHarness() {
    EXPECT_EQ(DisableAllCheckHeartBeat(), 0);
    std::filesystem::remove_all(folder_);
}

void HeartHarness::Lose(const std::string& /*name*/) {
    // Nobody beats, so it is lost by itself.
}

void HeartHarness::Beat(const std::string& name) {
    // It beats until the process ends.
    HeartBeatHandle handle = nullptr;
    EXPECT_EQ(RegisterSendHeartBeat(name.data(), name.size(), "watcher", 7, &handle), 0);
}
