/// The datagram address at which one process of an application tells about itself. app_notice.h says what may be told.
///
/// Who sent a datagram is what the kernel says, and only the application's user and root can reach the address. One
/// that comes from a living process counts when that belongs to the tree of the application's process. A sender may
/// have ended by the time its datagram is read, as every one-line command of a shell script has: nothing can be asked
/// about it any more, and it counts when it ran as the application's user. So another application of the same user can
/// speak in this one's name, but only by a process that is gone at once.
///
/// A descriptor that comes along is closed when its datagram is received, after everything that came before it has
/// been handled. That is all that a sender waits for at a barrier.
///
/// The address lives as long as the application's process. Nobody is listened to without limit: what is sent faster
/// waits in the queue of the address, and its sender with it.
#ifndef PROCMGR_PROCMGRD_APP_SOCKET_H
#define PROCMGR_PROCMGRD_APP_SOCKET_H

#include <sys/socket.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>

#include "daemons/procmgrd/app_notice.h"
#include "daemons/procmgrd/launch/process_tree.h"
#include "platform/posix/common_posix/unique_fd.h"

namespace Procmgrd {

/// Whose address it is; `name` is for the log.
struct AppSender {
    std::string name;
    ProcMgr::ProcessId leader;
};

class AppSocket {
public:
    using Take = std::function<void(const AppNotice& notice)>;

    /// So many datagrams are read within this time.
    static constexpr int kShare = 100;
    static constexpr std::chrono::milliseconds kShareTime{50};

    AppSocket() = default;
    ~AppSocket();
    AppSocket(const AppSocket&) = delete;
    AppSocket& operator=(const AppSocket&) = delete;

    /// Binds `path`. False with errno.
    [[nodiscard]] bool Open(const std::string& path);

    /// Lets that user send, nobody else but root. False with errno.
    [[nodiscard]] bool GiveTo(uid_t uid, gid_t gid);

    /// Reads what is there and hands over what those say who may speak for `app`; the others are logged. False when the
    /// share of this time is used up: wait for kShareTime then.
    [[nodiscard]] bool Read(const AppSender& app, const Take& take);

    /// The same for the end, when nobody sends any more.
    void ReadRest(const AppSender& app, const Take& take) const;

    int Fd() const { return fd_.Get(); }
    const std::string& Path() const { return path_; }

private:
    bool ReadOne(const AppSender& app, const Take& take) const;
    bool MaySpeakFor(const AppSender& app, const ucred& sender) const;

    ProcMgr::UniqueFd fd_;
    std::string path_;
    uid_t uid_ = 0;  ///< the application's user
    std::chrono::steady_clock::time_point shareBegan_;
    int shareLeft_ = kShare;
};

}  // namespace Procmgrd

#endif
