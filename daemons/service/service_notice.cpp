#include "daemons/service/service_notice.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "platform/posix/app/app_datagram.h"

namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr long kPatienceMs = 2000;
constexpr int kTriesInAPeriod = 10;
constexpr microseconds kLongestPeriod = std::chrono::hours(1);

std::string TakeVariable(const char* name) {
    const char* const value = std::getenv(name);
    std::string taken = value == nullptr ? "" : value;
    unsetenv(name);
    return taken;
}

/// The whole text as a number; empty when it is none.
std::optional<int64_t> Number(std::string_view text) {
    int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool isNumber = error == std::errc() && end == text.data() + text.size();
    return isNumber ? std::optional<int64_t>(number) : std::nullopt;
}

/// Half of what is allowed, so that one beat that comes late is no reason to end us.
std::optional<microseconds> PeriodOf(const std::string& allowed, const std::string& pid) {
    const std::optional<int64_t> time = Number(allowed);
    const bool isOurs = pid.empty() || Number(pid) == getpid();
    if (time.value_or(0) <= 0 || !isOurs) {
        return std::nullopt;
    }
    return std::min(microseconds(*time / 2), kLongestPeriod);
}

/// A status is one line.
std::string StatusLine(std::string status) {
    std::replace_if(
        status.begin(), status.end(), [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; }, ' ');
    return "STATUS=" + status;
}

}  // namespace

ServiceNotice::ServiceNotice() : address_(TakeVariable("NOTIFY_SOCKET")), nextBeat_(Clock::now()) {
    const std::string allowed = TakeVariable("WATCHDOG_USEC");
    const std::string pid = TakeVariable("WATCHDOG_PID");
    if (!address_.empty()) {
        period_ = PeriodOf(allowed, pid);
    }
}

int ServiceNotice::Ready(const std::string& status) {
    return Send("READY=1\n" + StatusLine(status), kPatienceMs);
}

void ServiceNotice::Status(const std::string& status) {
    static_cast<void>(Send(StatusLine(status), 0));
}

void ServiceNotice::Stopping(const std::string& status) {
    static_cast<void>(Send("STOPPING=1\n" + StatusLine(status), kPatienceMs));
}

int ServiceNotice::BeatIfDue() {
    if (!period_) {
        return -1;
    }
    const Clock::time_point now = Clock::now();
    if (nextBeat_ <= now) {
        const bool isSent = Send("WATCHDOG=1", 0) == 0;
        nextBeat_ = now + (isSent ? *period_ : *period_ / kTriesInAPeriod);
    }
    // Rounded up, so that it is time when these milliseconds have passed.
    const auto left = std::chrono::ceil<milliseconds>(nextBeat_ - now).count();
    return static_cast<int>(std::clamp<int64_t>(left, 1, INT_MAX));
}

int ServiceNotice::Send(const std::string& text, long patienceMs) const {
    return address_.empty() ? 0 : ProcmgrAppDatagram(address_.c_str(), text.c_str(), patienceMs);
}
