/// Receives the owners: admits them, reads their requests and sends them what they are to know.
#ifndef PROCMGR_PROCMGRD_OWNER_DESK_H
#define PROCMGR_PROCMGRD_OWNER_DESK_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "daemons/procmgrd/conductor.h"
#include "daemons/procmgrd/owner_hearts.h"
#include "daemons/procmgrd/owner_table.h"
#include "daemons/procmgrd/timelines.h"
#include "platform/posix/common_posix/access_rules.h"
#include "platform/posix/tunor/tunor_server.h"
#include "pm_agent/message_records.h"
#include "pm_agent/request_msg.h"

namespace Procmgrd {

/// The name under which owners find the process manager.
inline constexpr const char* kPeerName = "PROCMGR";

struct OwnerDeskSettings {
    std::string runDir;
    ProcMgr::AccessRules rules;
    bool isTerminatingOnOwnerExit = false;
};

class OwnerDesk {
public:
    /// All three outlive the desk; the conductor calls its Report, AppReport and Down.
    OwnerDesk(Conductor& conductor, OwnerHearts& hearts, Timelines& timelines, OwnerDeskSettings settings);

    /// Opens the pipe. False, with a sentence in `error`, when that fails.
    [[nodiscard]] bool Listen(std::string& error);

    /// Readable when Dispatch() has something to do.
    int PollFd() const { return server_->PollFd(); }
    void Dispatch() { server_->Dispatch(); }

    size_t CountOwners() const { return owners_.CountConnected(); }

    /// To the owner, if it is there.
    void Report(const std::string& owner, const ProcMgr::Message::AppStateInfo& report);
    void AppReport(const AppKey& key, pid_t pid, uint32_t appState);
    void AppBeat(const AppKey& key, pid_t pid, gid_t gid);

    /// An application of this owner has no process any more.
    void Down(const std::string& owner);

private:
    int Admit(const ProcMgr::TunorPeer& peer) const;
    void Open(ConnectionId id, const ProcMgr::TunorPeer& peer);
    void Closed(const ProcMgr::TunorPeer& peer, const std::string& reason);
    void ForgetIfDone(const std::string& owner);

    void OnRequest(ConnectionId id, const std::string& bytes);
    void OnCall(ConnectionId id, uint32_t seq, const std::string& bytes);
    bool Handle(Owner& owner, uint32_t type, const std::string& text);
    bool HandleStart(Owner& owner, bool isRestart, const std::string& text);
    bool HandleTerm(const Owner& owner, const std::string& text);
    bool HandleQuery(const Owner& owner, const std::string& data);
    bool HandleBaseService(Owner& owner, const std::string& text);
    static bool HandleExec(Owner& owner, const std::string& text);
    int HandleConfig(Owner& owner, uint32_t type, const std::string& text);
    void NoteRequest(const Owner& owner, const std::string& app, bool isRestart);
    void NoteConfiguration(const Owner& owner, const std::string& path, bool isGood);
    void NoteManifests(const Owner& owner);
    void Send(const Owner& owner, const std::vector<ProcMgr::Message::RequestMsg>& records);

    Conductor& conductor_;
    OwnerHearts& hearts_;
    Timelines& timelines_;
    const OwnerDeskSettings settings_;
    OwnerTable owners_;
    std::unique_ptr<ProcMgr::TunorServer> server_;
};

}  // namespace Procmgrd

#endif
