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

// More than the queue of an address holds on any system.
constexpr int kRestMax = 4096;

struct Datagram {
    std::array<char, kAppNoticeMax> bytes;
    size_t size = 0;
    bool isWhole = false;
    ucred sender{};
};

void ReadSender(msghdr& message, ucred& sender) {
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr; part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level == SOL_SOCKET && part->cmsg_type == SCM_CREDENTIALS) {
            std::memcpy(&sender, CMSG_DATA(part), sizeof(sender));
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
    ReadSender(message, datagram.sender);
    return true;
}

}  // namespace

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

bool AppSocket::GiveTo(uid_t uid, gid_t gid) {
    uid_ = uid;
    return geteuid() == uid || lchown(path_.c_str(), uid, gid) == 0;
}

bool AppSocket::Read(const AppSender& app, const Take& take) {
    const auto now = std::chrono::steady_clock::now();
    if (now - shareBegan_ >= kShareTime) {
        shareBegan_ = now;
        shareLeft_ = kShare;
    }
    while (shareLeft_ > 0 && ReadOne(app, take)) {
        --shareLeft_;
    }
    return shareLeft_ > 0;
}

void AppSocket::ReadRest(const AppSender& app, const Take& take) const {
    for (int left = kRestMax; left > 0 && ReadOne(app, take); --left) {
    }
}

/// False when there is nothing more.
bool AppSocket::ReadOne(const AppSender& app, const Take& take) const {
    Datagram datagram;
    if (!Receive(fd_.Get(), datagram)) {
        return false;
    }
    const AppNotice notice = ReadAppNotice(std::string_view(datagram.bytes.data(), datagram.size), datagram.isWhole);
    if (!MaySpeakFor(app, datagram.sender)) {
        PROCMGRD_LOG(
            kLogWarn,
            "application %s: refused a report from process %d of user %u, which does not belong to it or has ended",
            app.name.c_str(), datagram.sender.pid, datagram.sender.uid);
    } else if (!notice.isUnderstood) {
        PROCMGRD_LOG(kLogWarn, "application %s: dropped a report of %zu bytes from process %d that says nothing",
                     app.name.c_str(), datagram.size, datagram.sender.pid);
    } else {
        take(notice);
    }
    return true;
}

bool AppSocket::MaySpeakFor(const AppSender& app, const ucred& sender) const {
    if (ProcMgr::BelongsTo(sender.pid, app.leader)) {
        return true;
    }
    // The number 0 is somebody whom this process can't see at all.
    return sender.pid > 0 && sender.uid == uid_ && !ProcMgr::ReadProcessStat(sender.pid);
}

}  // namespace Procmgrd
