#include "daemons/procmgrd/owner_desk.h"

#include <cerrno>

#include "common/enumeration_names.h"
#include "daemons/procmgrd/daemon_log.h"
#include "daemons/procmgrd/owner_protocol.h"

namespace Procmgrd {
namespace {

namespace Message = ProcMgr::Message;
using Message::RequestType;
using ProcMgr::Timeline::EventKind;
using ProcMgr::Timeline::EventOf;

/// Names in execution reports are the owner's own choice; this many are kept.
constexpr size_t kMaxExecReports = 4096;

}  // namespace

OwnerDesk::OwnerDesk(Conductor& conductor, OwnerHearts& hearts, Timelines& timelines, OwnerDeskSettings settings)
    : conductor_(conductor), hearts_(hearts), timelines_(timelines), settings_(std::move(settings)) {
    ProcMgr::TunorServerCallbacks callbacks;
    callbacks.allowUser = [this](uid_t uid) { return settings_.rules.Allowed(uid); };
    callbacks.admit = [this](const ProcMgr::TunorPeer& peer) { return Admit(peer); };
    callbacks.opened = [this](ConnectionId id, const ProcMgr::TunorPeer& peer) { Open(id, peer); };
    callbacks.request = [this](ConnectionId id, const std::string& bytes) { OnRequest(id, bytes); };
    callbacks.call = [this](ConnectionId id, uint32_t seq, const std::string& bytes) { OnCall(id, seq, bytes); };
    callbacks.closed = [this](ConnectionId, const ProcMgr::TunorPeer& peer, const std::string& reason) {
        Closed(peer, reason);
    };
    server_ = std::make_unique<ProcMgr::TunorServer>(std::move(callbacks));
}

bool OwnerDesk::Listen(std::string& error) {
    return server_->Listen(settings_.runDir, kPeerName, error);
}

int OwnerDesk::Admit(const ProcMgr::TunorPeer& peer) const {
    if (conductor_.IsStopping()) {
        return ESHUTDOWN;
    }
    const int error = owners_.Admit(peer.name, peer.uid);
    if (error == EACCES) {
        PROCMGRD_LOG(kLogWarn,
                     "owner %s: refused process %d of user %u: the applications of this owner, which are kept "
                     "running, belong to another user",
                     peer.name.c_str(), peer.pid, peer.uid);
    }
    return error;
}

void OwnerDesk::Open(ConnectionId id, const ProcMgr::TunorPeer& peer) {
    const bool isBack = owners_.Find(peer.name) != nullptr;
    ProcMgr::OwnerIdentity identity;
    identity.uid = peer.uid;
    identity.gid = peer.gid;
    identity.groups.assign(peer.groups.begin(), peer.groups.end());
    const Owner& owner = owners_.Connect(peer.name, identity, id);
    timelines_.Come({peer.name, peer.pid, peer.uid, peer.gid});
    NoteManifests(owner);
    hearts_.Came(peer.name, peer.pid);
    AppBeat({peer.name, {}}, 0, 0);
    if (isBack) {
        PROCMGRD_LOG(kLogEvent, "owner %s is back as process %d of user %u; %zu applications were kept running",
                     peer.name.c_str(), peer.pid, peer.uid, conductor_.LiveAppsOf(peer.name).size());
    } else {
        PROCMGRD_LOG(kLogEvent, "owner %s came as process %d of user %u", peer.name.c_str(), peer.pid, peer.uid);
    }
}

void OwnerDesk::Closed(const ProcMgr::TunorPeer& peer, const std::string& reason) {
    owners_.Disconnect(peer.name);
    hearts_.Gone(peer.name);
    timelines_.Note(peer.name, EventOf(EventKind::LEFT));
    const std::vector<std::string> live = conductor_.LiveAppsOf(peer.name);
    PROCMGRD_LOG(kLogEvent, "owner %s (pid %d) is gone: %s; %zu applications are %s", peer.name.c_str(), peer.pid,
                 reason.c_str(), live.size(), settings_.isTerminatingOnOwnerExit ? "terminated" : "kept running");
    if (settings_.isTerminatingOnOwnerExit) {
        for (const std::string& app : live) {
            conductor_.Terminate({peer.name, app});
        }
    }
    ForgetIfDone(peer.name);
}

void OwnerDesk::Down(const std::string& owner) {
    const Owner* const found = owners_.Find(owner);
    if (found != nullptr && found->connection == 0) {
        ForgetIfDone(owner);
    }
}

void OwnerDesk::ForgetIfDone(const std::string& owner) {
    if (conductor_.LiveAppsOf(owner).empty()) {
        timelines_.Forget(owner);
        owners_.Erase(owner);
    }
}

void OwnerDesk::OnRequest(ConnectionId id, const std::string& bytes) {
    Owner* const owner = owners_.FindByConnection(id);
    uint32_t type = 0;
    std::string text;
    if (owner == nullptr) {
        return;
    }
    if (!ReadRecord(bytes, type, text)) {
        PROCMGRD_LOG(kLogError, "owner %s: dropped a request of %zu bytes: that is not the size of a record",
                     owner->name.c_str(), bytes.size());
    } else if (!Handle(*owner, type, text)) {
        PROCMGRD_LOG(kLogError, "owner %s: dropped a malformed request of type %u with %zu bytes", owner->name.c_str(),
                     type, text.size());
    }
}

void OwnerDesk::OnCall(ConnectionId id, uint32_t seq, const std::string& bytes) {
    Owner* const owner = owners_.FindByConnection(id);
    uint32_t type = 0;
    std::string text;
    if (owner == nullptr) {
        return;
    }
    int result = EINVAL;
    if (ReadRecord(bytes, type, text)) {
        result = HandleConfig(*owner, type, text);
    } else {
        PROCMGRD_LOG(kLogError, "owner %s: refused a call of %zu bytes: that is not the size of a record",
                     owner->name.c_str(), bytes.size());
    }
    const std::string answer = WriteResult(result);
    server_->Answer(id, seq, answer.data(), answer.size());
}

bool OwnerDesk::Handle(Owner& owner, uint32_t type, const std::string& text) {
    switch (static_cast<RequestType>(type)) {
        case RequestType::START_APP:
            return HandleStart(owner, false, text);
        case RequestType::RESTART_APP:
            return HandleStart(owner, true, text);
        case RequestType::TERM_APP:
            return HandleTerm(owner, text);
        case RequestType::QUERY_APP_STATE:
            return HandleQuery(owner, text);
        case RequestType::BASESERVICE_STATE_REPORT:
            return HandleBaseService(owner, text);
        case RequestType::APP_EXECUTION_REPORT:
            return HandleExec(owner, text);
        default:
            PROCMGRD_LOG(kLogError, "owner %s: dropped a request of unknown type %u", owner.name.c_str(), type);
            return true;
    }
}

bool OwnerDesk::HandleStart(Owner& owner, bool isRestart, const std::string& text) {
    std::vector<Message::StartAppInfo> apps;
    if (!ReadStartPiece(text, apps)) {
        return false;
    }
    ++owner.startRequests;
    for (Message::StartAppInfo& app : apps) {
        NoteRequest(owner, app.appName, isRestart);
        AppRequest request;
        request.isRestart = isRestart;
        request.argv = std::move(app.argv);
        request.dynamicPara = std::move(app.dynamicPara);
        conductor_.Start({owner.name, app.appName}, std::move(request), owner.configuration.Find(app.appName),
                         owner.identity);
    }
    return true;
}

bool OwnerDesk::HandleTerm(const Owner& owner, const std::string& text) {
    std::vector<Message::TermAppInfo> apps;
    if (!ReadTermPiece(text, apps)) {
        return false;
    }
    for (const Message::TermAppInfo& app : apps) {
        conductor_.Terminate({owner.name, app.appName});
    }
    return true;
}

bool OwnerDesk::HandleQuery(const Owner& owner, const std::string& data) {
    std::vector<std::string> names;
    if (!ReadQuery(data, names)) {
        return false;
    }
    std::vector<std::pair<std::string, uint32_t>> states;
    states.reserve(names.size());
    for (const std::string& name : names) {
        states.emplace_back(name, conductor_.QueryState({owner.name, name}));
    }
    Send(owner, WriteQueryAnswer(states));
    return true;
}

bool OwnerDesk::HandleBaseService(Owner& owner, const std::string& text) {
    Message::BaseServiceStateInfo info;
    if (!ReadBaseServicePiece(text, info)) {
        return false;
    }
    owner.baseServiceState = info.state;
    ProcMgr::Timeline::Event event = EventOf(EventKind::SERVICES);
    event.state = info.state;
    timelines_.Note(owner.name, std::move(event));
    PROCMGRD_LOG(kLogEvent, "owner %s: its base services are %u (%s)", owner.name.c_str(), info.state,
                 ProcMgr::GetBaseServiceStateTypeStr(info.state).c_str());
    return true;
}

bool OwnerDesk::HandleExec(Owner& owner, const std::string& text) {
    Message::AppExecInfo info;
    if (!ReadExecPiece(text, info)) {
        return false;
    }
    PROCMGRD_LOG(kLogInfo, "owner %s: execution of %s is %u (%s), values %u and %u", owner.name.c_str(),
                 info.appName.c_str(), info.execState, ProcMgr::GetAppExecStateStr(info.execState).c_str(), info.value1,
                 info.value2);
    if (owner.execReports.size() < kMaxExecReports) {
        owner.execReports[info.appName] = info;
    }
    return true;
}

int OwnerDesk::HandleConfig(Owner& owner, uint32_t type, const std::string& text) {
    const bool isReload = type == static_cast<uint32_t>(RequestType::RELOAD_STARTUP_CFG);
    Message::StartupCfgInfo source;
    if (!isReload && type != static_cast<uint32_t>(RequestType::LOAD_STARTUP_CFG)) {
        PROCMGRD_LOG(kLogError, "owner %s: refused a call of unknown type %u", owner.name.c_str(), type);
        return ENOSYS;
    }
    if (!ReadConfigPiece(text, source)) {
        PROCMGRD_LOG(kLogError, "owner %s: refused a malformed configuration call with %zu bytes", owner.name.c_str(),
                     text.size());
        return EINVAL;
    }
    const bool isGood = isReload ? owner.configuration.Reload(owner.name, owner.identity, source)
                                 : owner.configuration.Load(owner.name, owner.identity, source);
    NoteConfiguration(owner, source.procName, isGood);
    return isGood ? 0 : EINVAL;
}

void OwnerDesk::NoteRequest(const Owner& owner, const std::string& app, bool isRestart) {
    ProcMgr::Timeline::Event event = EventOf(EventKind::ASKED, app);
    event.request = owner.startRequests;
    event.restart = isRestart ? 1 : 0;
    timelines_.Note(owner.name, std::move(event));
}

void OwnerDesk::NoteConfiguration(const Owner& owner, const std::string& path, bool isGood) {
    ProcMgr::Timeline::Event event = EventOf(EventKind::LOADED);
    event.path = path;
    event.good = isGood ? 1 : 0;
    timelines_.Note(owner.name, std::move(event));
    if (isGood) {
        NoteManifests(owner);
    }
}

void OwnerDesk::NoteManifests(const Owner& owner) {
    for (const auto& [name, manifest] : owner.configuration.All()) {
        ProcMgr::Timeline::Event event = EventOf(EventKind::MANIFEST, name);
        event.boot = manifest.GetIsAutoBoot() ? 1 : 0;
        event.reports = ProcMgr::IsSelfReporting(manifest) ? 1 : 0;
        const std::set<std::string> depends = manifest.GetDependList();
        event.depends.assign(depends.begin(), depends.end());
        timelines_.Note(owner.name, std::move(event));
    }
}

void OwnerDesk::Report(const std::string& owner, const Message::AppStateInfo& report) {
    const Owner* const found = owners_.Find(owner);
    if (found != nullptr) {
        Send(*found, WriteStateReports({report}));
    }
}

void OwnerDesk::AppReport(const AppKey& key, pid_t pid, uint32_t appState) {
    const Owner* const found = owners_.Find(key.owner);
    if (found != nullptr && found->connection != 0) {
        server_->SendAppReport(found->connection, key.app, pid, appState);
    }
}

void OwnerDesk::AppBeat(const AppKey& key, pid_t pid, gid_t gid) {
    const Owner* const found = owners_.Find(key.owner);
    if (found != nullptr && found->connection != 0) {
        // One that the owner is too busy for is left out.
        static_cast<void>(server_->SendAppBeat(found->connection, key.app, pid, gid));
    }
}

void OwnerDesk::Send(const Owner& owner, const std::vector<Message::RequestMsg>& records) {
    for (const Message::RequestMsg& record : records) {
        if (owner.connection != 0) {
            server_->SendRequest(owner.connection, &record, sizeof(record));
        }
    }
}

}  // namespace Procmgrd
