#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/posix/common_posix/packet_socket.h"
#include "platform/posix/common_posix/signals_blocked.h"
#include "platform/posix/vek/bus_frame.h"
#include "platform/posix/vek/bus_service.h"
#include "platform/posix/vek/bus_tags.h"
#include "platform/posix/vek/command_class.h"
#include "platform/posix/vek/vek_log.h"

namespace ProcMgr {

namespace {

constexpr int kAcceptsPerTurn = 16;
constexpr std::chrono::milliseconds kListenPause{100};

bool IsPrivileged(uid_t uid) {
    return uid == 0 || uid == ::geteuid();
}

}  // namespace

BusService::BusService(std::string name, WorkPool& workers, VekHandles& handles)
    : name_(std::move(name)),
      workers_(workers),
      handles_(handles),
      rules_(CommandClassNames()),
      lastId_(kFirstFileTag - 1),
      packet_(VEK_FRAME_MAX) {
}

int BusService::Start(const std::string& folder, const ServiceEntry& entry, std::string& error) {
    entry_ = entry;
    isQueue_ = entry.isQueue;
    LoadRules();
    if (const int result = Listen(folder, error)) {
        return result;
    }
    const SignalsBlocked signalsBlocked;
    try {
        std::thread([this] { Loop(); }).detach();
    } catch (const std::system_error& failure) {
        error = "the thread of the service " + name_ + " cannot be made";
        return failure.code().value();
    }
    return 0;
}

int BusService::Listen(const std::string& folder, std::string& error) {
    if (const int result = listener_.Open(folder, name_, "service of this name", error)) {
        return result;
    }
    epoll_ = UniqueFd(::epoll_create1(EPOLL_CLOEXEC));
    wake_ = UniqueFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!epoll_ || !wake_ || !Watch(listener_.Fd(), kListenerTag, EPOLLIN, EPOLL_CTL_ADD) ||
        !Watch(wake_.Get(), kWakeTag, EPOLLIN, EPOLL_CTL_ADD)) {
        const int number = errno;
        error =
            "the descriptors of the service " + name_ + " cannot be made: " + std::generic_category().message(number);
        return number;
    }
    return 0;
}

void BusService::LoadRules() {
    const char* path = std::getenv("PROCMGR_SS_RULES");
    std::string error;
    if (path == nullptr || path[0] == '\0' || rules_.Load(path, error)) {
        return;
    }
    VEK_LOG(kLogError, "BusService : the rules are not used, only root and uid %u may use %s: %s", ::geteuid(),
            name_.c_str(), error.c_str());
}

bool BusService::Replace(const ServiceEntry& entry) {
    const std::lock_guard<std::mutex> lock(entryMutex_);
    if (entry.isQueue != isQueue_) {
        return false;
    }
    entry_ = entry;
    return true;
}

ServiceEntry BusService::Entry() const {
    const std::lock_guard<std::mutex> lock(entryMutex_);
    return entry_;
}

void BusService::AcceptAll() {
    for (int i = 0; i < kAcceptsPerTurn; ++i) {
        UniqueFd fd(::accept4(listener_.Fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (fd) {
            Accept(std::move(fd));
            continue;
        }
        if (errno == EINTR || errno == ECONNABORTED) {
            continue;
        }
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            // The connection stays in the backlog and would wake the reader at once again.
            WatchListener(false);
            listenAgain_ = BusClock::now() + kListenPause;
        }
        return;
    }
}

void BusService::Accept(UniqueFd fd) {
    ucred peer = {};
    if (!ReadPeerCredentials(fd.Get(), peer)) {
        return;
    }
    const AccessRules::Grants grants = rules_.GrantsOf(peer.uid);
    const int error = FindRefusal(peer, grants);
    if (error != 0) {
        LogRefusedConnection(peer, error);
        static_cast<void>(SendBusFrame(fd.Get(), {VEK_OPEN | VEK_ERROR, 0, 0, -error}, nullptr));
        return;
    }
    AddFile(std::move(fd), peer, grants);
}

int BusService::FindRefusal(const ucred& peer, AccessRules::Grants grants) const {
    if (isQueue_ ? !IsGranted(grants, CommandClass::LOOK) : grants == 0) {
        return EACCES;
    }
    const auto ofProcess = std::count_if(files_.begin(), files_.end(),
                                         [&](const auto& file) { return file.second->peer.pid == peer.pid; });
    const auto ofUser = std::count_if(files_.begin(), files_.end(),
                                      [&](const auto& file) { return file.second->peer.uid == peer.uid; });
    const bool isFull = files_.size() >= kFilesMax || static_cast<size_t>(ofProcess) >= kFilesOfOneProcess ||
                        (!IsPrivileged(peer.uid) && static_cast<size_t>(ofUser) >= kFilesOfOneUser);
    return isFull ? EAGAIN : 0;
}

void BusService::LogRefusedConnection(const ucred& peer, int error) {
    uint32_t suppressed = 0;
    if (!logBudget_.Take(BusClock::now(), suppressed)) {
        return;
    }
    if (suppressed > 0) {
        VEK_LOG(kLogWarn, "BusService : %u more lines about clients of %s were left out", suppressed, name_.c_str());
    }
    if (error == EACCES) {
        VEK_LOG(kLogWarn, "BusService : refused uid %u (process %d) to open %s: no rule allows it", peer.uid, peer.pid,
                name_.c_str());
        return;
    }
    VEK_LOG(kLogWarn, "BusService : refused uid %u (process %d) to open %s: too many files are open", peer.uid,
            peer.pid, name_.c_str());
}

void BusService::AddFile(UniqueFd fd, const ucred& peer, AccessRules::Grants grants) {
    auto file = std::make_unique<BusFile>();
    file->id = ++lastId_;
    file->peer = peer;
    file->grants = grants;
    file->socket = std::make_shared<const UniqueFd>(std::move(fd));
    file->openDeadline = BusClock::now() + kOpenTimeout;
    file->record.fileName = name_.c_str();
    file->queueRecord.fileName = name_.c_str();
    if (!Watch(file->socket->Get(), file->id, EPOLLIN | EPOLLONESHOT, EPOLL_CTL_ADD)) {
        return;
    }
    file->isWatched = true;
    if (isQueue_) {
        file->queue = handles_.AddFile(&file->queueRecord, file->queueHandle);
    }
    files_[file->id] = std::move(file);
}

}  // namespace ProcMgr
