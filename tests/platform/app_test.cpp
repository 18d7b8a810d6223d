#include "platform/posix/app/procmgr_app.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "platform/posix/common_posix/unique_fd.h"

namespace {

/// The process manager's end: a datagram socket of one application.
class AppSocket : public testing::Test {
protected:
    AppSocket() {
        char folder[] = "/tmp/procmgr-app-XXXXXX";
        folder_ = ::mkdtemp(folder);
        path_ = folder_ + "/cam.sock";
        address_.sun_family = AF_UNIX;
        std::memcpy(address_.sun_path, path_.data(), path_.size());
    }

    ~AppSocket() override { std::filesystem::remove_all(folder_); }

    void Listen() {
        fd_.Reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(::bind(fd_.Get(), reinterpret_cast<sockaddr*>(&address_), sizeof(address_)), 0);
        const int on = 1;
        ASSERT_EQ(::setsockopt(fd_.Get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof(on)), 0);
        ::setenv("PROCMGR_APP_SOCKET", path_.c_str(), 1);
    }

    std::string Receive(ucred& sender) {
        char text[100];
        alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))] = {};
        iovec part = {text, sizeof(text)};
        msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof(control);
        const ssize_t size = ::recvmsg(fd_.Get(), &message, MSG_DONTWAIT);
        const cmsghdr* head = CMSG_FIRSTHDR(&message);
        if (head != nullptr && head->cmsg_type == SCM_CREDENTIALS) {
            std::memcpy(&sender, CMSG_DATA(head), sizeof(sender));
        }
        return size < 0 ? "nothing" : std::string(text, static_cast<size_t>(size));
    }

    /// The next one, if it comes within a minute.
    std::string Await(ucred& sender) {
        pollfd entry = {fd_.Get(), POLLIN, 0};
        EXPECT_EQ(::poll(&entry, 1, 60000), 1);
        return Receive(sender);
    }

    std::string folder_;
    std::string path_;
    sockaddr_un address_ = {};
    ProcMgr::UniqueFd fd_;
};

int FailureOf(int (*report)()) {
    errno = 0;
    return report() == -1 ? errno : 0;
}

}  // namespace

TEST_F(AppSocket, ReadyAndStoppingSendTheirTextsInOrder) {
    Listen();
    EXPECT_EQ(ProcmgrAppReady(), 0);
    EXPECT_EQ(ProcmgrAppStopping(), 0);
    ucred sender = {};
    EXPECT_EQ(Receive(sender), "procmgr 1 on");
    EXPECT_EQ(Receive(sender), "procmgr 1 off");
    EXPECT_EQ(Receive(sender), "nothing");
}

TEST_F(AppSocket, TheKernelVouchesForTheSender) {
    Listen();
    EXPECT_EQ(ProcmgrAppReady(), 0);
    ucred sender = {};
    Receive(sender);
    EXPECT_EQ(sender.pid, ::getpid());
    EXPECT_EQ(sender.uid, ::geteuid());
}

TEST_F(AppSocket, WithoutAnAddressTheProcessIsNotConnected) {
    ::unsetenv("PROCMGR_APP_SOCKET");
    EXPECT_EQ(FailureOf(ProcmgrAppReady), ENOTCONN);
    ::setenv("PROCMGR_APP_SOCKET", "", 1);
    EXPECT_EQ(FailureOf(ProcmgrAppStopping), ENOTCONN);
}

TEST_F(AppSocket, AnAddressThatDoesNotFitIsRefused) {
    ::setenv("PROCMGR_APP_SOCKET", std::string(108, 'a').c_str(), 1);
    EXPECT_EQ(FailureOf(ProcmgrAppReady), ENAMETOOLONG);
}

TEST_F(AppSocket, AnAddressMayBeAnAbstractName) {
    const std::string name = "@procmgr-app-test/" + std::to_string(::getpid());
    std::memcpy(address_.sun_path, name.data(), name.size());
    address_.sun_path[0] = '\0';
    fd_.Reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    ASSERT_EQ(::bind(fd_.Get(), reinterpret_cast<sockaddr*>(&address_), size), 0);
    ::setenv("PROCMGR_APP_SOCKET", name.c_str(), 1);
    EXPECT_EQ(ProcmgrAppReady(), 0);
    ucred sender = {};
    EXPECT_EQ(Receive(sender), "procmgr 1 on");
}

TEST_F(AppSocket, AProcessManagerThatIsGoneIsAnError) {
    Listen();
    fd_.Reset();
    EXPECT_EQ(FailureOf(ProcmgrAppReady), ECONNREFUSED);
    std::filesystem::remove(path_);
    EXPECT_EQ(FailureOf(ProcmgrAppReady), ENOENT);
}

TEST_F(AppSocket, AProcessManagerThatDoesNotReadIsGivenUp) {
    Listen();
    // The queue of a datagram socket is short; the first report that it does not take ends with the time-out.
    int error = 0;
    for (int i = 0; i < 10000 && error == 0; ++i) {
        error = FailureOf(ProcmgrAppReady);
    }
    EXPECT_EQ(error, ETIMEDOUT);
}

TEST_F(AppSocket, OneBeatSendsItsText) {
    Listen();
    EXPECT_EQ(ProcmgrAppBeat(), 0);
    ucred sender = {};
    EXPECT_EQ(Receive(sender), "procmgr 1 beat");
    EXPECT_EQ(Receive(sender), "nothing");
}

TEST_F(AppSocket, ThePeriodOfBeatsIsTheOneInTheEnvironmentOrASecond) {
    for (const char* text : {"250", "1", "2147483647"}) {
        ::setenv("PROCMGR_HEARTBEAT_PERIOD_MS", text, 1);
        EXPECT_EQ(std::to_string(ProcmgrAppBeatPeriodMs()), text);
    }
    for (const char* text : {"", "0", "-5", " 5", "5x", "x", "2147483648", "99999999999999999999"}) {
        ::setenv("PROCMGR_HEARTBEAT_PERIOD_MS", text, 1);
        EXPECT_EQ(ProcmgrAppBeatPeriodMs(), 1000) << text;
    }
    ::unsetenv("PROCMGR_HEARTBEAT_PERIOD_MS");
    EXPECT_EQ(ProcmgrAppBeatPeriodMs(), 1000);
}

TEST_F(AppSocket, TheBeatingThreadBeatsUntilItIsStopped) {
    Listen();
    ::setenv("PROCMGR_HEARTBEAT_PERIOD_MS", "1", 1);
    ASSERT_EQ(ProcmgrAppStartBeating(), 0);
    EXPECT_EQ(ProcmgrAppStartBeating(), 0) << "it beats already";
    ucred sender = {};
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(Await(sender), "procmgr 1 beat");
        EXPECT_EQ(sender.pid, ::getpid());
    }
    ProcmgrAppStopBeating();
    while (Receive(sender) != "nothing") {
    }
    EXPECT_EQ(ProcmgrAppBeat(), 0);
    EXPECT_EQ(Await(sender), "procmgr 1 beat");
    EXPECT_EQ(Receive(sender), "nothing");
}

TEST_F(AppSocket, BeatingMayBeStartedAgainAndStoppedWithoutHavingBegun) {
    Listen();
    ::setenv("PROCMGR_HEARTBEAT_PERIOD_MS", "3600000", 1);
    ProcmgrAppStopBeating();
    ucred sender = {};
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(ProcmgrAppStartBeating(), 0);
        EXPECT_EQ(Await(sender), "procmgr 1 beat") << "the first beat goes out at once";
        ProcmgrAppStopBeating();
        ProcmgrAppStopBeating();
    }
    EXPECT_EQ(Receive(sender), "nothing");
}

TEST_F(AppSocket, BeatingDoesNotBeginWithoutAnAddress) {
    ::unsetenv("PROCMGR_APP_SOCKET");
    EXPECT_EQ(FailureOf(ProcmgrAppBeat), ENOTCONN);
    EXPECT_EQ(FailureOf(ProcmgrAppStartBeating), ENOTCONN);
    ProcmgrAppStopBeating();
}

TEST_F(AppSocket, NoDescriptorIsLeftOpen) {
    Listen();
    const int before = ::dup(fd_.Get());
    ::close(before);
    EXPECT_EQ(ProcmgrAppReady(), 0);
    ::unlink(path_.c_str());
    EXPECT_EQ(FailureOf(ProcmgrAppReady), ENOENT);
    const int after = ::dup(fd_.Get());
    ::close(after);
    EXPECT_EQ(after, before);
}
