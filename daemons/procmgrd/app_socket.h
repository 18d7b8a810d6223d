/// The datagram address at which one process of a self-reporting application tells about itself.
///
/// "procmgr 1 on" says that it is ready, "procmgr 1 off" that it is about to stop. A datagram counts when the kernel
/// says that its sender belongs to the tree of the application's process. The address lives as long as that process.
#ifndef PROCMGR_PROCMGRD_APP_SOCKET_H
#define PROCMGR_PROCMGRD_APP_SOCKET_H

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "daemons/procmgrd/launch/process_tree.h"
#include "daemons/procmgrd/launch/unique_fd.h"

namespace Procmgrd {

/// False for a text that is none of the two; `appState`: 0 on, 1 off.
[[nodiscard]] bool ReadAppDatagram(std::string_view text, uint32_t& appState);

class AppSocket {
public:
    AppSocket() = default;
    ~AppSocket();
    AppSocket(const AppSocket&) = delete;
    AppSocket& operator=(const AppSocket&) = delete;

    /// Binds `path`. False with errno.
    [[nodiscard]] bool Open(const std::string& path);

    /// Lets that user send, nobody else but root. False with errno.
    [[nodiscard]] bool GiveTo(uid_t uid, gid_t gid) const;

    /// Reads what is there, a bounded share per call, and hands over each report of a process that belongs to
    /// `leader`. Everything else is logged with its sender under `appName`.
    void Read(const std::string& appName, const ProcMgr::ProcessId& leader,
              const std::function<void(uint32_t appState)>& report);

    int Fd() const { return fd_.Get(); }
    const std::string& Path() const { return path_; }

private:
    ProcMgr::UniqueFd fd_;
    std::string path_;
};

}  // namespace Procmgrd

#endif
