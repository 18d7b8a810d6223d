#include "platform/posix/tunor/tunor_connect.h"

#include <fcntl.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>

#include "platform/posix/tunor/tunor_log.h"
#include "platform/posix/tunor/tunor_socket.h"

namespace ProcMgr {

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

constexpr Milliseconds kFirstPause{1};
constexpr Milliseconds kLongestPause{100};
constexpr Milliseconds kHelloAtLeast{2000};

struct Attempt {
    int result;  ///< 0 or a negative errno
    bool again;  ///< the peer is not there yet
};

int RemainingMs(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<Milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT32_MAX));
}

bool IsConfiguredServer(uid_t uid) {
    const char* text = std::getenv("PROCMGR_SERVER_UID");
    if (text == nullptr) {
        return false;
    }
    uid_t configured = 0;
    const char* end = text + std::strlen(text);
    const auto result = std::from_chars(text, end, configured);
    return result.ec == std::errc() && result.ptr == end && configured == uid;
}

bool IsTrustedServer(int fd) {
    ucred server = {};
    if (!ReadPeerCredentials(fd, server)) {
        return false;
    }
    if (server.uid == 0 || server.uid == ::geteuid() || IsConfiguredServer(server.uid)) {
        return true;
    }
    TUNOR_LOG(kLogError, "TunorOpen : the peer runs as uid %u, which is not trusted", server.uid);
    return false;
}

bool WaitReadable(int fd, Clock::time_point deadline) {
    pollfd entry = {fd, POLLIN, 0};
    int ready = 0;
    do {
        ready = ::poll(&entry, 1, RemainingMs(deadline));
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

ReceiveResult ReceiveHelloAnswer(int fd, ReceiveBuffer& buffer, Clock::time_point deadline) {
    while (WaitReadable(fd, deadline)) {
        const ReceiveResult result = ReceiveFrame(fd, buffer, MSG_DONTWAIT);
        if (result != ReceiveResult::DROPPED && result != ReceiveResult::EMPTY) {
            return result;
        }
    }
    return ReceiveResult::EMPTY;
}

Attempt SayHello(int fd, const std::string& ownName, Clock::time_point deadline) {
    const FrameHead head = {FrameKind::HELLO, 0, static_cast<uint32_t>(ownName.size())};
    const int sent = SendFrame(fd, head, ownName.data(), MSG_DONTWAIT);
    if (sent < 0 && sent != -EPIPE && sent != -ECONNRESET) {
        return {sent, false};
    }
    ReceiveBuffer buffer;
    const Clock::time_point patience = std::max(deadline, Clock::now() + kHelloAtLeast);
    const ReceiveResult received = ReceiveHelloAnswer(fd, buffer, patience);
    if (received == ReceiveResult::EMPTY) {
        return {-ETIMEDOUT, false};
    }
    if (received == ReceiveResult::END) {
        return {-ECONNRESET, true};
    }
    int refusal = 0;
    if (received != ReceiveResult::FRAME || !DecodeHelloAnswer(buffer.frame, refusal)) {
        TUNOR_LOG(kLogError, "TunorOpen : the peer's answer to the hello is malformed");
        return {-EPROTO, false};
    }
    return {-refusal, false};
}

bool IsNotThereYet(int error) {
    return error == ENOENT || error == ECONNREFUSED || error == EAGAIN;
}

Attempt TryOnce(const sockaddr_un& address, const std::string& ownName, Clock::time_point deadline, UniqueFd& out) {
    UniqueFd fd = MakePacketSocket();
    // Non-blocking until the hello is answered: a full backlog must not hold us beyond the deadline.
    if (!fd || ::fcntl(fd.Get(), F_SETFL, O_NONBLOCK) != 0) {
        return {-errno, false};
    }
    if (::connect(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        return {-errno, IsNotThereYet(errno)};
    }
    if (!IsTrustedServer(fd.Get())) {
        return {-EACCES, false};
    }
    const Attempt hello = SayHello(fd.Get(), ownName, deadline);
    if (hello.result == 0) {
        if (::fcntl(fd.Get(), F_SETFL, 0) != 0) {
            return {-errno, false};
        }
        out = std::move(fd);
    }
    return hello;
}

}  // namespace

std::string OwnNameForHello() {
    const char* value = std::getenv("PROC_NAME");
    if (value != nullptr && value[0] != '\0') {
        return value;
    }
    char path[4096];
    const ssize_t size = ::readlink("/proc/self/exe", path, sizeof(path));
    const std::string program(path, size > 0 ? static_cast<size_t>(size) : 0);
    return program.substr(program.rfind('/') + 1);
}

int ConnectPipe(const std::string& peerName, Milliseconds timeout, UniqueFd& fd) {
    const std::string ownName = OwnNameForHello();
    sockaddr_un address = {};
    if (!IsPeerName(peerName) || !IsPeerName(ownName)) {
        return -EINVAL;
    }
    if (!MakeSocketAddress(RunDirectory() + "/" + peerName + ".sock", address)) {
        return -ENAMETOOLONG;
    }
    const Clock::time_point deadline = Clock::now() + timeout;
    for (Milliseconds pause = kFirstPause;; pause = std::min(2 * pause, kLongestPause)) {
        const Attempt attempt = TryOnce(address, ownName, deadline, fd);
        if (!attempt.again) {
            return attempt.result;
        }
        const int left = RemainingMs(deadline);
        if (left == 0) {
            return attempt.result == -EAGAIN ? -EAGAIN : -ETIMEDOUT;
        }
        ::poll(nullptr, 0, std::min(left, static_cast<int>(pause.count())));
    }
}

}  // namespace ProcMgr
