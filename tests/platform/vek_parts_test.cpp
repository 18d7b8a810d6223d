#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string>
#include <vector>

#include "platform/posix/common_posix/access_rules.h"
#include "platform/posix/vek/command_class.h"
#include "platform/posix/vek/log_budget.h"
#include "platform/posix/vek/shm_pool.h"
#include "platform/posix/vek/work_pool.h"
#include "tests/platform/tunor_test_kit.h"

using ProcMgr::AccessRules;
using ProcMgr::ClassOfCommand;
using ProcMgr::CommandClass;
using ProcMgr::IsGranted;
using ProcMgr::LogBudget;
using ProcMgr::ShmPool;
using ProcMgr::WorkPool;
using testing::ElementsAre;

TEST(CommandClass, QuestionsAreLooksStopAllIsAStopAndTheRestAreChanges) {
    for (const uint32_t look : {4U, 6U, 9U}) {
        EXPECT_EQ(ClassOfCommand(look), CommandClass::LOOK) << look;
    }
    EXPECT_EQ(ClassOfCommand(5), CommandClass::STOP);
    for (const uint32_t change : {0U, 1U, 2U, 3U, 7U, 8U, 10U, 4294967295U}) {
        EXPECT_EQ(ClassOfCommand(change), CommandClass::CHANGE) << change;
    }
}

TEST(BusRules, ARuleGrantsTheClassesThatItNames) {
    AccessRules rules(ProcMgr::CommandClassNames());
    std::string error;
    ASSERT_TRUE(
        rules.Parse("allow uid 54000 look   # the dashboard\n"
                    "allow uid 54001-54003 look change\n"
                    "allow uid 54003 stop\n",
                    "rules", error))
        << error;
    EXPECT_TRUE(IsGranted(rules.GrantsOf(54000), CommandClass::LOOK));
    EXPECT_FALSE(IsGranted(rules.GrantsOf(54000), CommandClass::CHANGE));
    EXPECT_FALSE(IsGranted(rules.GrantsOf(54000), CommandClass::STOP));
    EXPECT_TRUE(IsGranted(rules.GrantsOf(54002), CommandClass::CHANGE));
    EXPECT_FALSE(IsGranted(rules.GrantsOf(54002), CommandClass::STOP));
    EXPECT_TRUE(IsGranted(rules.GrantsOf(54003), CommandClass::STOP));
    EXPECT_EQ(rules.GrantsOf(53999), 0U);
    EXPECT_EQ(rules.GrantsOf(static_cast<uid_t>(-1)), 0U);
}

TEST(BusRules, RootAndTheOwnUserMayDoEverything) {
    const AccessRules rules(ProcMgr::CommandClassNames());
    for (const uid_t uid : {uid_t{0}, ::geteuid()}) {
        EXPECT_TRUE(IsGranted(rules.GrantsOf(uid), CommandClass::LOOK));
        EXPECT_TRUE(IsGranted(rules.GrantsOf(uid), CommandClass::CHANGE));
        EXPECT_TRUE(IsGranted(rules.GrantsOf(uid), CommandClass::STOP));
    }
}

TEST(BusRules, ErrorsNameFileAndLine) {
    AccessRules rules(ProcMgr::CommandClassNames());
    std::string error;
    EXPECT_FALSE(rules.Parse("\nallow uid 1\n", "rules", error));
    EXPECT_EQ(error,
              "rules:2: a rule names a user ('uid <number>', 'uid <first>-<last>' or 'user <name>') and then what it "
              "grants");
    EXPECT_FALSE(rules.Parse("allow uid 1 look everything\n", "rules", error));
    EXPECT_EQ(error, "rules:1: it grants something unknown");
}

TEST(LogBudget, GivesSoManyLinesInAWindowAndCountsTheOthers) {
    LogBudget budget;
    const LogBudget::Clock::time_point start{std::chrono::hours(1)};
    uint32_t suppressed = 0;
    for (uint32_t i = 0; i < LogBudget::kLines; ++i) {
        EXPECT_TRUE(budget.Take(start, suppressed));
        EXPECT_EQ(suppressed, 0U);
    }
    EXPECT_FALSE(budget.Take(start, suppressed));
    EXPECT_FALSE(budget.Take(start + LogBudget::kWindow - std::chrono::milliseconds(1), suppressed));
    EXPECT_TRUE(budget.Take(start + LogBudget::kWindow, suppressed));
    EXPECT_EQ(suppressed, 2U);
    EXPECT_TRUE(budget.Take(start + LogBudget::kWindow, suppressed));
    EXPECT_EQ(suppressed, 0U);
}

namespace {

class Pool : public testing::Test {
protected:
    Pool() { EXPECT_EQ(ShmPool::Make({64, 2}, pool), 0); }
    std::shared_ptr<ShmPool> pool;
    uint32_t block = 0;
    uint32_t size = 0;
};

TEST_F(Pool, SizesThatMakeNoPoolAreRefused) {
    for (const VEKShmPoolConfig& config : {VEKShmPoolConfig{0, 64}, VEKShmPoolConfig{64, 0},
                                           VEKShmPoolConfig{UINT32_MAX, UINT32_MAX}, VEKShmPoolConfig{1, 1048577}}) {
        std::shared_ptr<ShmPool> none;
        EXPECT_EQ(ShmPool::Make(config, none), EINVAL);
        EXPECT_EQ(none, nullptr);
    }
}

TEST_F(Pool, HasNoMoreBlocksThanItHas) {
    ASSERT_EQ(pool->Take(64, block), 0);
    ASSERT_EQ(pool->Take(0, block), 0);
    EXPECT_EQ(pool->Take(1, block), ENOMEM);
    ASSERT_EQ(pool->Free(block), 0);
    EXPECT_EQ(pool->Take(65, block), EMSGSIZE);
    EXPECT_EQ(pool->Take(1, block), 0);
}

TEST_F(Pool, ABlockIsWrittenUpToTheSizeThatWasTaken) {
    ASSERT_EQ(pool->Take(3, block), 0);
    EXPECT_EQ(pool->Write(block, "abcd", 4), EMSGSIZE);
    EXPECT_EQ(pool->Write(block, "abc", 3), 0);
    EXPECT_EQ(pool->Write(block + 1, "a", 1), EINVAL);
    EXPECT_EQ(pool->Write(99, "a", 1), EINVAL);
}

TEST_F(Pool, EveryStepOfABlockOutOfItsStateIsRefused) {
    EXPECT_EQ(pool->Free(0), EINVAL);
    EXPECT_EQ(pool->Queue(0, size), EINVAL);
    EXPECT_EQ(pool->GiveBack(0), EINVAL);
    ASSERT_EQ(pool->Take(5, block), 0);
    EXPECT_EQ(pool->GiveBack(block), EINVAL);
    ASSERT_EQ(pool->Queue(block, size), 0);
    EXPECT_EQ(size, 5U);
    EXPECT_EQ(pool->Free(block), EINVAL);
    EXPECT_EQ(pool->Write(block, "x", 1), EINVAL);
    EXPECT_EQ(pool->Queue(block, size), EINVAL);
    EXPECT_EQ(pool->GiveBack(block), 0);
    EXPECT_EQ(pool->GiveBack(block), EINVAL);
    EXPECT_EQ(pool->GiveBack(2), EINVAL);
}

TEST_F(Pool, TheClientCanNeitherWriteNorResizeTheMemory) {
    EXPECT_EQ(::mmap(nullptr, 128, PROT_READ | PROT_WRITE, MAP_SHARED, pool->Fd(), 0), MAP_FAILED);
    EXPECT_EQ(::pwrite(pool->Fd(), "x", 1, 0), -1);
    EXPECT_EQ(::ftruncate(pool->Fd(), 0), -1);
    EXPECT_EQ(::ftruncate(pool->Fd(), 4096), -1);
    EXPECT_EQ(::fcntl(pool->Fd(), F_ADD_SEALS, F_SEAL_WRITE), -1);
    void* memory = ::mmap(nullptr, 128, PROT_READ, MAP_SHARED, pool->Fd(), 0);
    ASSERT_NE(memory, MAP_FAILED);
    ASSERT_EQ(pool->Take(2, block), 0);
    ASSERT_EQ(pool->Write(block, "hi", 2), 0);
    EXPECT_EQ(std::string(static_cast<char*>(memory) + size_t{block} * 64, 2), "hi");
    EXPECT_EQ(::mprotect(memory, 128, PROT_READ | PROT_WRITE), -1);
    ::munmap(memory, 128);
}

/// What ran, in order.
class Log {
public:
    void Add(const std::string& line) {
        watched_.Change([&] { lines_.push_back(line); });
    }
    std::vector<std::string> WaitFor(size_t count) {
        std::vector<std::string> copy;
        static_cast<void>(watched_.WaitFor([&] {
            copy = lines_;
            return lines_.size() >= count;
        }));
        return copy;
    }

private:
    TunorTest::Watched watched_;
    std::vector<std::string> lines_;
};

}  // namespace

TEST(WorkPool, LongJobsTakeHalfOfTheThreads) {
    Log log;
    const TunorTest::Gate gate;
    {
        WorkPool pool;
        ASSERT_TRUE(pool.Start());
        for (size_t i = 0; i < WorkPool::kThreads; ++i) {
            pool.Add({1, true, [&] {
                          log.Add("long");
                          EXPECT_TRUE(gate.Wait());
                      }});
        }
        EXPECT_THAT(log.WaitFor(2), ElementsAre("long", "long"));
        pool.Add({1, false, [&] { log.Add("short"); }});
        EXPECT_THAT(log.WaitFor(3), ElementsAre("long", "long", "short"));
        gate.Open();
    }
    EXPECT_THAT(log.WaitFor(5), ElementsAre("long", "long", "short", "long", "long"));
}

TEST(WorkPool, ProcessesTakeTurns) {
    Log log;
    const TunorTest::Gate gate;
    {
        WorkPool pool;
        for (size_t i = 0; i < 2 * WorkPool::kThreads; ++i) {
            pool.Add({7, false, [&] { EXPECT_TRUE(gate.Wait()); }});
        }
        pool.Add({8, false, [&] { log.Add("other"); }});
        // Whatever process 7 added first, it does not get all threads.
        ASSERT_TRUE(pool.Start());
        EXPECT_THAT(log.WaitFor(1), ElementsAre("other"));
        gate.Open();
    }
}
