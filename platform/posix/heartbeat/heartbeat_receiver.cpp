#include "platform/posix/heartbeat/heartbeat_receiver.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "platform/posix/heartbeat/heartbeat_wire.h"

namespace ProcMgr::Posix {
namespace {

constexpr mode_t kDirectoryMode = 01777;
constexpr mode_t kSocketMode = 0666;

// More than the kernel queues, so that one call sees everything that waited when it began; few enough that a flood
// can't hold its caller.
constexpr int kBeatsPerCall = 2048;

// Watchers of several users share the folder; none may remove another's address.
int MakeDirectory(const std::string& path) {
    if (mkdir(path.c_str(), S_IRWXU) != 0) {
        return errno == EEXIST ? 0 : errno;
    }
    return chmod(path.c_str(), kDirectoryMode) == 0 ? 0 : errno;
}

int BindTo(int fd, const sockaddr_un& address) {
    return bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 ? 0 : errno;
}

// A socket that nobody has open. Connecting to a plain file is refused too.
bool IsAbandoned(const sockaddr_un& address) {
    struct stat status {};
    if (lstat(address.sun_path, &status) != 0 || !S_ISSOCK(status.st_mode)) {
        return false;
    }
    const int probe = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (probe < 0) {
        return false;
    }
    const int result = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    const bool isRefused = result != 0 && errno == ECONNREFUSED;
    close(probe);
    return isRefused;
}

bool ReadCredentials(msghdr& message, ucred& credentials) {
    for (cmsghdr* head = CMSG_FIRSTHDR(&message); head != nullptr; head = CMSG_NXTHDR(&message, head)) {
        if (head->cmsg_level == SOL_SOCKET && head->cmsg_type == SCM_CREDENTIALS) {
            memcpy(&credentials, CMSG_DATA(head), sizeof(credentials));
            return true;
        }
    }
    return false;
}

enum class Received { BEAT, OTHER, NOTHING };

Received ReceiveOne(int fd, ReceivedBeat& beat) {
    // One byte more than a beat can have, to tell a longer datagram from the longest beat. Room for the credentials
    // only: descriptors that somebody attaches are closed by the kernel.
    std::array<char, kBeatMax + 1> bytes{};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(ucred))> control{};
    iovec part{bytes.data(), bytes.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t size = recvmsg(fd, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (size < 0) {
        return errno == EINTR ? Received::OTHER : Received::NOTHING;
    }
    ucred credentials{};
    const std::string_view name = ReadBeat({bytes.data(), static_cast<size_t>(size)});
    if (name.empty() || !ReadCredentials(message, credentials)) {
        return Received::OTHER;
    }
    beat = {std::string(name), credentials.pid, credentials.uid, credentials.gid};
    return Received::BEAT;
}

}  // namespace

int HeartBeatReceiver::Open(const std::string& runDirectory, const std::string& watcher,
                            std::unique_ptr<HeartBeatReceiver>& receiver) {
    const int directoryError = MakeDirectory(HeartBeatDirectory(runDirectory));
    if (directoryError != 0) {
        return directoryError;
    }
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        return errno;
    }
    std::unique_ptr<HeartBeatReceiver> opened(new HeartBeatReceiver(fd));
    const int error = opened->Bind(HeartBeatPath(runDirectory, watcher));
    if (error == 0) {
        receiver = std::move(opened);
    }
    return error;
}

int HeartBeatReceiver::Bind(const std::string& path) {
    sockaddr_un address{};
    if (!MakeAddress(path, address)) {
        return ENAMETOOLONG;
    }
    const int on = 1;
    if (setsockopt(fd_, SOL_SOCKET, SO_PASSCRED, &on, sizeof(on)) != 0) {
        return errno;
    }
    int error = BindTo(fd_, address);
    if (error == EADDRINUSE && IsAbandoned(address)) {
        error = unlink(path.c_str()) == 0 ? BindTo(fd_, address) : errno;
    }
    if (error != 0) {
        return error;
    }
    path_ = path;
    return chmod(path.c_str(), kSocketMode) == 0 ? 0 : errno;
}

HeartBeatReceiver::~HeartBeatReceiver() {
    close(fd_);
    if (!path_.empty()) {
        unlink(path_.c_str());
    }
}

std::vector<ReceivedBeat> HeartBeatReceiver::Receive() {
    std::vector<ReceivedBeat> beats;
    for (int i = 0; i < kBeatsPerCall; ++i) {
        ReceivedBeat beat{};
        const Received received = ReceiveOne(fd_, beat);
        if (received == Received::NOTHING) {
            break;
        }
        if (received == Received::BEAT) {
            beats.push_back(std::move(beat));
        }
    }
    return beats;
}

}  // namespace ProcMgr::Posix
