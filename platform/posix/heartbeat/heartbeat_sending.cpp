#include "platform/posix/heartbeat/heartbeat_sending.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>

#include "platform/posix/heartbeat/heartbeat_log.h"
#include "platform/posix/heartbeat/heartbeat_wire.h"

namespace ProcMgr::Posix {
namespace {

// How many tries fit into one period while the peer's queue is full.
constexpr int kTriesPerPeriod = 8;

int MakeSocket() {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), "socket");
    }
    return fd;
}

}  // namespace

std::chrono::steady_clock::time_point NextBeat(std::chrono::steady_clock::time_point planned,
                                               std::chrono::steady_clock::time_point now,
                                               std::chrono::milliseconds period, bool isQueueFull) {
    if (isQueueFull) {
        return now + std::chrono::steady_clock::duration(period) / kTriesPerPeriod;
    }
    return planned + period > now ? planned + period : now + period;
}

HeartBeatSending& HeartBeatSending::Get() {
    static HeartBeatSending& sending = *new HeartBeatSending(ProcessHeartBeatSettings());
    return sending;
}

HeartBeatSending::HeartBeatSending(const HeartBeatSettings& settings)
    : period_(settings.period), runDirectory_(settings.runDirectory), socket_(MakeSocket()) {
}

int HeartBeatSending::Register(const std::string& name, const std::string& peer, HeartBeatHandle& handle) {
    auto sender = std::make_unique<HeartBeatSender>();
    sender->beat = BeatText(name);
    sender->next = std::chrono::steady_clock::now();
    if (!MakeAddress(HeartBeatPath(runDirectory_, peer), sender->peer)) {
        return ENAMETOOLONG;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!isRunning_) {
        std::thread([this] { Run(); }).detach();
        isRunning_ = true;
    }
    const HeartBeatHandle key = sender.get();
    senders_.emplace(key, std::move(sender));
    handle = key;
    wakeUp_.Notify();
    return 0;
}

int HeartBeatSending::Unregister(HeartBeatHandle handle) {
    const std::lock_guard<std::mutex> lock(mutex_);
    return senders_.erase(handle) == 1 ? 0 : EINVAL;
}

void HeartBeatSending::Run() {
    for (;;) {
        wakeUp_.Wait(BeatAll(), -1);
    }
}

// Sends what is due and says when to come back. Under the lock on purpose: sending never blocks, and a sender that was
// released must not beat any more.
std::optional<WakeUp::Time> HeartBeatSending::BeatAll() {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::optional<WakeUp::Time> next;
    const WakeUp::Time now = std::chrono::steady_clock::now();
    for (const auto& [handle, sender] : senders_) {
        if (sender->next <= now) {
            BeatOne(*sender, now);
        }
        next = next.has_value() ? std::min(*next, sender->next) : sender->next;
    }
    return next;
}

// A peer that is not there gets no beat; it may come later.
void HeartBeatSending::BeatOne(HeartBeatSender& sender, WakeUp::Time now) const {
    const ssize_t sent = sendto(socket_, sender.beat.data(), sender.beat.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&sender.peer), sizeof(sender.peer));
    const bool isQueueFull = sent < 0 && (errno == EAGAIN || errno == EINTR);
    sender.next = NextBeat(sender.next, now, period_, isQueueFull);
}

}  // namespace ProcMgr::Posix
