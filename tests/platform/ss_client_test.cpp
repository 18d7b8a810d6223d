#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "platform/posix/common_posix/unique_fd.h"
#include "tests/platform/vek_test_kit.h"

using ProcMgr::UniqueFd;
using TunorTest::RawSocket;
using TunorTest::TempFolder;
using VekTest::Ask;
using VekTest::BusFrame;
using VekTest::ErrorFrame;
using VekTest::File;
using VekTest::Gate;
using VekTest::NextEvent;
using VekTest::OpenFile;
using VekTest::OpenQueue;
using VekTest::Queue;

namespace {

std::string Numbers(uint32_t first, uint32_t second) {
    const uint32_t numbers[2] = {first, second};
    return std::string(reinterpret_cast<const char*>(numbers), sizeof(numbers));
}

size_t OpenDescriptors() {
    size_t count = 0;
    for (int fd = 0; fd < 1024; ++fd) {
        count += ::fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
    }
    return count;
}

/// A service that is only a script: what it does with its one client runs on a thread of its own.
class SsClient : public testing::Test {
protected:
    SsClient() {
        ::setenv("PROCMGR_RUN_DIR", folder.Path().c_str(), 1);
        ::mkdir((folder.Path() + "/vek").c_str(), 0755);
    }
    ~SsClient() override { Join(); }

    void Join() {
        if (thread.joinable()) {
            thread.join();
        }
    }

    std::string Path() const { return folder.Path() + "/vek/x.sock"; }

    void Serve(const std::function<void(const RawSocket&)>& script) {
        listener = RawSocket::ListenOn(Path());
        ASSERT_TRUE(listener.IsOpen());
        thread = std::thread([this, script] {
            const RawSocket client = listener.Accept();
            script(client);
        });
    }

    /// As above, for a client that was opened.
    void ServeOpened(const std::function<void(const RawSocket&)>& script) {
        Serve([script](const RawSocket& client) {
            EXPECT_EQ(client.Receive(), BusFrame(1, 1, 0, ""));
            EXPECT_TRUE(client.Send(BusFrame(0x101, 5000, 0, "")));
            script(client);
        });
    }

    int Open(const char* name = "x", uint32_t timeoutMs = VekTest::kPatience) const {
        ProcmgrSsFile* file = nullptr;
        const int error = ProcmgrSsOpen(nullptr, name, timeoutMs, &file);
        ProcmgrSsClose(file);
        return error;
    }

    TempFolder folder;
    RawSocket listener;
    std::thread thread;
};

TEST_F(SsClient, NobodyAndADeadServiceAreToldApartAtOnce) {
    EXPECT_EQ(Open(), -ENOENT);
    { const RawSocket dead = RawSocket::ListenOn(Path()); }
    EXPECT_EQ(Open(), -ECONNREFUSED);
    ::setenv("PROCMGR_RUN_DIR", "/no/such/folder", 1);
    EXPECT_EQ(Open(), -ENOENT);
}

TEST_F(SsClient, NamesAndArgumentsAreChecked) {
    EXPECT_EQ(Open(""), -EINVAL);
    EXPECT_EQ(Open("a/b"), -EINVAL);
    EXPECT_EQ(Open("a\x7f"), -EINVAL);
    EXPECT_EQ(Open(std::string(65, 'n').c_str()), -EINVAL);
    EXPECT_EQ(Open(nullptr), -EINVAL);
    EXPECT_EQ(ProcmgrSsOpen(nullptr, "x", 1, nullptr), -EINVAL);
    EXPECT_EQ(ProcmgrSsOpenQueue(nullptr, "x", 1, nullptr), -EINVAL);
    ProcmgrSsFile* file = nullptr;
    EXPECT_EQ(ProcmgrSsOpen(std::string(100, 'd').c_str(), "x", 1, &file), -ENAMETOOLONG);
    EXPECT_EQ(file, nullptr);
    EXPECT_EQ(ProcmgrSsQueueFd(nullptr), -EINVAL);
    EXPECT_EQ(ProcmgrSsDefaultTimeoutMs(nullptr), 0U);
    ProcmgrSsClose(nullptr);
    ProcmgrSsCloseQueue(nullptr);
}

TEST_F(SsClient, BuffersAndTimeoutsAreChecked) {
    ServeOpened([](const RawSocket& client) { EXPECT_EQ(client.Receive(), ""); });
    {
        const File file = OpenFile("x");
        char byte = 0;
        int32_t result = 0;
        int64_t offset = 0;
        EXPECT_EQ(ProcmgrSsIoctl(nullptr, 6, &byte, 1, 0, &result), -EINVAL);
        EXPECT_EQ(ProcmgrSsIoctl(file.get(), 6, nullptr, 1, 0, &result), -EINVAL);
        EXPECT_EQ(ProcmgrSsIoctl(file.get(), 6, &byte, 0, 0, &result), -EINVAL);
        EXPECT_EQ(ProcmgrSsIoctl(file.get(), 6, &byte, PROCMGR_SS_BUFFER_MAX + 1, 0, &result), -EINVAL);
        EXPECT_EQ(ProcmgrSsIoctl(file.get(), 6, &byte, 1, 2147483648U, &result), -EINVAL);
        EXPECT_EQ(ProcmgrSsIoctl(file.get(), 6, &byte, 1, 0, nullptr), -EINVAL);
        EXPECT_EQ(ProcmgrSsRead(file.get(), nullptr, 1, &offset, 0, &result), -EINVAL);
        EXPECT_EQ(ProcmgrSsRead(file.get(), &byte, 0, &offset, 0, &result), -EINVAL);
    }
    Join();
}

TEST_F(SsClient, ServiceThatDoesNotAnswerTheOpeningCostsTheTimeout) {
    listener = RawSocket::ListenOn(Path());
    EXPECT_EQ(Open("x", 1), -ETIMEDOUT);
}

TEST_F(SsClient, RefusalsOfTheBusComeAsTheyAre) {
    Serve([](const RawSocket& client) { EXPECT_TRUE(client.Send(ErrorFrame(1, 0, EACCES))); });
    EXPECT_EQ(Open(), -EACCES);
}

TEST_F(SsClient, FullServiceIsTriedAgainWithinTheTimeout) {
    Serve([this](const RawSocket& client) {
        EXPECT_TRUE(client.Send(ErrorFrame(1, 0, EAGAIN)));
        const RawSocket second = listener.Accept();
        EXPECT_EQ(second.Receive(), BusFrame(1, 1, 0, ""));
        EXPECT_TRUE(second.Send(BusFrame(0x101, 5000, 0, "")));
    });
    EXPECT_EQ(Open(), 0);
}

TEST_F(SsClient, AnswersOfTheWrongShapeLoseTheFile) {
    const std::string wrong[] = {
        "short",
        BusFrame(0x102, 6, 1, "toolong"),
        BusFrame(0x102, 7, 1, "x"),
        BusFrame(0x101, 6, 1, "x"),
        BusFrame(0x202, 6, 1, ""),
        BusFrame(0x202, 6, -5000, ""),
        BusFrame(0x202, 6, -13, "x"),
        BusFrame(0x102, 6, 1, "x") + "y",
        BusFrame(17, 1, 0, Numbers(0, 1)),
    };
    for (const std::string& answer : wrong) {
        ServeOpened([&](const RawSocket& client) {
            EXPECT_EQ(client.Receive(), BusFrame(2, 6, 30000, "x"));
            EXPECT_TRUE(client.Send(answer));
            EXPECT_EQ(client.Receive(), "") << "the client says nothing more";
        });
        {
            const File file = OpenFile("x");
            EXPECT_EQ(Ask(file, 6, "x"), "EPROTO");
            EXPECT_EQ(Ask(file, 6, "x"), "EPROTO");
        }
        Join();
        ::unlink(Path().c_str());
    }
}

TEST_F(SsClient, AnAnswerWithADescriptorLosesTheFile) {
    ServeOpened([&](const RawSocket& client) {
        EXPECT_EQ(client.Receive(), BusFrame(2, 6, 30000, "x"));
        EXPECT_TRUE(client.SendWithDescriptor(BusFrame(0x102, 6, 1, "x"), client.Fd()));
    });
    EXPECT_EQ(Ask(OpenFile("x"), 6, "x"), "EPROTO");
}

TEST_F(SsClient, AnswersThatComeTooLateAreDropped) {
    ServeOpened([](const RawSocket& client) {
        EXPECT_EQ(client.Receive(), BusFrame(2, 1, 1, "a"));
        EXPECT_EQ(client.Receive(), BusFrame(2, 2, 1, "b"));
        EXPECT_EQ(client.Receive(), BusFrame(2, 3, 30000, "c"));
        EXPECT_TRUE(client.Send(BusFrame(0x102, 1, 1, "A")));
        EXPECT_TRUE(client.Send(ErrorFrame(2, 2, EBUSY)));
        EXPECT_TRUE(client.Send(BusFrame(0x102, 3, 3, "C")));
        EXPECT_EQ(client.Receive(), BusFrame(2, 4, 30000, "d"));
        EXPECT_TRUE(client.Send(BusFrame(0x102, 4, 4, "D")));
    });
    const File file = OpenFile("x");
    EXPECT_EQ(Ask(file, 1, "a", 1), "ETIMEDOUT");
    EXPECT_EQ(Ask(file, 2, "b", 1), "ETIMEDOUT");
    EXPECT_EQ(Ask(file, 3, "c"), "3 C");
    EXPECT_EQ(Ask(file, 4, "d"), "4 D");
}

TEST_F(SsClient, TheServiceDyingDuringARequestIsALoss) {
    ServeOpened([](const RawSocket& client) { EXPECT_EQ(client.Receive(), BusFrame(2, 6, 30000, "x")); });
    const File file = OpenFile("x");
    EXPECT_EQ(Ask(file, 6, "x"), "EPIPE");
    EXPECT_EQ(Ask(file, 6, "x"), "EPIPE");
}

TEST_F(SsClient, WhatTheServiceSaidBeforeItDiedIsHeard) {
    ServeOpened([](const RawSocket& client) { EXPECT_TRUE(client.Send(ErrorFrame(2, 6, EACCES))); });
    const File file = OpenFile("x");
    Join();
    EXPECT_EQ(Ask(file, 6, "x"), "EACCES");
    EXPECT_EQ(Ask(file, 6, "x"), "EPIPE");
}

TEST_F(SsClient, ReadAnswersThatLieAreRefused) {
    ServeOpened([&](const RawSocket& client) {
        EXPECT_EQ(client.Receive(), BusFrame(3, 4, 0, std::string(8, '\0')));
        EXPECT_TRUE(client.Send(BusFrame(0x103, 4, 5, std::string(8, '\0') + "12345")));
    });
    const File file = OpenFile("x");
    char buffer[4] = {'.', '.', '.', '.'};
    int64_t offset = 0;
    int32_t result = 0;
    EXPECT_EQ(ProcmgrSsRead(file.get(), buffer, sizeof(buffer), &offset, 0, &result), -EPROTO);
    EXPECT_EQ(std::string(buffer, 4), "....");
}

TEST_F(SsClient, TheServiceOfAStrangerIsNotTrusted) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root, to become another user";
    }
    ::chmod(folder.Path().c_str(), 0755);
    ::chmod((folder.Path() + "/vek").c_str(), 0777);
    ASSERT_EQ(::seteuid(54321), 0);
    listener = RawSocket::ListenOn(Path());
    ASSERT_EQ(::seteuid(0), 0);
    ASSERT_TRUE(listener.IsOpen());
    EXPECT_EQ(Open("x", 1), -EPERM);
    ::setenv("PROCMGR_SERVER_UID", "54320", 1);
    EXPECT_EQ(Open("x", 1), -EPERM);
    ::setenv("PROCMGR_SERVER_UID", "54321x", 1);
    EXPECT_EQ(Open("x", 1), -EPERM);
    ::setenv("PROCMGR_SERVER_UID", "54321", 1);
    EXPECT_EQ(Open("x", 1), -ETIMEDOUT) << "trusted, but it says nothing";
    ::unsetenv("PROCMGR_SERVER_UID");
    ASSERT_EQ(::chown((folder.Path() + "/vek").c_str(), 54321, 0), 0);
    EXPECT_EQ(Open("x", 1), -ETIMEDOUT) << "the folder is his";
}

class SsQueue : public SsClient {
protected:
    void ServeQueue(const std::function<void(const RawSocket&)>& script) {
        ServeOpened([script](const RawSocket& client) {
            EXPECT_EQ(client.Receive(), BusFrame(4, 0, 0, ""));
            EXPECT_TRUE(client.Send(BusFrame(0x104, 0, 0, "")));
            script(client);
        });
    }

    static UniqueFd Memory(size_t size, bool sealed) {
        UniqueFd fd(::memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING));
        EXPECT_EQ(::ftruncate(fd.Get(), static_cast<off_t>(size)), 0);
        if (sealed) {
            EXPECT_EQ(::fcntl(fd.Get(), F_ADD_SEALS, F_SEAL_SHRINK), 0);
        }
        return fd;
    }
};

TEST_F(SsQueue, MemoryThatTheServiceCouldTakeAwayIsRefused) {
    struct Bad {
        const char* what;
        uint32_t blockSize;
        uint32_t blockCount;
        size_t bytes;
        bool sealed;
    };
    for (const Bad& bad : {Bad{"not sealed", 64, 64, 4096, false}, Bad{"too small", 64, 65, 4096, true},
                           Bad{"no blocks", 64, 0, 4096, true}, Bad{"empty blocks", 0, 64, 4096, true},
                           Bad{"beyond all memory", UINT32_MAX, UINT32_MAX, 4096, true}}) {
        ServeQueue([&](const RawSocket& client) {
            const UniqueFd fd = Memory(bad.bytes, bad.sealed);
            EXPECT_TRUE(
                client.SendWithDescriptor(BusFrame(16, 1, 0, Numbers(bad.blockSize, bad.blockCount)), fd.Get()));
        });
        EXPECT_EQ(NextEvent(OpenQueue("x")), "EPROTO") << bad.what;
        Join();
        ::unlink(Path().c_str());
    }
}

TEST_F(SsQueue, EventsThatLieAreRefused) {
    const std::string lies[] = {
        BusFrame(17, 1, 0, Numbers(64, 1)),  BusFrame(17, 1, 0, Numbers(0, 65)),
        BusFrame(17, 2, 0, Numbers(0, 1)),   BusFrame(17, 1, 0, "x"),
        BusFrame(18, 1, 0, Numbers(0, 1)),   "x",
        BusFrame(16, 2, 0, Numbers(64, 64)),
    };
    for (const std::string& lie : lies) {
        ServeQueue([&](const RawSocket& client) {
            const UniqueFd fd = Memory(4096, true);
            EXPECT_TRUE(client.SendWithDescriptor(BusFrame(16, 1, 0, Numbers(64, 64)), fd.Get()));
            EXPECT_TRUE(client.Send(lie));
        });
        EXPECT_EQ(NextEvent(OpenQueue("x")), "EPROTO");
        Join();
        ::unlink(Path().c_str());
    }
}

TEST_F(SsQueue, DescriptorsThatNobodyAskedForAreNotLeftOpen) {
    const std::string pool = BusFrame(16, 1, 0, Numbers(64, 64));
    const std::function<void(const RawSocket&)> gifts[] = {
        [&](const RawSocket& client) {
            client.SendWithDescriptors(pool, {client.Fd(), client.Fd()});
        },
        [&](const RawSocket& client) { client.SendWithDescriptors(pool, std::vector<int>(200, client.Fd())); },
        [&](const RawSocket& client) { client.SendWithDescriptor(BusFrame(17, 1, 0, Numbers(0, 1)), client.Fd()); },
        [&](const RawSocket& client) { client.SendWithDescriptor("x", client.Fd()); },
        [&](const RawSocket& client) { client.SendWithDescriptor("", client.Fd()); },
    };
    for (const auto& gift : gifts) {
        const size_t before = OpenDescriptors();
        ServeQueue(gift);
        EXPECT_THAT(NextEvent(OpenQueue("x")), testing::AnyOf("EPROTO", "EPIPE"));
        Join();
        listener.Close();
        EXPECT_EQ(OpenDescriptors(), before);
        ::unlink(Path().c_str());
    }
}

TEST_F(SsQueue, AnEventBeforeAnyPoolIsRefused) {
    ServeQueue([](const RawSocket& client) { EXPECT_TRUE(client.Send(BusFrame(17, 0, 0, Numbers(0, 0)))); });
    EXPECT_EQ(NextEvent(OpenQueue("x")), "EPROTO");
}

TEST_F(SsQueue, BlocksAreHandedBackWhenTheyWereRead) {
    ServeQueue([](const RawSocket& client) {
        const UniqueFd fd = Memory(4096, true);
        EXPECT_EQ(::pwrite(fd.Get(), "hello", 5, 128), 5);
        EXPECT_TRUE(client.SendWithDescriptor(BusFrame(16, 7, 0, Numbers(64, 64)), fd.Get()));
        EXPECT_TRUE(client.Send(BusFrame(17, 7, 0, Numbers(2, 5))));
        EXPECT_EQ(client.Receive(), BusFrame(5, 7, 0, std::string("\x02\0\0\0", 4)));
    });
    const Queue queue = OpenQueue("x");
    EXPECT_EQ(NextEvent(queue), "hello");
    Join();
    EXPECT_EQ(NextEvent(queue), "EPIPE");
}

void Ignore(int /*signal*/) {
}

TEST_F(SsQueue, ASignalHandlerEndsTheWait) {
    const Gate done;
    ServeQueue([done](const RawSocket&) { EXPECT_TRUE(done.Wait()); });
    struct sigaction action = {};
    action.sa_handler = Ignore;
    ASSERT_EQ(::sigaction(SIGUSR1, &action, nullptr), 0);
    const Queue queue = OpenQueue("x");
    // A signal that comes before the wait would be missed: so it comes again and again until the wait has ended.
    const pthread_t waiting = ::pthread_self();
    std::atomic<bool> over{false};
    std::thread nagging([&] {
        while (!over) {
            ::pthread_kill(waiting, SIGUSR1);
            std::this_thread::yield();
        }
    });
    EXPECT_EQ(NextEvent(queue, -1), "EINTR");
    over = true;
    nagging.join();
    done.Open();
}

}  // namespace
