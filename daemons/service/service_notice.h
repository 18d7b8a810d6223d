/// What a daemon tells whoever started it as a service: that it is ready, what it is doing, that it lives, that it
/// stops.
///
/// The words are those that `procmgrd` itself understands from applications; the address stands in NOTIFY_SOCKET, the
/// time without a beat that is allowed in WATCHDOG_USEC (and WATCHDOG_PID, whose it is). Without an address nobody
/// asked, and every operation does nothing.
///
/// All operations are called from the daemon's main loop, so that a beat says that the loop turns. Only Ready and
/// Stopping wait for a receiver that does not read, two seconds at most.
#ifndef PROCMGR_SERVICE_SERVICE_NOTICE_H
#define PROCMGR_SERVICE_SERVICE_NOTICE_H

#include <chrono>
#include <optional>
#include <string>

class ServiceNotice {
public:
    /// Takes the three variables out of the environment, so that no child can speak in our name. Called while the
    /// process has one thread.
    ServiceNotice();

    /// `status` is a line for people. 0, or the errno of the failure, of which nobody but the caller hears.
    [[nodiscard]] int Ready(const std::string& status);
    void Status(const std::string& status);
    void Stopping(const std::string& status);

    /// Beats when it is time, and returns the milliseconds until it is time again; -1 when nobody waits for beats. The
    /// first one is due at once, the others after half of the time that is allowed; one that could not be sent is due
    /// again soon.
    int BeatIfDue();

    /// Empty when nobody asked.
    const std::string& Address() const { return address_; }

private:
    using Clock = std::chrono::steady_clock;

    int Send(const std::string& text, long patienceMs) const;

    std::string address_;
    std::optional<std::chrono::microseconds> period_;  // from beat to beat
    Clock::time_point nextBeat_;
};

#endif
