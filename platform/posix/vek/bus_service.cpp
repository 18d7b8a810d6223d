#include "platform/posix/vek/bus_service.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

#include "platform/posix/common_posix/packet_socket.h"
#include "platform/posix/vek/bus_frame.h"
#include "platform/posix/vek/bus_tags.h"
#include "platform/posix/vek/command_class.h"
#include "platform/posix/vek/vek_log.h"

namespace ProcMgr {

namespace {

constexpr int kEventsPerTurn = 64;
constexpr size_t kOffsetSize = sizeof(int64_t);

/// An error that a client understands, whatever the service returned.
int ErrnoOf(int64_t result) {
    return result < 0 && result >= -4095 ? static_cast<int>(-result) : EIO;
}

}  // namespace

void BusService::Loop() {
    for (;;) {
        try {
            Turn();
        } catch (const std::exception& failure) {
            VEK_LOG(kLogError, "BusService : a turn of %s failed: %s", name_.c_str(), failure.what());
        }
    }
}

void BusService::Turn() {
    epoll_event events[kEventsPerTurn];
    const int count = ::epoll_wait(epoll_.Get(), events, kEventsPerTurn, MillisecondsToNextDeadline());
    for (int i = 0; i < count; ++i) {
        const uint64_t tag = events[i].data.u64;
        if (tag == kListenerTag) {
            AcceptAll();
        } else if (tag >= kFirstFileTag) {
            ServeFile(tag);
        }
    }
    // Work that has ended is in time, even when the reader is late.
    TakeCompletions();
    ExpireDeadlines();
    WatchReadyFiles();
    RemoveEndedFiles();
}

int BusService::MillisecondsToNextDeadline() const {
    BusClock::time_point next = isListening_ ? BusClock::time_point::max() : listenAgain_;
    for (const auto& [id, file] : files_) {
        next = file->socket != nullptr && !file->saidOpen ? std::min(next, file->openDeadline) : next;
        next = file->running != nullptr && !file->running->isAnswered ? std::min(next, file->running->deadline) : next;
        next = file->waiting != nullptr ? std::min(next, file->waiting->deadline) : next;
    }
    if (next == BusClock::time_point::max()) {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - BusClock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT32_MAX));
}

bool BusService::Watch(int fd, uint64_t tag, uint32_t events, int operation) const {
    epoll_event event = {};
    event.events = events;
    event.data.u64 = tag;
    return ::epoll_ctl(epoll_.Get(), operation, fd, &event) == 0;
}

void BusService::WatchListener(bool on) {
    isListening_ = on;
    static_cast<void>(Watch(listener_.Fd(), kListenerTag, on ? uint32_t{EPOLLIN} : 0, EPOLL_CTL_MOD));
}

void BusService::WatchFile(BusFile& file) {
    file.isWatched = Watch(file.socket->Get(), file.id, EPOLLIN | EPOLLONESHOT, EPOLL_CTL_MOD);
    if (!file.isWatched) {
        End(file, "its socket cannot be watched");
    }
}

void BusService::WatchReadyFiles() {
    for (const auto& [id, file] : files_) {
        if (!file->isWatched && file->MayRead()) {
            WatchFile(*file);
        }
    }
}

/// One packet: a client that floods gets its turn like the others.
void BusService::ServeFile(uint64_t id) {
    const auto found = files_.find(id);
    if (found == files_.end() || found->second->socket == nullptr) {
        return;
    }
    BusFile& file = *found->second;
    file.isWatched = false;
    size_t size = 0;
    switch (ReceivePacket(file.socket->Get(), packet_.data(), packet_.size(), MSG_DONTWAIT, size)) {
        case PacketResult::EMPTY:
            return;
        case PacketResult::END:
            End(file, nullptr);
            return;
        case PacketResult::TOO_LONG:
            End(file, "frame is over 64 KiB");
            return;
        case PacketResult::WITH_FDS:
            End(file, "it attached descriptors");
            return;
        case PacketResult::PACKET:
            break;
    }
    if (const char* problem = TakePacket(file, packet_.data(), size)) {
        End(file, problem);
    }
}

const char* BusService::TakePacket(BusFile& file, const char* packet, size_t size) {
    VekFrameHead head = {};
    if (const char* problem = DecodeBusFrame(packet, size, head)) {
        return problem;
    }
    const char* payload = packet + VEK_FRAME_HEAD_SIZE;
    if (!file.saidOpen) {
        return TakeOpen(file, head);
    }
    switch (head.op) {
        case VEK_IOCTL:
        case VEK_READ:
            return TakeRequest(file, head, payload);
        case VEK_QUEUE:
            return TakeQueue(file, head);
        case VEK_RETURN:
            return TakeReturn(file, head, payload);
        default:
            return head.op == VEK_OPEN ? "it opened twice" : "frame is no request";
    }
}

const char* BusService::TakeOpen(BusFile& file, const VekFrameHead& head) {
    if (head.op != VEK_OPEN || head.size != 0 || head.rc != 0) {
        return "its first frame is no open request";
    }
    if (head.cmd != VEK_VERSION) {
        SendError(file, head, EPROTONOSUPPORT);
        return "it speaks another version";
    }
    file.saidOpen = true;
    auto work = std::make_shared<BusWork>();
    work->head = head;
    work->deadline = BusClock::now() + std::chrono::milliseconds(Entry().timeoutMs);
    Submit(file, std::move(work));
    return nullptr;
}

const char* BusService::TakeRequest(BusFile& file, const VekFrameHead& head, const char* payload) {
    const bool isRead = head.op == VEK_READ;
    if (head.rc < 0) {
        return "its time-out is negative";
    }
    if (isRead ? head.size != kOffsetSize || head.cmd == 0 || head.cmd > VEK_READ_MAX : head.size == 0) {
        return "its request has the wrong size";
    }
    if (isQueue_) {
        SendError(file, head, ENOTTY);
        return nullptr;
    }
    if (!IsAllowed(file, head)) {
        SendError(file, head, EACCES);
        return nullptr;
    }
    auto work = std::make_shared<BusWork>();
    work->head = head;
    work->payload.assign(payload, payload + head.size);
    const auto granted = std::chrono::milliseconds(head.rc > 0 ? static_cast<uint32_t>(head.rc) : Entry().timeoutMs);
    work->deadline = BusClock::now() + granted;
    if (file.running != nullptr) {
        file.waiting = std::move(work);
        return nullptr;
    }
    Submit(file, std::move(work));
    return nullptr;
}

const char* BusService::TakeQueue(BusFile& file, const VekFrameHead& head) {
    if (head.size != 0 || file.isRead) {
        return "it asked for its queue twice, or in no way that is known";
    }
    if (!isQueue_) {
        SendError(file, head, ENOTTY);
        return nullptr;
    }
    if (!file.isOpen) {
        return "it asked for its queue before that was open";
    }
    file.isRead = true;
    const VekFrameHead answer = {VEK_QUEUE | VEK_ANSWER, head.cmd, 0, 0};
    const int error = file.queue->Start(file.socket, answer, file.queueRecord, file.queueHandle);
    return error == 0 ? nullptr : "its queue cannot be sent";
}

const char* BusService::TakeReturn(BusFile& file, const VekFrameHead& head, const char* payload) {
    if (!file.isRead || head.size != sizeof(uint32_t)) {
        return "it handed back a block in no way that is known";
    }
    return file.queue->TakeBack(head.cmd, ReadU32(payload, 0));
}

bool BusService::IsAllowed(const BusFile& file, const VekFrameHead& head) {
    const CommandClass wanted = head.op == VEK_READ ? CommandClass::LOOK : ClassOfCommand(head.cmd);
    if (IsGranted(file.grants, wanted)) {
        return true;
    }
    LogRefusedCommand(file, head.cmd);
    return false;
}

void BusService::LogRefusedCommand(const BusFile& file, uint32_t cmd) {
    uint32_t suppressed = 0;
    if (!logBudget_.Take(BusClock::now(), suppressed)) {
        return;
    }
    if (suppressed > 0) {
        VEK_LOG(kLogWarn, "BusService : %u more lines about clients of %s were left out", suppressed, name_.c_str());
    }
    VEK_LOG(kLogWarn, "BusService : refused uid %u (process %d) the command %u of %s: no rule allows it", file.peer.uid,
            file.peer.pid, cmd, name_.c_str());
}

void BusService::Submit(BusFile& file, std::shared_ptr<BusWork> work) {
    WorkPool::Job job;
    job.process = file.peer.pid;
    job.isLong = work->head.op == VEK_IOCTL && ClassOfCommand(work->head.cmd) != CommandClass::LOOK;
    job.work = [this, &file, work] { Run(file, *work); };
    workers_.Add(std::move(job));
    file.running = std::move(work);
}

void BusService::Run(BusFile& file, BusWork& work) {
    // Once it is posted, the file may be gone.
    const uint64_t id = file.id;
    CallService(Entry(), file, work);
    Post(id);
}

void BusService::Post(uint64_t id) {
    {
        const std::lock_guard<std::mutex> lock(doneMutex_);
        done_.push_back(id);
    }
    static_cast<void>(::eventfd_write(wake_.Get(), 1));
}

void BusService::TakeCompletions() {
    eventfd_t count = 0;
    static_cast<void>(::eventfd_read(wake_.Get(), &count));
    std::vector<uint64_t> done;
    {
        const std::lock_guard<std::mutex> lock(doneMutex_);
        done.swap(done_);
    }
    for (const uint64_t id : done) {
        Complete(*files_.at(id));
    }
}

void BusService::Complete(BusFile& file) {
    const std::shared_ptr<BusWork> work = std::move(file.running);
    file.running = nullptr;
    if (work->head.op == VEK_OPEN) {
        CompleteOpen(file, *work);
    } else if (!work->isAnswered && file.socket != nullptr) {
        const VekFrameHead answer = {work->head.op | VEK_ANSWER, work->head.cmd,
                                     static_cast<uint32_t>(work->payload.size()), static_cast<int32_t>(work->result)};
        Send(file, answer, work->payload.data());
    }
    if (file.socket != nullptr && file.waiting != nullptr) {
        Submit(file, std::exchange(file.waiting, nullptr));
    }
}

void BusService::CompleteOpen(BusFile& file, const BusWork& work) {
    file.isOpen = work.result == 0;
    if (file.socket == nullptr) {
        return;
    }
    if (!file.isOpen) {
        if (!work.isAnswered) {
            SendError(file, work.head, ErrnoOf(work.result));
        }
        End(file, "the service did not open it");
        return;
    }
    if (!work.isAnswered) {
        Send(file, {VEK_OPEN | VEK_ANSWER, Entry().timeoutMs, 0, 0}, nullptr);
    }
}

void BusService::Send(BusFile& file, const VekFrameHead& head, const void* payload) {
    if (file.socket == nullptr) {
        return;
    }
    const int error = SendBusFrame(file.socket->Get(), head, payload);
    if (error != 0) {
        End(file, error == -EAGAIN ? "it does not read its answers" : nullptr);
    }
}

void BusService::SendError(BusFile& file, const VekFrameHead& request, int error) {
    Send(file, {request.op | VEK_ERROR, request.cmd, 0, -error}, nullptr);
}

void BusService::End(BusFile& file, const char* reason) {
    if (file.socket == nullptr) {
        return;
    }
    uint32_t suppressed = 0;
    if (reason != nullptr && logBudget_.Take(BusClock::now(), suppressed)) {
        VEK_LOG(kLogWarn, "BusService : ended the file of uid %u (process %d) on %s: %s", file.peer.uid, file.peer.pid,
                name_.c_str(), reason);
    }
    static_cast<void>(Watch(file.socket->Get(), file.id, 0, EPOLL_CTL_DEL));
    ::shutdown(file.socket->Get(), SHUT_RDWR);
    file.socket.reset();
    file.waiting.reset();
    if (file.queue != nullptr) {
        __atomic_store_n(&file.queueRecord.queueHandle, nullptr, __ATOMIC_RELEASE);
        file.queue->Close();
    }
}

void BusService::ExpireDeadlines() {
    const BusClock::time_point now = BusClock::now();
    if (!isListening_ && listenAgain_ <= now) {
        WatchListener(true);
    }
    for (const auto& [id, file] : files_) {
        Expire(*file, now);
    }
}

void BusService::Expire(BusFile& file, BusClock::time_point now) {
    if (!file.saidOpen && file.openDeadline <= now) {
        End(file, "it opened nothing in time");
    }
    if (file.running != nullptr && !file.running->isAnswered && file.running->deadline <= now) {
        file.running->isAnswered = true;
        SendError(file, file.running->head, ETIMEDOUT);
    }
    if (file.waiting != nullptr && file.waiting->deadline <= now) {
        const std::shared_ptr<BusWork> late = std::exchange(file.waiting, nullptr);
        SendError(file, late->head, EBUSY);
    }
}

/// A file is closed when its last call has returned, and removed when the close has.
void BusService::RemoveEndedFiles() {
    for (auto entry = files_.begin(); entry != files_.end();) {
        BusFile& file = *entry->second;
        ++entry;
        if (file.socket != nullptr || file.running != nullptr) {
            continue;
        }
        if (file.isOpen) {
            file.isOpen = false;
            auto close = std::make_shared<BusWork>();
            close->isAnswered = true;
            Submit(file, std::move(close));
            continue;
        }
        if (file.queue != nullptr) {
            handles_.RemoveFile(&file.queueRecord);
        }
        files_.erase(file.id);
    }
}

}  // namespace ProcMgr
