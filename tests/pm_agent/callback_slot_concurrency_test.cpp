#include "common/callback_slot.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

namespace ProcMgr {
namespace {

using Slot = CallbackSlot<int(int)>;

TEST(CallbackSlot, IsEmptyUntilACallBackIsStoredAndAfterAnEmptyOneWas) {
    Slot slot;
    EXPECT_EQ(slot.Load(), nullptr);
    slot.Store([](int number) { return number + 1; });
    ASSERT_NE(slot.Load(), nullptr);
    EXPECT_EQ((*slot.Load())(1), 2);
    slot.Store(nullptr);
    EXPECT_EQ(slot.Load(), nullptr);
}

TEST(CallbackSlot, KeepsAReplacedCallBackAliveForWhoLoadedIt) {
    Slot slot;
    auto owned = std::make_shared<int>(40);
    slot.Store([owned](int number) { return *owned + number; });
    const auto loaded = slot.Load();
    slot.Store([](int number) { return number; });
    owned.reset();
    EXPECT_EQ((*loaded)(2), 42);
}

TEST(CallbackSlot, MayBeReplacedWhileOthersCall) {
    Slot slot;
    slot.Store([](int number) { return number; });
    std::thread replacing([&slot] {
        for (int round = 0; round < 1000; ++round) {
            slot.Store([round](int number) { return number + 0 * round; });
        }
    });
    for (int round = 0; round < 1000; ++round) {
        EXPECT_EQ((*slot.Load())(round), round);
    }
    replacing.join();
}

}  // namespace
}  // namespace ProcMgr
