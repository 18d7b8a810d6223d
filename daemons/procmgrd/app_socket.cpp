#include "daemons/procmgrd/app_socket.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "daemons/procmgrd/daemon_log.h"

namespace Procmgrd {
namespace {

constexpr int kDatagramsPerTurn = 64;

struct Datagram {
    std::array<char, 256> bytes;
    size_t size = 0;
    bool isWhole = false;
    ucred sender{};
};

void ReadSender(msghdr& message, Datagram& datagram) {
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_CREDENTIALS) {
            std::memcpy(&datagram.sender, CMSG_DATA(part), sizeof(datagram.sender));
        }
    }
}

// The control buffer has room for the credentials only: descriptors that a sender passes are closed by the kernel.
bool Receive(int fd, Datagram& datagram) {
    iovec part{datagram.bytes.data(), datagram.bytes.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(ucred))> control{};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t size = recvmsg(fd, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (size < 0) {
        return false;
    }
    datagram.size = static_cast<size_t>(size);
    datagram.isWhole = (message.msg_flags & MSG_TRUNC) == 0;
    ReadSender(message, datagram);
    return true;
}

}  // namespace

bool ReadAppDatagram(std::string_view text, uint32_t& appState) {
    constexpr uint32_t kOn = 0;
    constexpr uint32_t kOff = 1;
    if (text == "procmgr 1 on") {
        appState = kOn;
        return true;
    }
    if (text == "procmgr 1 off") {
        appState = kOff;
        return true;
    }
    return false;
}

AppSocket::~AppSocket() {
    if (fd_.IsOpen()) {
        static_cast<void>(unlink(path_.c_str()));
    }
}

bool AppSocket::Open(const std::string& path) {
    sockaddr_un address{};
    if (path.size() >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return false;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    ProcMgr::UniqueFd fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int on = 1;
    if (!fd.IsOpen() || setsockopt(fd.Get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof(on)) != 0) {
        return false;
    }
    // What lies there is ours: nobody else may write into the folder.
    static_cast<void>(unlink(path.c_str()));
    if (bind(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        return false;
    }
    fd_ = std::move(fd);
    path_ = path;
    return chmod(path.c_str(), S_IRUSR | S_IWUSR) == 0;
}

bool AppSocket::GiveTo(uid_t uid, gid_t gid) const {
    return geteuid() == uid || chown(path_.c_str(), uid, gid) == 0;
}

void AppSocket::Read(const std::string& appName, const ProcMgr::ProcessId& leader,
                     const std::function<void(uint32_t)>& report) {
    Datagram datagram;
    for (int left = kDatagramsPerTurn; left > 0 && Receive(fd_.Get(), datagram); --left) {
        uint32_t appState = 0;
        if (!ProcMgr::BelongsTo(datagram.sender.pid, leader)) {
            PROCMGRD_LOG(kLogWarn,
                         "application %s: refused a report from process %d of user %u, which does not belong to it",
                         appName.c_str(), datagram.sender.pid, datagram.sender.uid);
        } else if (!datagram.isWhole ||
                   !ReadAppDatagram(std::string_view(datagram.bytes.data(), datagram.size), appState)) {
            PROCMGRD_LOG(kLogWarn, "application %s: dropped a report of %zu bytes from process %d that says nothing",
                         appName.c_str(), datagram.size, datagram.sender.pid);
        } else {
            report(appState);
        }
    }
}

}  // namespace Procmgrd
