#include "tools/ssctl/connection.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>
#include <system_error>
#include <utility>

#include "ss_server/ss_to_owner_messages.h"

namespace Ssctl {

namespace {

using Clock = std::chrono::steady_clock;

/// An event of a group owner has at most ten bytes; a longer one is none of its events.
constexpr size_t kEventCapacity = 64;

struct ErrorRow {
    int error;
    Delivery delivery;
    const char* detail;  ///< null: as the system calls the error
};

constexpr std::array<ErrorRow, 12> kErrors = {{
    {ENOENT, Delivery::NO_SERVICE, "there is no such service"},
    {ECONNREFUSED, Delivery::NO_SERVICE, "who offered it is gone"},
    {EAGAIN, Delivery::NO_SERVICE, "it has all the connections that it takes"},
    {EPERM, Delivery::NO_SERVICE, "who offers it runs as a user that is not trusted (see PROCMGR_SERVER_UID)"},
    {EPIPE, Delivery::LOST, ""},
    {EACCES, Delivery::DENIED, ""},
    {ETIMEDOUT, Delivery::TIMED_OUT, ""},
    {EBUSY, Delivery::TIMED_OUT, "an earlier request is still being worked on"},
    {ENOTTY, Delivery::FAILED, "it is a service of the other kind"},
    {EPROTO, Delivery::FAILED, "what answers is no service of the resource bus"},
    {EINVAL, Delivery::BAD_NAME, "a name has 1 to 64 bytes without '/' and control characters"},
    {ENAMETOOLONG, Delivery::BAD_NAME, "the path of the run directory is too long"},
}};

/// The whole milliseconds from now to then, rounded up so that a wait does not end early; 0 when it has passed.
uint32_t MsUntil(Clock::time_point then) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(then - Clock::now()).count();
    return static_cast<uint32_t>(std::clamp<int64_t>(left, 0, std::numeric_limits<int32_t>::max()));
}

Reply FailedReply(int error) {
    Reply reply;
    reply.delivery = DeliveryOf(error, reply.detail);
    return reply;
}

EventReply FailedEvent(int error) {
    EventReply reply;
    reply.delivery = DeliveryOf(error, reply.detail);
    return reply;
}

}  // namespace

Delivery DeliveryOf(int error, std::string& detail) {
    const auto* const row = std::find_if(kErrors.begin(), kErrors.end(),
                                         [&](const ErrorRow& candidate) { return -error == candidate.error; });
    if (row == kErrors.end()) {
        detail = std::generic_category().message(-error);
        return Delivery::FAILED;
    }
    detail =
        row->delivery == Delivery::DENIED ? "uid " + std::to_string(geteuid()) + " is not granted it" : row->detail;
    return row->delivery;
}

Connection::Connection(std::string runDir, std::string resource)
    : runDir_(std::move(runDir)), resource_(std::move(resource)) {
}

int Connection::Open(uint32_t timeoutMs) {
    ProcmgrSsFile* file = nullptr;
    const int error = ProcmgrSsOpen(runDir_.c_str(), resource_.c_str(), timeoutMs, &file);
    if (error == 0) {
        file_.reset(file);
    }
    return error;
}

Reply Connection::Ask(const Request& request) {
    const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(request.waitMs);
    const int openError = file_ ? 0 : Open(request.waitMs);
    if (openError != 0) {
        return FailedReply(openError);
    }
    // 0 would stand for the service's own time-out.
    const uint32_t left = std::max(MsUntil(deadline), 1U);
    const ProcMgr::SsToOwnerRequestMsg record = MakeRecord(request);
    Reply reply;
    std::memcpy(reply.record.data(), &record, sizeof(record));
    const int error = ProcmgrSsIoctl(file_.get(), static_cast<uint32_t>(request.kind), reply.record.data(),
                                     reply.record.size(), left, &reply.result);
    if (error != 0) {
        return FailedReply(error);
    }
    reply.delivery = Delivery::ANSWERED;
    return reply;
}

EventQueue::EventQueue(std::string runDir, std::string name, uint32_t openMs)
    : runDir_(std::move(runDir)), name_(std::move(name)), openMs_(openMs) {
}

int EventQueue::Open() {
    ProcmgrSsQueue* queue = nullptr;
    const int error = ProcmgrSsOpenQueue(runDir_.c_str(), name_.c_str(), openMs_, &queue);
    if (error == 0) {
        queue_.reset(queue);
    }
    return error;
}

EventReply EventQueue::Next(const Deadline& deadline) {
    const int openError = queue_ ? 0 : Open();
    if (openError != 0) {
        return FailedEvent(openError);
    }
    std::array<char, kEventCapacity> text{};
    size_t size = 0;
    int error = -EINTR;
    while (error == -EINTR) {
        const int32_t waitMs = deadline ? static_cast<int32_t>(MsUntil(*deadline)) : -1;
        error = ProcmgrSsWaitEvent(queue_.get(), waitMs, text.data(), text.size(), &size);
    }
    if (error != 0) {
        return FailedEvent(error);
    }
    return {Delivery::ANSWERED, std::string(text.data(), size), {}};
}

}  // namespace Ssctl
