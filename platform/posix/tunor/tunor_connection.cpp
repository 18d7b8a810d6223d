#include "platform/posix/tunor/tunor_connection.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <exception>

#include "platform/posix/common_posix/signals_blocked.h"
#include "platform/posix/tunor/owner_link_handlers.h"
#include "platform/posix/tunor/tunor_log.h"

namespace ProcMgr {

namespace {

constexpr uint64_t kDelivered = uint64_t{1} << 32;  // beside the 32 bits of a request's number

int RemainingMs(TunorConnection::Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - TunorConnection::Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT32_MAX));
}

}  // namespace

TunorConnection::TunorConnection(UniqueFd fd, std::string peerName, TunorRequestHandler handler)
    : fd_(std::move(fd)), peerName_(std::move(peerName)), handler_(handler) {
}

void TunorConnection::Start() {
    const SignalsBlocked signalsBlocked;
    const auto self = shared_from_this();
    dispatcher_ = std::thread([self] { self->DispatchLoop(); });
    try {
        reader_ = std::thread([self] { self->ReadLoop(); });
    } catch (...) {
        {
            const std::lock_guard<std::mutex> lock(queueMutex_);
            closing_ = true;
        }
        queueChanged_.notify_all();
        dispatcher_.join();
        throw;
    }
}

void TunorConnection::Release() {
    {
        const std::lock_guard<std::mutex> lock(queueMutex_);
        released_ = true;
    }
    queueChanged_.notify_all();
}

void TunorConnection::Close() {
    {
        const std::lock_guard<std::mutex> lock(queueMutex_);
        closing_ = true;
        queue_.clear();
        queuedBytes_ = 0;
    }
    queueChanged_.notify_all();
    FailCalls(-ECANCELED);
    ::shutdown(fd_.Get(), SHUT_RDWR);
    reader_.join();
    if (std::this_thread::get_id() == dispatcher_.get_id()) {
        dispatcher_.detach();
        return;
    }
    dispatcher_.join();
}

int TunorConnection::Send(const FrameHead& head, const void* data, Clock::time_point deadline) const {
    for (;;) {
        const int result = SendFrame(fd_.Get(), head, data, MSG_DONTWAIT);
        if (result != -EAGAIN) {
            return result;
        }
        const int left = RemainingMs(deadline);
        if (left == 0) {
            return -ETIMEDOUT;
        }
        pollfd entry = {fd_.Get(), POLLOUT, 0};
        ::poll(&entry, 1, left);
    }
}

int TunorConnection::SendRequest(const void* data, uint32_t size) {
    return Send({FrameKind::REQUEST, 0, size}, data, Clock::now() + kSendTimeout);
}

int TunorConnection::SendResponse(const void* data, uint32_t size) {
    const uint64_t last = lastRequest_.load();
    if (last == 0) {
        return -ENOMSG;
    }
    return Send({FrameKind::ANSWER, static_cast<uint32_t>(last), size}, data, Clock::now() + kSendTimeout);
}

int TunorConnection::Call(const void* data, uint32_t size, std::optional<Clock::time_point> deadline,
                          std::string& answer) {
    PendingCall call;
    uint32_t seq = 0;
    if (const int refused = AddCall(call, seq)) {
        return refused;
    }
    const Clock::time_point sendDeadline = Clock::now() + kSendTimeout;
    const int sent =
        Send({FrameKind::CALL, seq, size}, data, deadline ? std::min(*deadline, sendDeadline) : sendDeadline);
    if (sent < 0) {
        const std::lock_guard<std::mutex> lock(callsMutex_);
        calls_.erase(seq);
        return sent;
    }
    const int result = AwaitCall(call, seq, deadline);
    if (result == 0) {
        answer = std::move(call.answer);
    }
    return result;
}

int TunorConnection::AddCall(PendingCall& call, uint32_t& seq) {
    const std::lock_guard<std::mutex> lock(callsMutex_);
    if (callsEnd_ != 0) {
        return callsEnd_;
    }
    // The number wraps around after four thousand million calls; one that still waits keeps its number.
    while (nextSeq_ == 0 || calls_.count(nextSeq_) != 0) {
        ++nextSeq_;
    }
    seq = nextSeq_++;
    calls_.emplace(seq, &call);
    return 0;
}

int TunorConnection::AwaitCall(PendingCall& call, uint32_t seq, std::optional<Clock::time_point> deadline) {
    std::unique_lock<std::mutex> lock(callsMutex_);
    const auto isSettled = [&call] { return call.result.has_value(); };
    if (deadline) {
        call.settled.wait_until(lock, *deadline, isSettled);
    } else {
        call.settled.wait(lock, isSettled);
    }
    calls_.erase(seq);
    return call.result.value_or(-ETIMEDOUT);
}

void TunorConnection::SettleCall(const FrameView& frame) {
    const std::lock_guard<std::mutex> lock(callsMutex_);
    const auto found = calls_.find(frame.head.seq);
    if (found == calls_.end() || found->second->result) {
        return;
    }
    PendingCall& call = *found->second;
    call.answer.assign(frame.payload, frame.head.size);
    call.result = 0;
    call.settled.notify_one();
}

void TunorConnection::FailCalls(int error) {
    const std::lock_guard<std::mutex> lock(callsMutex_);
    if (callsEnd_ == 0) {
        callsEnd_ = error;
    }
    for (const auto& [seq, call] : calls_) {
        if (!call->result) {
            call->result = error;
            call->settled.notify_one();
        }
    }
}

void TunorConnection::ReadLoop() {
    {
        std::unique_lock<std::mutex> lock(queueMutex_);
        queueChanged_.wait(lock, [this] { return released_ || closing_; });
    }
    const char* reason = nullptr;
    try {
        reason = ReadUntilEnd();
    } catch (...) {
        reason = "out of memory";
    }
    EndReading(reason);
}

const char* TunorConnection::ReadUntilEnd() {
    ReceiveBuffer buffer;
    for (;;) {
        const ReceiveResult received = ReceiveFrame(fd_.Get(), buffer, 0);
        if (received == ReceiveResult::END) {
            return "the peer is gone";
        }
        if (received == ReceiveResult::BROKEN) {
            return buffer.problem;
        }
        if (received == ReceiveResult::DROPPED) {
            TUNOR_LOG(kLogWarn, "TunorConnection : dropped a frame of %s that carried descriptors (fd=%d)",
                      peerName_.c_str(), Fd());
        }
        if (received != ReceiveResult::FRAME) {
            continue;
        }
        if (const char* problem = TakeFrame(buffer.frame)) {
            return problem;
        }
    }
}

const char* TunorConnection::TakeFrame(const FrameView& frame) {
    if (frame.head.kind == FrameKind::ANSWER) {
        SettleCall(frame);
        return nullptr;
    }
    if (frame.head.kind == FrameKind::REQUEST || frame.head.kind == FrameKind::APP_REPORT) {
        return Enqueue(frame) ? nullptr : "over 16 MiB of requests wait for their handler";
    }
    if (frame.head.kind == FrameKind::APP_BEAT) {
        TakeBeat(frame);
        return nullptr;
    }
    if (!unknownKindLogged_) {
        unknownKindLogged_ = true;
        TUNOR_LOG(kLogWarn,
                  "TunorConnection : dropped a frame of %s of the unknown kind %u; further ones silently (fd=%d)",
                  peerName_.c_str(), static_cast<uint32_t>(frame.head.kind), Fd());
    }
    return nullptr;
}

void TunorConnection::TakeBeat(const FrameView& frame) {
    AppBeat beat;
    if (!DecodeAppBeat(frame.payload, frame.head.size, beat)) {
        TUNOR_LOG(kLogError, "TunorConnection : dropped a malformed heartbeat of %s (fd=%d)", peerName_.c_str(), Fd());
        return;
    }
    TakeAppBeat(beat);
}

bool TunorConnection::Enqueue(const FrameView& frame) {
    Delivery delivery = {frame.head.kind, frame.head.seq, std::string(frame.payload, frame.head.size)};
    {
        const std::lock_guard<std::mutex> lock(queueMutex_);
        if (closing_) {
            return true;
        }
        const size_t bytes = kFrameHeadSize + delivery.payload.size();
        if (bytes > kQueueBytes - queuedBytes_) {
            return false;
        }
        queuedBytes_ += bytes;
        queue_.push_back(std::move(delivery));
    }
    queueChanged_.notify_all();
    return true;
}

// The end of sending comes before the loss is told: who has heard of it must not succeed in sending any more.
void TunorConnection::EndReading(const char* reason) {
    if (!IsClosing()) {
        TUNOR_LOG(kLogError, "TunorConnection : lost the pipe to %s: %s (fd=%d)", peerName_.c_str(), reason, Fd());
        ::shutdown(fd_.Get(), SHUT_RDWR);
    }
    FailCalls(-EPIPE);
    {
        const std::lock_guard<std::mutex> lock(queueMutex_);
        readingEnded_ = true;
    }
    queueChanged_.notify_all();
}

bool TunorConnection::IsClosing() const {
    const std::lock_guard<std::mutex> lock(queueMutex_);
    return closing_;
}

void TunorConnection::DispatchLoop() {
    while (auto delivery = NextDelivery()) {
        try {
            Deliver(*delivery);
        } catch (...) {
            TUNOR_LOG(kLogError, "TunorConnection : a handler threw; the request of %s is dropped (fd=%d)",
                      peerName_.c_str(), Fd());
        }
    }
    TellLost();
}

std::optional<TunorConnection::Delivery> TunorConnection::NextDelivery() {
    std::unique_lock<std::mutex> lock(queueMutex_);
    queueChanged_.wait(lock, [this] { return closing_ || readingEnded_ || !queue_.empty(); });
    if (closing_ || queue_.empty()) {
        return std::nullopt;
    }
    Delivery delivery = std::move(queue_.front());
    queue_.pop_front();
    queuedBytes_ -= kFrameHeadSize + delivery.payload.size();
    return delivery;
}

void TunorConnection::Deliver(Delivery& delivery) {
    if (delivery.kind == FrameKind::REQUEST) {
        DeliverRequest(delivery);
        return;
    }
    AppReport report;
    if (!DecodeAppReport(delivery.payload.data(), delivery.payload.size(), report)) {
        TUNOR_LOG(kLogError, "TunorConnection : dropped a malformed application report of %s (fd=%d)",
                  peerName_.c_str(), Fd());
        return;
    }
    if (const OwnerAppReportHandler handler = GetAppReportHandler()) {
        handler(report.name.data(), report.name.size(), report.pid, report.state);
    }
}

void TunorConnection::DeliverRequest(Delivery& delivery) {
    lastRequest_.store(kDelivered | delivery.seq);
    if (handler_ == nullptr) {
        return;
    }
    TunorRequest request = {delivery.payload.data(), static_cast<uint32_t>(delivery.payload.size())};
    handler_(Fd(), &request);
}

void TunorConnection::TellLost() {
    if (IsClosing()) {
        return;
    }
    try {
        if (const OwnerPipeLostHandler handler = GetPipeLostHandler()) {
            handler(Fd());
        }
    } catch (...) {
        TUNOR_LOG(kLogError, "TunorConnection : the handler of the lost pipe threw (fd=%d)", Fd());
    }
}

}  // namespace ProcMgr
